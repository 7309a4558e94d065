#pragma once

#include "Kelvadrome/terminal/panel/CommandLine.h"
#include "Kelvadrome/terminal/panel/ListFocus.h"
#include "Kelvadrome/terminal/panel/PanelCommand.h"
#include "Kelvadrome/terminal/panel/PanelContent.h"

#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// `results` are all that a search found; only the command bar leads there.
enum class PanelSection { inbox, agents, receipts, results };
inline constexpr int panelSections = 3; // that have a name at the top

/// How the screen is divided.
struct PanelLayout {
    bool wide = false;  // the list beside what is selected in it
    bool dense = false; // no blank lines between the rows
    int listColumns = 0;
    int detailColumns = 0; // 0 unless wide

    static PanelLayout of(ScreenSize size);
    bool operator==(const PanelLayout&) const = default;
};

/// Where the user is in the panel. What the view draws beside the content.
struct PanelFocus {
    enum class Mode { rows, typing, help, card, alert, question };

    Mode mode = Mode::rows;
    PanelSection section = PanelSection::inbox;
    ListFocus inbox;
    ListFocus agents;
    ListFocus receipts;
    ListFocus hits; // all results of a search
    ListFocus bar;  // the rows of the command bar; the bar itself moves in them
    std::optional<CardFilter> only;
    bool expanded = false;             // the selected row shows all there is; without effect when wide
    int scroll = 0;                    // of what is selected beside the list, of help, card and alert
    std::string digits;                // of an option's number that isn't whole yet
    std::string hint;                  // a line about the last key; gone at the next one
    CommandLine line;                  // while typing
    std::optional<PanelCard> typingTo; // while typing an answer: the card as it was when that began
    bool typingGone = false;           // that card doesn't wait for this answer any more
    std::string receiptFilter;         // of the receipts that show, as typed
    std::string searchedFor;           // the words whose results are `hits`

    bool inBar() const { return line.purpose() == CommandLine::Purpose::bar; }
    /// The list that the arrows move in.
    const ListFocus& list() const { return this->*shownList(); }
    ListFocus& list() { return this->*shownList(); }

private:
    ListFocus PanelFocus::*shownList() const;
};

/// Turns keys into commands: a state machine without a screen and without effects. An answer only ever goes
/// to a card that the user has had before the eyes: a row that came under the selection, or changed there, by
/// itself takes no answer for a moment, and isn't put out of sight. What was typed for a card is there again
/// when typing goes on. Where typing can't begin, the words that follow are nothing rather than commands.
class PanelInput {
public:
    static constexpr double settling = 0.6; // seconds
    static constexpr double pause = 1.5;    // seconds without a key that tell words from commands

    /// The content that the screen shows from now on. Never null.
    void update(std::shared_ptr<const PanelContent> content, ScreenSize size, WallTime now);
    std::optional<PanelCommand> press(const Key& key, WallTime now);
    /// What the last picture settled on: the list's scroll, that of the rest, and how many lines a page has.
    void drawn(int listScroll, int scroll, int page);
    /// A message that waits for a key; one that `asks` has two answers, and Enter is the one that changes
    /// nothing.
    void setAlert(bool on, bool asks = false);
    /// Opens the command bar, with these words in it.
    std::optional<PanelCommand> openBar(const std::string& text);
    /// A link is on the screen, so its keys work.
    void setLink(bool shown) { linkShown_ = shown; }

    const PanelFocus& focus() const { return focus_; }
    PanelWish wish() const;

private:
    using Command = std::optional<PanelCommand>;

    void followRows(WallTime now);
    void followBar();
    void followTyping();

    Command pressRows(const Key& key, WallTime now);
    Command pressText(char letter, WallTime now);
    Command pressCardKey(char letter, WallTime now);
    Command pressAlert(const Key& key);
    Command pressReading(const Key& key, WallTime now);
    Command pressControl(const std::string& letter);
    Command enter(WallTime now);
    Command leave();
    Command openSection(PanelSection section);
    void move(int by);
    void page(int by);

    Command pressDigit(char digit, WallTime now);
    Command chooseOption(std::size_t number, WallTime now);
    Command offered(PanelCommand::Kind kind, PanelAction::Kind action, WallTime now);
    Command snooze(WallTime now);
    Command dismiss(WallTime now);
    Command review();
    Command undo();
    Command showTerminal();
    /// Why the selected card can't be put out of sight; absent when it can.
    std::optional<std::string> whyItStays(WallTime now) const;

    Command beginTyping(WallTime now);
    Command filterReceipts();
    Command pressTyping(const Key& key, WallTime now);
    Command sendTyped();
    Command enterBar(WallTime now);
    Command pickInBar(const Key& key, WallTime now);
    Command openHit(const FoundEntry& hit, WallTime now);
    Command showResults(std::string words);
    Command openProposal(WallTime now);
    Command showCard(const std::string& id, WallTime now);
    void endTyping();

    bool settled(WallTime now) const;
    const PanelEntry* selectedRow() const;
    const PanelCard* selectedCard() const;
    const PanelAgent* selectedAgent() const;
    Command hint(std::string words);
    /// Says why nothing can be typed, and takes what is typed all the same for words.
    Command refuseTyping(const std::string& why, WallTime now);
    bool typesUnheard(WallTime now) const;
    bool swallows(const Key& key, WallTime now);

    std::shared_ptr<const PanelContent> content_ = std::make_shared<PanelContent>();
    PanelLayout layout_;
    PanelFocus focus_;
    WallTime steadySince_ = distantPast;
    std::optional<WallTime> unheard_;       // when the last key came of words that nothing takes
    std::optional<std::string> dismissing_; // the card that the last key asked to dismiss
    std::string draft_;                     // the answer that was typed last,
    std::string draftOf_;                   // and the id of the card that it was typed for
    std::optional<std::string> awaited_;    // a card to go to as soon as it is there,
    std::optional<std::string> awaitedHit_; // or a result
    bool pasting_ = false;
    bool linkShown_ = false;
    int page_ = 1;
};

} // namespace kelvadrome
