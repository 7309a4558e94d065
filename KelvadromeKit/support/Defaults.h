#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace kelvadrome {

/// What a key of the user's defaults holds.
using DefaultsValue = std::variant<bool, std::int64_t, double, std::string>;

/// The user's defaults: a small persistent key-value store with a volatile layer of command-line arguments
/// above it. Safe from any thread.
class Defaults {
public:
    virtual ~Defaults() = default;

    /// The value as it is held, absent when the key isn't set.
    virtual std::optional<DefaultsValue> object(std::string_view key) const = 0;
    virtual void set(std::string_view key, DefaultsValue value) = 0;
    virtual void remove(std::string_view key) = 0;
    /// Writes what isn't written yet; false when that failed (the values stay in memory).
    virtual bool synchronize() = 0;

    /// The value when it is a string.
    std::optional<std::string> string(std::string_view key) const;
    /// The value when it is a boolean, and nothing else.
    std::optional<bool> storedBoolean(std::string_view key) const;
    /// The value read generously, as an argument such as "-KDOpenPanel YES" gives it: a boolean, a number
    /// that isn't 0, or a string that begins with "Y", "y", "T", "t" or a digit from 1 to 9. Not set reads as
    /// false.
    bool boolean(std::string_view key) const;
};

/// Defaults that live as long as the object.
class MemoryDefaults final : public Defaults {
public:
    MemoryDefaults() = default;
    explicit MemoryDefaults(std::map<std::string, DefaultsValue, std::less<>> values)
        : values_(std::move(values)) {}

    std::optional<DefaultsValue> object(std::string_view key) const override;
    void set(std::string_view key, DefaultsValue value) override;
    void remove(std::string_view key) override;
    bool synchronize() override { return true; }

private:
    mutable std::mutex lock_;
    std::map<std::string, DefaultsValue, std::less<>> values_;
};

} // namespace kelvadrome
