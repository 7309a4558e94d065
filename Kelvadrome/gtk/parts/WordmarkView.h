#pragma once

#include <gtkmm/drawingarea.h>

namespace kelvadrome {

/// The wordmark, drawn in the colour of the text around it; its mark in the accent colour unless it is
/// `monochrome`. `size` is its height in points.
class WordmarkView final : public Gtk::DrawingArea {
public:
    explicit WordmarkView(double size, bool monochrome = false);

private:
    void draw(const Cairo::RefPtr<Cairo::Context>& on, int width, int height);

    bool monochrome_;
};

} // namespace kelvadrome
