#include "Kelvadrome/gtk/bar/ShotStrip.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "Kelvadrome/gtk/bar/BarIcons.h"
#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "Kelvadrome/model/CommandBarRows.h"

#include <gtkmm/button.h>
#include <gtkmm/overlay.h>
#include <gtkmm/picture.h>
#include <memory>

namespace kelvadrome {

namespace {

constexpr int thumbnailWidth = 128;
constexpr int thumbnailHeight = 72;

/// Puts a picture into its place once it has been read and made small, which is done off the main loop: a
/// screenshot of a large screen takes longer than a frame. The place may be gone by then.
class Thumbnail {
public:
    static void load(Gtk::Picture& place, const std::string& path, Gio::Cancellable& loading) {
        const OwnedObject<GFile> file(g_file_new_for_path(path.c_str()));
        auto waits = std::make_unique<Thumbnail>(place, loading);
        g_file_read_async(file.get(), G_PRIORITY_DEFAULT, loading.gobj(), opened, waits.release());
    }

    Thumbnail(Gtk::Picture& place, Gio::Cancellable& loading)
        : place_(GTK_PICTURE(g_object_ref(place.gobj()))),
          loading_(G_CANCELLABLE(g_object_ref(loading.gobj()))) {}

private:
    static void opened(GObject* file, GAsyncResult* result, gpointer data) {
        std::unique_ptr<Thumbnail> waits(static_cast<Thumbnail*>(data));
        const OwnedObject<GFileInputStream> stream(g_file_read_finish(G_FILE(file), result, nullptr));
        if (!stream)
            return;
        const int scale = gtk_widget_get_scale_factor(GTK_WIDGET(waits->place_.get()));
        auto* const loading = waits->loading_.get();
        gdk_pixbuf_new_from_stream_at_scale_async(G_INPUT_STREAM(stream.get()), thumbnailWidth * scale,
            thumbnailHeight * scale, true, loading, decoded, waits.release());
    }

    static void decoded(GObject*, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<Thumbnail> waits(static_cast<Thumbnail*>(data));
        const OwnedObject<GdkPixbuf> pixels(gdk_pixbuf_new_from_stream_finish(result, nullptr));
        if (pixels)
            gtk_picture_set_pixbuf(waits->place_.get(), pixels.get());
    }

    const OwnedObject<GtkPicture> place_;
    const OwnedObject<GCancellable> loading_;
};

} // namespace

ShotStrip::ShotStrip(std::function<void(const CapturedShot&)> remove)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 4), remove_(std::move(remove)) {
    add_css_class("shot-strip");
    promise_.set_text(CommandBar::shotsLine);
    promise_.add_css_class("dim-label");
    promise_.add_css_class("caption");
    promise_.set_xalign(0);
    wrap(line_);
    append(pictures_);
    append(promise_);
    append(line_);
    set_visible(false);
}

void ShotStrip::show(const std::vector<AttachedShot>& shots, const std::string& line) {
    if (shots != shown_) {
        shown_ = shots;
        build();
    }
    pictures_.set_visible(!shots.empty());
    promise_.set_visible(!shots.empty());
    line_.set_text(line);
    line_.set_visible(!line.empty());
    set_visible(!shots.empty() || !line.empty());
}

void ShotStrip::build() {
    loading_->cancel();
    loading_ = Gio::Cancellable::create();
    while (auto* const child = pictures_.get_first_child())
        pictures_.remove(*child);
    for (const auto& attached : shown_)
        pictures_.append(thumbnail(attached.shot));
}

Gtk::Widget& ShotStrip::thumbnail(const CapturedShot& shot) {
    auto* const picture = Gtk::make_managed<Gtk::Picture>();
    picture->set_size_request(thumbnailWidth, thumbnailHeight);
    picture->set_can_shrink(true);
    picture->set_alternative_text("Screenshot");
    Thumbnail::load(*picture, shot.path, *loading_);

    const auto button = CommandBar::removeShot();
    auto* const remove = Gtk::make_managed<Gtk::Button>();
    remove->set_icon_name(barIcon(button.icon));
    remove->set_tooltip_text(button.help);
    setAccessibleName(*remove, button.accessible);
    remove->add_css_class("circular");
    remove->add_css_class("shot-remove");
    remove->set_halign(Gtk::Align::END);
    remove->set_valign(Gtk::Align::START);
    remove->signal_clicked().connect([this, shot] { remove_(shot); });

    auto* const frame = Gtk::make_managed<Gtk::Overlay>();
    frame->add_css_class("shot");
    frame->set_overflow(Gtk::Overflow::HIDDEN);
    frame->set_child(*picture);
    frame->add_overlay(*remove);
    return *frame;
}

} // namespace kelvadrome
