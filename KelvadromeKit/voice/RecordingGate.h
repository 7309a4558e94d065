#pragma once

#include <optional>
#include <string_view>

namespace kelvadrome {

/// One recording at a time, whichever way it goes. Main executor.
class RecordingGate {
public:
    enum class Kind { urlApp, openAI, apple };
    static constexpr std::string_view rawValue(Kind kind) {
        switch (kind) {
        case Kind::urlApp:
            return "urlApp";
        case Kind::openAI:
            return "openAI";
        case Kind::apple:
            break;
        }
        return "apple";
    }

    bool begin(Kind kind) {
        if (active_)
            return false;
        active_ = kind;
        return true;
    }
    /// Nothing when another kind, or none, holds it.
    void end(Kind kind) {
        if (active_ == kind)
            active_.reset();
    }
    std::optional<Kind> active() const { return active_; }

private:
    std::optional<Kind> active_;
};

} // namespace kelvadrome
