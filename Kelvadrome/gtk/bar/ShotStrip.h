#pragma once

#include "Kelvadrome/model/CommandBarState.h"

#include <giomm/cancellable.h>

#include <functional>
#include <gtkmm/box.h>
#include <gtkmm/label.h>

namespace kelvadrome {

/// The screenshots that go with a request, as small pictures with a button each that takes one off.
class ShotStrip final : public Gtk::Box {
public:
    explicit ShotStrip(std::function<void(const CapturedShot&)> remove);
    ~ShotStrip() override { loading_->cancel(); }

    /// `line` is what a capture had to say instead of a shot; empty for nothing.
    void show(const std::vector<AttachedShot>& shots, const std::string& line);

private:
    void build();
    Gtk::Widget& thumbnail(const CapturedShot& shot);

    std::function<void(const CapturedShot&)> remove_;
    std::vector<AttachedShot> shown_;
    Glib::RefPtr<Gio::Cancellable> loading_ = Gio::Cancellable::create(); // of the pictures that show
    Gtk::Box pictures_{Gtk::Orientation::HORIZONTAL, 8};
    Gtk::Label promise_, line_;
};

} // namespace kelvadrome
