#pragma once

#include "KelvadromeKit/support/Task.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// The system's folder picker. Main executor.
class FolderPicking {
public:
    /// The words of the picker's button and of its line of help.
    static constexpr const char* prompt = "Use folder";
    static constexpr const char* message = "Pick the folder that holds your work.";

    virtual ~FolderPicking() = default;

    /// Lets the user choose one folder, beginning in the folder `startingAt`; absent when they cancel.
    virtual Task<std::optional<std::string>> pick(std::string startingAt) = 0;
};

} // namespace kelvadrome
