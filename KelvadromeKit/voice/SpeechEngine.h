#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// Samples of one clip, at 16 kHz, shared so that nobody copies them.
using Clip = std::shared_ptr<const std::vector<std::int16_t>>;

/// What turns speech into text on this machine. Main executor.
class SpeechEngine {
public:
    virtual ~SpeechEngine() = default;

    /// BCP-47 names of the languages that it could hear, in its own order. Doesn't block.
    virtual std::vector<std::string> supportedLocales() const = 0;
    /// Those of them whose model is on this machine now. Looks at the disk, no more.
    virtual std::vector<std::string> installedLocales() const = 0;
    /// A clip is about to come: whatever takes long and doesn't need it may be done now. Harmless when it is
    /// done already. Throws as `transcribe` does.
    virtual Task<> prepare() { co_return; }
    /// The words of the clip; empty when there were none. `locale` is one of the installed. The work is done
    /// off the main executor, and cancelling the caller ends it soon. Throws std::runtime_error with words
    /// for a log.
    virtual Task<std::string> transcribe(Clip clip, std::string locale) = 0;
};

} // namespace kelvadrome
