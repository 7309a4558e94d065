#pragma once

#include <cstdint>
#include <exception>
#include <string>

namespace kelvadrome {

/// Why there is no text. Its description is the very line that the bar shows.
class TranscriptionError : public std::exception {
public:
    enum class Case { http, overCap, noKey, timeout, badResponse, capUnavailable, busy, tooLong };

    /// Without a value: not for `http` and `overCap`.
    explicit TranscriptionError(Case kind) : TranscriptionError(kind, 0, 0) {}
    static TranscriptionError http(std::int64_t status) { return {Case::http, status, 0}; }
    static TranscriptionError overCap(double usedMinutes) { return {Case::overCap, 0, usedMinutes}; }

    Case kind() const { return kind_; }
    std::int64_t status() const { return status_; }     // of `http`
    double usedMinutes() const { return usedMinutes_; } // of `overCap`: of this day so far
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }
    bool operator==(const TranscriptionError& other) const {
        return kind_ == other.kind_ && status_ == other.status_ && usedMinutes_ == other.usedMinutes_;
    }

private:
    TranscriptionError(Case kind, std::int64_t status, double usedMinutes);

    Case kind_;
    std::int64_t status_;
    double usedMinutes_;
    std::string description_;
};

} // namespace kelvadrome
