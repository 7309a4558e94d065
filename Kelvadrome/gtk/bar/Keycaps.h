#pragma once

#include <gtkmm/box.h>
#include <string>

namespace kelvadrome {

/// A key such as "Control Option B", drawn as its separate keycaps; a screen reader reads the label.
class Keycaps final : public Gtk::Box {
public:
    explicit Keycaps(const std::string& label = {});

    void show(const std::string& label);

private:
    std::string shown_;
};

} // namespace kelvadrome
