#pragma once

#include "KelvadromeKit/onboarding/FolderPicking.h"

#include <gtkmm/window.h>
#include <memory>

namespace kelvadrome {

/// The desktop's own folder dialog, modal on a window: existing folders only, one of them.
class SystemFolderPicker final : public FolderPicking {
public:
    explicit SystemFolderPicker(std::weak_ptr<Gtk::Window> window) : window_(std::move(window)) {}

    Task<std::optional<std::string>> pick(std::string startingAt) override;

private:
    std::weak_ptr<Gtk::Window> window_;
};

} // namespace kelvadrome
