#include "Kelvadrome/gtk/window/CardList.h"

#include "Kelvadrome/gtk/parts/Focus.h"

#include <fmt/format.h>

#include <algorithm>
#include <gtkmm/eventcontrollerkey.h>
#include <tuple>

namespace kelvadrome {

namespace {

constexpr double settlePause = 0.35; // seconds, as on the page

/// What a press on a row's controls is for.
auto shapeOf(const PanelRow& row) {
    const auto* const card = std::get_if<PanelCard>(&row);
    return std::tuple(cardOf(row).id, takesAnswer(row), card && card->refused, card && !card->way.empty());
}

/// Whether a card that was shown stands elsewhere now: others came or went above it, or changed their height.
bool movesAny(const std::vector<PanelRow>& before, const std::vector<PanelRow>& after) {
    for (std::size_t i = 0; i < std::min(before.size(), after.size()); ++i) {
        if (shapeOf(before[i]) != shapeOf(after[i]))
            return true;
    }
    return false;
}

} // namespace

CardList::CardList(std::shared_ptr<CardDesk> desk, CardView::Form form)
    : Gtk::Box(Gtk::Orientation::VERTICAL, 12), desk_(std::move(desk)), form_(form) {
    more_.set_halign(Gtk::Align::CENTER);
    more_.signal_clicked().connect([this] {
        const auto before = views_.size();
        limit_ += step;
        draw();
        if (before < views_.size())
            view(before)->focusTitle();
    });
    more_.set_visible(false);
    append(more_);
    const auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this](guint key, guint, Gdk::ModifierType state) {
            if ((state & (Gdk::ModifierType::CONTROL_MASK | Gdk::ModifierType::ALT_MASK |
                             Gdk::ModifierType::SHIFT_MASK)) != Gdk::ModifierType{})
                return false;
            if (key != GDK_KEY_Up && key != GDK_KEY_Down)
                return false;
            return move(key == GDK_KEY_Down ? 1 : -1);
        },
        false);
    add_controller(keys);
}

void CardList::show(const std::vector<PanelRow>& rows) {
    if (rows == rows_)
        return;
    const auto before = std::exchange(rows_, rows);
    draw();
    if (movesAny(before, rows_))
        settle();
}

void CardList::draw() {
    const auto focused = focusedIndex();
    const auto count = std::min(limit_, rows_.size());
    auto before = std::exchange(views_, {});
    Gtk::Widget* last = nullptr;
    bool focusGoes = focused.has_value();
    for (std::size_t i = 0; i < count; ++i) {
        const auto& id = cardOf(rows_[i]).id;
        const auto kept = std::ranges::find_if(
            before, [&](const auto& entry) { return entry.first == id && entry.second; });
        CardView* view = nullptr;
        if (kept == before.end()) {
            view = Gtk::make_managed<CardView>(desk_, form_);
            append(*view);
        } else {
            view = kept->second;
            focusGoes = focusGoes && static_cast<std::size_t>(kept - before.begin()) != focused;
            kept->second = nullptr;
        }
        view->show(rows_[i]);
        if (last ? view->get_prev_sibling() != last : view->get_prev_sibling() != nullptr) {
            if (last) {
                reorder_child_after(*view, *last);
            } else {
                reorder_child_at_start(*view);
            }
        }
        last = view;
        views_.emplace_back(id, view);
    }
    for (const auto& [id, view] : before) {
        if (view)
            remove(*view);
    }
    more_.set_visible(count < rows_.size());
    more_.set_label(fmt::format("Show more ({})", rows_.size() - count));
    if (last)
        reorder_child_after(more_, *last);
    if (focusGoes && !views_.empty())
        view(std::min(*focused, views_.size() - 1))->focusTitle();
}

/// What has just moved under the pointer takes no press for a moment: nobody answers what they have not seen.
void CardList::settle() {
    set_can_target(false);
    settled_.in(settlePause, [this] { set_can_target(true); });
}

std::optional<std::size_t> CardList::focusedIndex() const {
    for (std::size_t i = 0; i < views_.size(); ++i) {
        if (holdsFocus(*view(i)))
            return i;
    }
    return std::nullopt;
}

/// To the next card, or the one before; false at the ends, where the keys may mean something else.
bool CardList::move(int by) {
    const auto at = focusedIndex();
    if (!at || (by < 0 && *at == 0) || (by > 0 && *at + 1 == views_.size()))
        return false;
    return view(by > 0 ? *at + 1 : *at - 1)->focusTitle();
}

} // namespace kelvadrome
