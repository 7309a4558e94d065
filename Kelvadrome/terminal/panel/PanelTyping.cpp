#include "Kelvadrome/terminal/panel/PanelInput.h"

// The keys of an answer that is being typed.

namespace kelvadrome {

void PanelInput::endTyping() {
    draft_ = focus_.editor.text();
    draftOf_ = focus_.typingTo->card.id;
    focus_.mode = PanelFocus::Mode::rows;
    focus_.typingTo.reset();
    focus_.editor.clear();
}

PanelInput::Command PanelInput::pressTyping(const Key& key) {
    auto& editor = focus_.editor;
    if (pasting_ && key.kind != Key::Kind::text) {
        // Line ends and tabs of a paste are blanks in the answer, its other controls are nothing.
        if (key.kind == Key::Kind::enter || key.kind == Key::Kind::tab)
            editor.insert(" ");
        return std::nullopt;
    }
    switch (key.kind) {
    case Key::Kind::text:
        return editor.insert(key.text) ? Command() : Command(PanelCommand{.kind = PanelCommand::Kind::bell});
    case Key::Kind::enter:
        return sendTyped();
    case Key::Kind::escape:
        endTyping();
        return std::nullopt;
    case Key::Kind::backspace:
        editor.backspace();
        return std::nullopt;
    case Key::Kind::remove:
        editor.deleteForward();
        return std::nullopt;
    case Key::Kind::left:
        editor.left();
        return std::nullopt;
    case Key::Kind::right:
        editor.right();
        return std::nullopt;
    case Key::Kind::home:
        editor.home();
        return std::nullopt;
    case Key::Kind::end:
        editor.end();
        return std::nullopt;
    case Key::Kind::control:
        if (key.text == "a")
            editor.home();
        if (key.text == "e")
            editor.end();
        if (key.text == "b")
            editor.left();
        if (key.text == "f")
            editor.right();
        if (key.text == "d")
            editor.deleteForward();
        if (key.text == "u")
            editor.killToStart();
        if (key.text == "k")
            editor.killToEnd();
        if (key.text == "w")
            editor.killWord();
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

PanelInput::Command PanelInput::sendTyped() {
    if (focus_.typingGone)
        return hint("This question has changed or is answered. Esc leaves.");
    if (focus_.editor.blank())
        return hint("Type the answer first; Esc leaves.");
    PanelCommand command{
        .kind = PanelCommand::Kind::answer, .card = focus_.typingTo->card, .text = focus_.editor.text()};
    endTyping();
    return command;
}

} // namespace kelvadrome
