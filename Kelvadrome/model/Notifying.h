#pragma once

#include "KelvadromeKit/support/Task.h"

#include <cstdint>
#include <functional>
#include <string>

namespace kelvadrome {

/// System notifications of new stops. Main executor.
class Notifying {
public:
    virtual ~Notifying() = default;

    /// Asks whether notifications may be shown and hands the answer to `report`, an error as false; from then
    /// on `report` hears of every other answer, once. With `enabled` false, or where no notification can be
    /// shown at all, nothing is set up and `report` isn't called.
    virtual Task<> setUp(bool enabled, std::function<void(bool)> report) = 0;

    /// Posts one notification for `count` stops; nothing unless allowed and `count` is at least 1. Gives what
    /// `withdraw` takes, empty text when none was posted. Never throws.
    virtual Task<std::string> postStop(std::int64_t count) = 0;
    /// Takes a notification back; nothing when the user has closed it.
    virtual void withdraw(std::string notification) = 0;

    /// Called on the main executor when the user opens a notification.
    std::function<void()> onOpen;
};

} // namespace kelvadrome
