#include "Kelvadrome/gtk/bar/ShotStrip.h"

#include "Kelvadrome/glib/GLibOwned.h"
#include "Kelvadrome/gtk/bar/BarIcons.h"
#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/Words.h"
#include "Kelvadrome/model/CommandBarRows.h"

#include <giomm/file.h>

#include <gtkmm/button.h>
#include <gtkmm/overlay.h>
#include <gtkmm/picture.h>

namespace kelvadrome {

namespace {

constexpr int thumbnailWidth = 128;
constexpr int thumbnailHeight = 72;

/// Puts a picture into its place once it has been read and made small, which is done off the main loop: a
/// screenshot of a large screen takes longer than a frame. The place may be gone by then.
class Thumbnail {
public:
    static void load(Gtk::Picture& place, const std::string& path, Gio::Cancellable& loading) {
        auto* const file = g_file_new_for_path(path.c_str());
        g_file_read_async(file, G_PRIORITY_DEFAULT, loading.gobj(), opened, g_object_ref(place.gobj()));
        g_object_unref(file);
    }

private:
    static void opened(GObject* file, GAsyncResult* result, gpointer place) {
        const OwnedObject<GFileInputStream> stream(g_file_read_finish(G_FILE(file), result, nullptr));
        if (!stream)
            return g_object_unref(place);
        const int scale = gtk_widget_get_scale_factor(GTK_WIDGET(place));
        gdk_pixbuf_new_from_stream_at_scale_async(G_INPUT_STREAM(stream.get()), thumbnailWidth * scale,
            thumbnailHeight * scale, true, nullptr, decoded, place);
    }

    static void decoded(GObject*, GAsyncResult* result, gpointer place) {
        const OwnedObject<GdkPixbuf> pixels(gdk_pixbuf_new_from_stream_finish(result, nullptr));
        if (pixels)
            gtk_picture_set_pixbuf(GTK_PICTURE(place), pixels.get());
        g_object_unref(place);
    }
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
