#include "Kelvadrome/gtk/parts/FlowRow.h"

#include <algorithm>
#include <vector>

namespace kelvadrome {

namespace {

constexpr int gap = 6;
// As the labels of a narrow column do, it asks for no more: see `wrap`.
constexpr int column = 320;

struct Place {
    GtkWidget* widget;
    int x, y, width, height;
};

int measured(GtkWidget* widget, GtkOrientation orientation, int size, bool least) {
    int minimum = 0, natural = 0;
    gtk_widget_measure(widget, orientation, size, &minimum, &natural, nullptr, nullptr);
    return least ? minimum : natural;
}

std::vector<Place> places(GtkWidget* box, int room) {
    std::vector<Place> all;
    int x = 0, y = 0, bottom = 0;
    for (auto* child = gtk_widget_get_first_child(box); child; child = gtk_widget_get_next_sibling(child)) {
        if (!gtk_widget_should_layout(child))
            continue;
        const int width = std::min(measured(child, GTK_ORIENTATION_HORIZONTAL, -1, false), room);
        if (x > 0 && x + width > room) {
            x = 0;
            y = bottom + gap;
        }
        const int height = measured(child, GTK_ORIENTATION_VERTICAL, width, false);
        all.push_back({child, x, y, width, height});
        x += width + gap;
        bottom = std::max(bottom, y + height);
    }
    return all;
}

void measure(GtkWidget* box, GtkOrientation orientation, int size, int* minimum, int* natural, int*, int*) {
    *minimum = *natural = 0;
    const bool across = orientation == GTK_ORIENTATION_HORIZONTAL;
    for (const auto& place : places(box, across || size < 0 ? column : size)) {
        *natural = std::max(*natural, across ? place.x + place.width : place.y + place.height);
        if (across)
            *minimum = std::max(*minimum, measured(place.widget, orientation, -1, true));
    }
    *natural = std::max(*natural, *minimum);
    if (!across)
        *minimum = *natural;
}

void allocate(GtkWidget* box, int width, int, int) {
    const bool mirrored = gtk_widget_get_direction(box) == GTK_TEXT_DIR_RTL;
    for (const auto& place : places(box, width)) {
        const GtkAllocation given{
            mirrored ? width - place.x - place.width : place.x, place.y, place.width, place.height};
        gtk_widget_size_allocate(place.widget, &given, -1);
    }
}

} // namespace

void flow(Gtk::Box& box) {
    const auto mode = +[](GtkWidget*) { return GTK_SIZE_REQUEST_HEIGHT_FOR_WIDTH; };
    gtk_widget_set_layout_manager(GTK_WIDGET(box.gobj()), gtk_custom_layout_new(mode, &measure, &allocate));
}

} // namespace kelvadrome
