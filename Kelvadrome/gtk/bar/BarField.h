#pragma once

#include <cstdint>
#include <functional>
#include <gtkmm/entry.h>
#include <string>

namespace kelvadrome {

/// The bar's one line of text. Whatever is pasted becomes one line at once.
class BarField final : public Gtk::Entry {
public:
    struct Gestures {
        std::function<void(std::string text)> edit;
        std::function<void()> submit;
        std::function<void(int delta)> move; // -1 for up, 1 for down
        std::function<void()> escape;
    };
    explicit BarField(Gestures gestures);

    /// Shows this text. A token other than the last one takes the keyboard focus, on the next turn of the
    /// main loop, with the caret at the end.
    void show(const std::string& text, std::int64_t focusToken);

private:
    void edited();
    bool pressed(guint key);
    bool takeFocus();

    Gestures gestures_;
    std::int64_t focusToken_ = 0;
    bool setting_ = false; // the text is being set by us
};

} // namespace kelvadrome
