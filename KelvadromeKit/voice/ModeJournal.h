#pragma once

#include "KelvadromeKit/support/Defaults.h"

#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// The mode that a dictation app is to be given back, kept for the case that this process ends before.
class ModeJournal {
public:
    virtual ~ModeJournal() = default;
    virtual std::optional<std::string> pendingPrevious() const = 0;
    virtual void setPendingPrevious(std::optional<std::string> previous) = 0;
};

class MemoryModeJournal final : public ModeJournal {
public:
    std::optional<std::string> pendingPrevious() const override { return previous_; }
    void setPendingPrevious(std::optional<std::string> previous) override { previous_ = std::move(previous); }

private:
    std::optional<std::string> previous_;
};

/// Among the user's defaults, where it outlives a crash.
class DefaultsModeJournal final : public ModeJournal {
public:
    static constexpr const char* standardKey = "KDVoiceModePrevious";

    explicit DefaultsModeJournal(std::shared_ptr<Defaults> defaults, std::string key = standardKey)
        : defaults_(std::move(defaults)), key_(std::move(key)) {}
    std::optional<std::string> pendingPrevious() const override { return defaults_->string(key_); }
    void setPendingPrevious(std::optional<std::string> previous) override;

private:
    std::shared_ptr<Defaults> defaults_;
    std::string key_;
};

} // namespace kelvadrome
