#pragma once

#include "Kelvadrome/model/Pasteboard.h"
#include "KelvadromeKit/support/Clock.h"

#include <memory>

namespace kelvadrome {

/// The display's clipboard.
class DesktopPasteboard final : public Pasteboard {
public:
    explicit DesktopPasteboard(std::shared_ptr<Clock> clock) : clock_(std::move(clock)) {}

    Task<std::optional<std::string>> read() override;
    void writeSecret(std::string text) override;
    void clear() override;

private:
    const std::shared_ptr<Clock> clock_;
};

} // namespace kelvadrome
