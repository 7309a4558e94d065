#pragma once

#include "KelvadromeKit/bar/SearchHit.h"
#include "KelvadromeKit/capture/ScreenCapture.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// A screenshot that goes with the request that is being written. A view reads the picture from its path.
struct AttachedShot {
    CapturedShot shot;

    bool operator==(const AttachedShot&) const = default;
};

/// What the command bar shows, as one value. CommandBarModel alone writes it.
struct CommandBarState {
    /// The card that a request made.
    struct Proposal {
        std::string cardId;
        std::string summary;                // the line for the user
        std::optional<std::string> clarify; // a question that the daemon wants answered
        std::size_t shots = 0;              // screenshots that went with the request

        bool operator==(const Proposal&) const = default;
    };

    std::string text;            // of the field: one line
    std::vector<SearchHit> hits; // at most CommandBarModel::maxHits
    std::size_t selection = 0;   // 0 is the ask row, n is hits[n - 1]
    bool proposing = false;      // a request is on its way
    std::optional<Proposal> proposal;
    std::optional<std::string> error; // of the last request that failed
    std::int64_t focusToken = 0;      // each increase gives the field the focus, the caret at its end
    std::vector<AttachedShot> shots;  // in order of capture, at most ScreenContext::maxShots
    bool capturing = false;
    std::optional<std::string> screenLine; // of the last capture that brought no shot

    bool operator==(const CommandBarState&) const = default;
};

} // namespace kelvadrome
