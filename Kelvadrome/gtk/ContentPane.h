#pragma once

#include "Kelvadrome/model/AppModel.h"

#include <adwaita.h>
#include <gtkmm/stack.h>
#include <memory>

namespace kelvadrome {

/// The main pane: the page while the daemon is there, otherwise words about it.
class ContentPane final : public Gtk::Stack {
public:
    /// `page` is the web pane's widget.
    ContentPane(std::shared_ptr<AppModel> model, Gtk::Widget& page);

    void show(const AppState& state);

private:
    AdwStatusPage* failed_ = nullptr; // the stack's
};

} // namespace kelvadrome
