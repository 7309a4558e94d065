#pragma once

#include "KelvadromeKit/support/BackgroundPool.h"
#include "KelvadromeKit/voice/DictationEnds.h"

#include <map>
#include <string>

namespace kelvadrome {

/// Gives a URL to a program of the desktop that handles its scheme and lies in the bundle: one that is merely
/// registered for the scheme could be anybody's. The pool must outlive it.
class SystemURLOpener final : public URLOpening {
public:
    explicit SystemURLOpener(BackgroundPool& pool) : pool_(&pool) {}

    /// True once the program was started with the URL. Nothing here brings a window to the front: a desktop
    /// lets a program do that only with leave that we don't give, so `activates` says what happens anyway.
    Task<bool> open(std::string url, std::string bundle, bool activates) override;

private:
    BackgroundPool* pool_;
};

/// Asks the `defaults` tool; where there is none, no mode is known.
class DefaultsModeKeyReader final : public ModeKeyReading {
public:
    static constexpr const char* standardTool = "/usr/bin/defaults";
    static constexpr double limit = 5; // seconds

    DefaultsModeKeyReader(
        BackgroundPool& pool, std::map<std::string, std::string> environment, std::string tool = standardTool)
        : pool_(&pool), environment_(std::move(environment)), tool_(std::move(tool)) {}

    Task<std::optional<std::string>> active() override;

private:
    BackgroundPool* pool_;
    std::map<std::string, std::string> environment_;
    std::string tool_;
};

} // namespace kelvadrome
