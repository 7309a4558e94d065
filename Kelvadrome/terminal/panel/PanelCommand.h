#pragma once

#include "KelvadromeKit/wire/Card.h"

#include <optional>
#include <string>

namespace kelvadrome {

/// What a key asks of the world outside the panel.
struct PanelCommand {
    enum class Kind {
        answer,
        acceptDefaults,
        undo,
        snooze,
        wake,
        dismiss,
        review,
        bringEdgeToFront, // of `card`
        showTerminal,     // of the agent's session
        readReceipts,     // those that `text` filters
        typeInBar,        // `text` is what the command bar holds now
        barUp,
        barDown,
        ask,      // for a card of what it holds
        search,   // for all that holds the words of `text`
        readCard, // the card of id `text`
        openMain,
        openPath, // of the page, in `text`
        retry,
        finishSetup,
        openLoginItems,
        copyLink,
        copyTunnel, // the command that makes the link work on the user's machine
        dismissLink,
        closeCard,        // the one that `readCard` brought
        acknowledgeAlert, // of a question: the answer that acts
        refuseAlert,
        quit,
        suspend,
        repaint,
        bell,
    };

    Kind kind = Kind::repaint;
    std::optional<Card> card = {}; // as it was on the screen
    std::string text = {};         // of `answer`, exactly as it was shown
    std::string agent = {};        // of `showTerminal`, by its id

    bool operator==(const PanelCommand&) const = default;
};

} // namespace kelvadrome
