#pragma once

#include "Kelvadrome/model/MenuPanel.h"
#include "Kelvadrome/terminal/panel/LineEditor.h"

#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// One key as the terminal told it.
struct Key {
    enum class Kind {
        text,    // a character, or any text while a paste lasts
        control, // Ctrl with the letter in `text`, lower-case
        enter,
        escape,
        tab,
        backTab,
        up,
        down,
        left,
        right,
        home,
        end,
        pageUp,
        pageDown,
        backspace,
        remove,
        pasteBegin,
        pasteEnd,
    };

    Kind kind = Kind::text;
    std::string text = {};
};

/// What a key asks of the world outside the panel.
struct PanelCommand {
    enum class Kind {
        answer,
        acceptDefaults,
        undo,
        snooze,
        review,
        bringEdgeToFront, // of `card`
        openMain,
        retry,
        finishSetup,
        openLoginItems,
        copyLink,
        dismissLink,
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

    bool operator==(const PanelCommand&) const = default;
};

/// Where the user is in the panel. What the view draws beside the content.
struct PanelFocus {
    enum class Mode { rows, typing, help, alert, question };

    Mode mode = Mode::rows;
    std::optional<std::string> selected; // a card's id, so that rows may move beneath it
    bool expanded = false;               // the selected row shows all there is
    int scroll = 0;                      // first line of the body that shows
    std::string digits;                  // of an option's number that isn't whole yet
    std::string hint;                    // a line about the last key; gone at the next one
    LineEditor editor;                   // while typing
    std::optional<PanelCard> typingTo;   // while typing: the card as it was when typing began
    bool typingGone = false;             // that card doesn't wait for this answer any more

    bool operator==(const PanelFocus&) const = default;
};

/// Turns keys into commands: a state machine without a screen and without effects. An answer only ever goes
/// to a card that the user has had before the eyes: a row that came under the selection, or changed there, by
/// itself takes no answer for a moment, and isn't snoozed. What was typed for a card is there again when
/// typing goes on.
class PanelInput {
public:
    static constexpr double settling = 0.6; // seconds

    /// The content that the screen shows from now on, and all open cards: the panel shows only the first few.
    void update(const MenuPanelContent& content, const std::vector<Card>& open, WallTime now);
    std::optional<PanelCommand> press(const Key& key, WallTime now);
    /// What the last picture settled on.
    void drawn(int scroll, int page);
    /// A message that waits for a key; one that `asks` has two answers, and Enter is the one that changes
    /// nothing.
    void setAlert(bool on, bool asks = false);
    /// A link is on the screen, so its keys work.
    void setLink(bool shown) { linkShown_ = shown; }

    const PanelFocus& focus() const { return focus_; }

private:
    using Command = std::optional<PanelCommand>;

    Command pressText(const std::string& text, WallTime now);
    Command pressTyping(const Key& key);
    Command pressControl(const std::string& letter);
    Command pressDigit(const std::string& digit, WallTime now);
    Command chooseOption(std::size_t number, WallTime now);
    Command answering(PanelCommand::Kind kind, PanelAction::Kind offered, WallTime now);
    Command snooze(WallTime now);
    Command review();
    Command undo();
    Command beginTyping(WallTime now);
    Command sendTyped();
    void endTyping();
    void move(int by);
    void page(int by);
    bool settled(WallTime now);
    const PanelRow* selectedRow() const;
    const PanelCard* selectedCard() const;
    Command hint(std::string words);

    MenuPanelContent content_;
    PanelFocus focus_;
    std::size_t index_ = 0; // of the selected row
    WallTime steadySince_ = distantPast;
    std::string draft_;   // what was typed last,
    std::string draftOf_; // and the id of the card that it was typed for
    bool pasting_ = false;
    bool linkShown_ = false;
    int page_ = 1;
};

} // namespace kelvadrome
