#include "Kelvadrome/gtk/web/SystemFolderPicker.h"

#include <giomm/file.h>

#include <gtkmm/dialog.h>
#include <gtkmm/filechoosernative.h>

namespace kelvadrome {

namespace {

using Folder = std::optional<std::string>;

/// A place without a path, on a server say, comes as its address, which no folder on this machine has.
Folder chosen(Gtk::FileChooserNative& dialog, int response) {
    const auto file = response == Gtk::ResponseType::ACCEPT ? dialog.get_file() : nullptr;
    if (!file)
        return std::nullopt;
    const auto path = file->get_path();
    return path.empty() ? std::string(file->get_uri()) : path;
}

Task<Folder> ask(std::weak_ptr<Gtk::Window> window, std::string startingAt) {
    const auto parent = window.lock();
    if (!parent)
        co_return std::nullopt;
    const auto dialog = Gtk::FileChooserNative::create(
        FolderPicking::message, *parent, Gtk::FileChooser::Action::SELECT_FOLDER, FolderPicking::prompt);
    dialog->set_modal(true);
    dialog->set_create_folders(false);
    dialog->set_current_folder(Gio::File::create_for_path(startingAt));
    auto start = [dialog](Completion<Folder> done) {
        // The dialog may be let go with the answer, so the completion leaves the closure first.
        dialog->signal_response().connect([dialog = dialog.get(), done](int response) {
            const auto finish = done;
            finish(chosen(*dialog, response));
        });
        dialog->show();
        return std::function<void()>([dialog, done] {
            dialog->hide();
            done(std::nullopt);
        });
    };
    co_return co_await suspendUntil<Folder>(std::move(start));
}

} // namespace

Task<Folder> SystemFolderPicker::pick(std::string startingAt) {
    return ask(window_, std::move(startingAt));
}

} // namespace kelvadrome
