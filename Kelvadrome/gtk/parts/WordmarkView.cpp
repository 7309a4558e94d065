#include "Kelvadrome/gtk/parts/WordmarkView.h"

#include "Kelvadrome/gtk/parts/AccessibleName.h"
#include "Kelvadrome/gtk/parts/WordmarkPath.h"
#include "KelvadromeKit/brand/Wordmark.h"
#include "KelvadromeKit/support/Log.h"

#include <algorithm>
#include <cmath>
#include <gdkmm/general.h>
#include <gtkmm/stylecontext.h>

namespace kelvadrome {

namespace {

using Commands = std::vector<Wordmark::Command>;

/// A path that doesn't parse is a mistake in the program's own data: nothing is drawn of it.
Commands parsed(std::string_view path) {
    try {
        return Wordmark::parse(path);
    } catch (const Wordmark::ParseError& error) {
        logLine(std::string("the wordmark: ") + error.what());
        return {};
    }
}

void fill(const Cairo::RefPtr<Cairo::Context>& on, const Commands& commands, const Gdk::RGBA& colour) {
    on->begin_new_path();
    addToPath(*on.get(), commands);
    Gdk::Cairo::set_source_rgba(on, colour);
    on->fill();
}

} // namespace

WordmarkView::WordmarkView(double size, bool monochrome) : monochrome_(monochrome) {
    set_content_height(static_cast<int>(std::ceil(size)));
    set_content_width(static_cast<int>(std::ceil(size * Wordmark::width / Wordmark::height)));
    set_halign(Gtk::Align::CENTER);
    set_draw_func([this](const auto& on, int width, int height) { draw(on, width, height); });
    setAccessibleName(*this, "kelvadrome");
}

void WordmarkView::draw(const Cairo::RefPtr<Cairo::Context>& on, int width, int height) {
    static const auto word = parsed(Wordmark::wordPath);
    static const auto mark = parsed(Wordmark::dotPath);
    const double scale = std::min(width / Wordmark::width, height / Wordmark::height);
    on->translate((width - Wordmark::width * scale) / 2, (height - Wordmark::height * scale) / 2);
    on->scale(scale, scale);
    const auto style = get_style_context();
    const auto text = style->get_color();
    auto accent = text;
    if (!monochrome_)
        style->lookup_color("accent_color", accent);
    fill(on, mark, accent);
    on->translate(Wordmark::offsetX - Wordmark::originX, 0);
    fill(on, word, text);
}

} // namespace kelvadrome
