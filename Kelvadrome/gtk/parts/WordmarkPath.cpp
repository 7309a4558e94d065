#include "Kelvadrome/gtk/parts/WordmarkPath.h"

namespace kelvadrome {

namespace {

struct Pen {
    Cairo::Context& on;

    void operator()(const Wordmark::Move& to) const { on.move_to(to.x, to.y); }
    void operator()(const Wordmark::Line& to) const { on.line_to(to.x, to.y); }
    /// Cairo has no quadratic curves, but each is a cubic one.
    void operator()(const Wordmark::Quad& to) const {
        double x = 0, y = 0;
        on.get_current_point(x, y);
        on.curve_to(x + (to.cx - x) * 2 / 3, y + (to.cy - y) * 2 / 3, to.x + (to.cx - to.x) * 2 / 3,
            to.y + (to.cy - to.y) * 2 / 3, to.x, to.y);
    }
    void operator()(const Wordmark::Cubic& to) const {
        on.curve_to(to.c1x, to.c1y, to.c2x, to.c2y, to.x, to.y);
    }
    void operator()(const Wordmark::Close&) const { on.close_path(); }
};

} // namespace

void addToPath(Cairo::Context& on, const std::vector<Wordmark::Command>& commands) {
    for (const auto& command : commands)
        std::visit(Pen{on}, command);
}

} // namespace kelvadrome
