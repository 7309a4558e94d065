#pragma once

#include "Kelvadrome/terminal/panel/Key.h"
#include "Kelvadrome/terminal/panel/ScreenWriter.h"
#include "KelvadromeKit/support/Descriptor.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

/// The terminal on the standard streams, taken over for as long as the object lives: alternate screen, keys
/// as they are pressed, bracketed paste. Given back on every way out, a crash among them. One at a time; main
/// thread. Writes only what differs from what is there.
class TerminalScreen {
public:
    /// Why this process can't show a panel, in words for a person; absent when it can.
    static std::optional<std::string> unusable();

    /// Gives the terminal back without the object, by calls that are safe in a signal handler; for an end
    /// without its destructor.
    static void giveBackAtOnce();

    /// Colours are left out when NO_COLOR is set; without 256 of them only styles are used. Throws
    /// std::runtime_error in words for a person.
    TerminalScreen();
    ~TerminalScreen();
    TerminalScreen(const TerminalScreen&) = delete;
    TerminalScreen& operator=(const TerminalScreen&) = delete;

    ScreenSize size() const;
    /// Takes the terminal's new size over, after SIGWINCH.
    void resized();
    void draw(const Picture& picture);
    /// Has the next picture drawn as a whole.
    void invalidate();

    /// A descriptor of its own that is readable when keys wait; the standard streams keep their modes.
    int watched() const { return input_.get(); }
    /// All keys that wait; never blocks, but for the moment that tells Escape from a longer sequence.
    std::vector<Key> keys();
    /// The terminal went away.
    bool hungUp() const;

    void bell();
    /// The name of the terminal's window or tab, where the terminal has one.
    void setTitle(const std::string& title);
    /// Hands text to the clipboard of the machine that shows the terminal, where it allows that (OSC 52).
    void copy(const std::string& text);
    /// Stops this process until it is continued, with the terminal given back meanwhile.
    void suspend();

private:
    struct Library;

    void write(std::string_view bytes);

    Descriptor input_;
    std::unique_ptr<Library> library_;
    bool titles_ = false;
    bool pasting_ = false; // the last batch of keys ended inside a paste
    std::string title_;
};

} // namespace kelvadrome
