#pragma once

#include <adwaita.h>
#include <functional>
#include <string>

namespace kelvadrome {

/// A button that, while it records, takes the next keys pressed together in its window.
class KeyRecorderButton {
public:
    /// `pressed`: the button was, or recording is to end with nothing. `recorded`: the keys as a label such
    /// as "Control Option B"; empty when they make no global key. Either may end this object.
    KeyRecorderButton(std::function<void()> pressed, std::function<void(std::string)> recorded);
    ~KeyRecorderButton();
    KeyRecorderButton(const KeyRecorderButton&) = delete;
    KeyRecorderButton& operator=(const KeyRecorderButton&) = delete;

    void show(bool recording);
    GtkWidget* widget() const { return button_; }

private:
    bool keyPressed(guint keycode, GdkModifierType modifiers);
    void holdShortcuts(bool hold);

    std::function<void()> pressed_;
    std::function<void(std::string)> recorded_;
    GtkWidget* button_;
    GtkEventController* keys_ = nullptr; // the button's
    GtkEventController* focus_ = nullptr;
    bool recording_ = false;
};

} // namespace kelvadrome
