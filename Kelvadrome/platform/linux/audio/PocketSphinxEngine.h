#pragma once

#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/voice/SpeechEngine.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

class SphinxDecoder;

/// Speech to text by PocketSphinx, in US English. The model is loaded when it is first needed, and let go
/// some minutes after it was last. Main executor; the work is done on the pool, which must outlive it.
class PocketSphinxEngine final : public SpeechEngine {
public:
    static constexpr double idleLimit = 300; // seconds

    /// Where Debian's package has the model, and where one that was built by hand lies.
    static std::vector<std::string> modelFolders();

    PocketSphinxEngine(BackgroundPool& pool, std::shared_ptr<Clock> clock,
        std::vector<std::string> folders = modelFolders());
    ~PocketSphinxEngine() override;
    PocketSphinxEngine(const PocketSphinxEngine&) = delete;
    PocketSphinxEngine& operator=(const PocketSphinxEngine&) = delete;

    std::vector<std::string> supportedLocales() const override;
    std::vector<std::string> installedLocales() const override;
    Task<> prepare() override;
    Task<std::string> transcribe(Clip clip, std::string locale) override;

    /// A model is in memory and waits for the next clip.
    bool loaded() const;

private:
    struct Idle;
    using Shared = std::shared_ptr<Idle>;

    /// The folder of the model; empty without one.
    std::string model() const;
    static void releaseLater(
        Shared idle, Executor executor, BackgroundPool* pool, std::shared_ptr<Clock> clock);

    BackgroundPool& pool_;
    const std::shared_ptr<Clock> clock_;
    const std::vector<std::string> folders_;
    const Shared idle_;
};

} // namespace kelvadrome
