#pragma once

#include "Kelvadrome/terminal/panel/PanelInput.h"
#include "Kelvadrome/terminal/panel/PanelView.h"
#include "Kelvadrome/terminal/panel/TerminalText.h"

#include "tests/model/Cards.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kelvadrome::test {

inline Card question(const std::string& id, std::vector<std::string> options = {"Yes", "No"}) {
    auto asked = card(id);
    asked.agent = "claude";
    asked.sessionId = "1";
    asked.options = std::move(options);
    asked.defaultAnswer = "Yes";
    return asked;
}

inline Card highRisk() {
    auto stop = card("stop", "stop", "high");
    stop.title = "Delete the production database?";
    stop.agent = "claude";
    stop.options = {"Yes", "No"};
    return stop;
}

/// A panel on a screen, under the user's fingers. Time stands still unless moved.
struct PanelWorld {
    AppState state;
    LookupResults reads;
    CommandBarState bar;
    PanelExtras extras;
    ScreenSize size{24, 80};
    WallTime time = now;
    PanelInput input;
    std::shared_ptr<const PanelContent> content = std::make_shared<PanelContent>();

    explicit PanelWorld(std::vector<Card> cards) : PanelWorld(ready(std::move(cards))) {}
    explicit PanelWorld(AppState s) : state(std::move(s)) {
        draw();
        pass(60);
    }

    Picture draw() {
        content = std::make_shared<PanelContent>(
            panelContent(state, reads, bar, input.wish(), time, content->inbox));
        input.update(content, size, time);
        auto picture = PanelView::draw(*content, input.focus(), extras, size, time);
        input.drawn(picture.listScroll, picture.scroll, picture.page);
        return picture;
    }
    std::vector<std::string> lines() {
        std::vector<std::string> all;
        for (const auto& line : draw().lines) {
            auto text = StyledText::plainText(line);
            text.erase(text.find_last_not_of(' ') + 1);
            all.push_back(std::move(text));
        }
        return all;
    }
    std::string text() {
        std::string all;
        for (const auto& line : lines())
            all += line + "\n";
        return all;
    }
    void pass(double length) { time += seconds(length); }
    void hold(const std::string& id, bool committed = false) {
        state.holds[id] = PanelHold{question(id), "Yes", time + seconds(2), 2, committed};
        draw();
    }
    const PanelFocus& focus() const { return input.focus(); }
    std::string selected() const { return focus().list().selected().value_or("nothing"); }

    /// What the bar's own model makes of a command.
    void tellBar(const std::optional<PanelCommand>& command) {
        using Kind = PanelCommand::Kind;
        const auto rows = bar.hits.size() + 1;
        if (command && command->kind == Kind::typeInBar)
            bar.text = command->text;
        else if (command && command->kind == Kind::barUp)
            bar.selection = (bar.selection + rows - 1) % rows;
        else if (command && command->kind == Kind::barDown)
            bar.selection = (bar.selection + 1) % rows;
        else if (!focus().inBar())
            bar.selection = 0;
    }
    /// What the last of these keys asks for. "<down>" is the key of that name, "<^c>" one with Control.
    std::string press(const std::string& keys) {
        std::optional<PanelCommand> last;
        for (std::size_t i = 0; i < keys.size(); ++i) {
            auto length = std::size_t(1);
            while (i + length < keys.size() && (keys[i + length] & 0xC0) == 0x80)
                ++length;
            Key key{Key::Kind::text, keys.substr(i, length)};
            if (length > 1) {
                i += length - 1;
            } else if (keys[i] == '<') {
                const auto name = keys.substr(i + 1, keys.find('>', i) - i - 1);
                key = name[0] == '^' ? Key{Key::Kind::control, name.substr(1)} : Key{keyNamed(name), {}};
                i += name.size() + 1;
            }
            last = input.press(key, time);
            tellBar(last);
            draw();
        }
        return words(last);
    }
    /// Keys and what they ask for, one after the other.
    void expect(const std::vector<std::pair<std::string, std::string>>& rows) {
        for (const auto& [keys, wanted] : rows)
            EXPECT_EQ(press(keys), wanted) << keys;
    }
    /// Each of these keys does nothing and says why.
    void expectRefused(const std::string& keys) {
        for (const char key : keys) {
            EXPECT_EQ(press(std::string(1, key)), "") << key;
            EXPECT_FALSE(focus().hint.empty()) << key;
            EXPECT_EQ(focus().mode, PanelFocus::Mode::rows) << key;
            if (key == 't')
                pass(PanelInput::pause);
        }
    }
    /// Each of these keys, then the text of the answer that is typed.
    void expectTyped(const std::vector<std::pair<std::string, std::string>>& rows) {
        for (const auto& [keys, typed] : rows) {
            EXPECT_EQ(press(keys), "") << keys;
            EXPECT_EQ(focus().mode, PanelFocus::Mode::typing) << keys;
            EXPECT_EQ(focus().line.text(), typed) << keys;
        }
    }

    static Key::Kind keyNamed(const std::string& name) {
        using Kind = Key::Kind;
        static const std::map<std::string, Kind> names{{"up", Kind::up}, {"down", Kind::down},
            {"enter", Kind::enter}, {"esc", Kind::escape}, {"back", Kind::backspace}, {"tab", Kind::tab},
            {"home", Kind::home}, {"end", Kind::end}, {"pgdn", Kind::pageDown}, {"pgup", Kind::pageUp},
            {"paste", Kind::pasteBegin}, {"pasted", Kind::pasteEnd}};
        return names.at(name);
    }
    /// A command as "answer a Yes"; empty for none.
    static std::string words(const std::optional<PanelCommand>& command) {
        using Kind = PanelCommand::Kind;
        static const std::map<Kind, std::string> kinds{{Kind::answer, "answer"}, {Kind::snooze, "snooze"},
            {Kind::wake, "wake"}, {Kind::dismiss, "dismiss"}, {Kind::review, "review"}, {Kind::undo, "undo"},
            {Kind::quit, "quit"}, {Kind::acknowledgeAlert, "acknowledge"}, {Kind::refuseAlert, "refuse"},
            {Kind::search, "search"}, {Kind::typeInBar, "words"}, {Kind::barUp, "up"},
            {Kind::barDown, "down"}, {Kind::ask, "ask"}, {Kind::readReceipts, "receipts"},
            {Kind::readCard, "card"}, {Kind::closeCard, "close"}, {Kind::showTerminal, "terminal"},
            {Kind::openPath, "open"}, {Kind::acceptDefaults, "defaults"}};
        if (!command)
            return {};
        const auto kind = kinds.find(command->kind);
        auto all = kind == kinds.end() ? std::string("another command") : kind->second;
        if (command->card)
            all += " " + command->card->id + (command->card->version == 3 ? "" : " as changed");
        return all + (command->agent.empty() ? "" : " " + command->agent) +
               (command->text.empty() ? "" : " " + command->text);
    }
};

} // namespace kelvadrome::test
