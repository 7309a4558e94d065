#pragma once

#include "KelvadromeKit/wire/DaemonClient.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace kelvadrome {

/// Leave to send one clip, or the refusal.
struct BudgetGrant {
    struct Granted {
        std::string reservationId;
        bool operator==(const Granted&) const = default;
    };
    struct Denied {
        double usedMinutes = 0; // of this day
        bool operator==(const Denied&) const = default;
    };
    std::variant<Granted, Denied> answer;

    static BudgetGrant granted(std::string reservationId) { return {Granted{std::move(reservationId)}}; }
    static BudgetGrant denied(double usedMinutes) { return {Denied{usedMinutes}}; }
    bool operator==(const BudgetGrant&) const = default;
};

/// The day's limit of what may be sent. Each reservation is settled once.
class BudgetLedger {
public:
    virtual ~BudgetLedger() = default;
    /// Throws when nobody could be asked.
    virtual Task<BudgetGrant> reserve(std::string engine, std::string model, std::int64_t seconds) = 0;
    /// Never throws: a text that is in hand must not be lost over it.
    virtual Task<> used(std::string reservation, std::int64_t seconds, bool ok) = 0;
};

/// The ledger that the daemon keeps.
class DaemonBudgetLedger final : public BudgetLedger {
public:
    struct ReserveOut {
        std::optional<std::string> reservationId;
        std::optional<bool> denied; // for a reader of the wire: the id alone decides
        std::optional<double> usedMinutes;

        static ReserveOut decode(const JSONValue& value);
    };

    explicit DaemonBudgetLedger(DaemonClient client) : client_(std::move(client)) {}
    Task<BudgetGrant> reserve(std::string engine, std::string model, std::int64_t seconds) override;
    Task<> used(std::string reservation, std::int64_t seconds, bool ok) override;

private:
    DaemonClient client_;
};

} // namespace kelvadrome
