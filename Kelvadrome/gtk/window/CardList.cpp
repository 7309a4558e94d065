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
            const bool typed = GTK_IS_TEXT(gtk_root_get_focus(gtk_widget_get_root(GTK_WIDGET(gobj()))));
            if (key == GDK_KEY_Down || (key == GDK_KEY_j && !typed))
                return move(1);
            if (key == GDK_KEY_Up || (key == GDK_KEY_k && !typed))
                return move(-1);
            return false;
        },
        false);
    add_controller(keys);
    pointer_->signal_leave().connect([this] { show(std::vector(wanted_), snoozed_); });
    add_controller(pointer_);
    snoozedHeading_.set_text("Snoozed");
    snoozedHeading_.set_xalign(0);
    snoozedHeading_.add_css_class("heading");
    g_object_set(snoozedHeading_.gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_HEADING, nullptr);
    snoozedHeading_.set_visible(false);
    append(snoozedHeading_);
}

bool CardList::focusCard(const std::string& id) {
    const auto row = std::ranges::find_if(rows_, [&](const auto& one) { return cardOf(one).id == id; });
    if (row == rows_.end())
        return false;
    const auto at = static_cast<std::size_t>(row - rows_.begin());
    if (at >= limit_) {
        limit_ = at + 1;
        draw();
    }
    return view(at)->focusTitle();
}

/// While the pointer is over the list, an answer that shows as sent stays where it is: the cards below it
/// would move up under the pointer.
std::vector<PanelRow> CardList::withSentRows(const std::vector<PanelRow>& rows) const {
    auto kept = rows;
    if (!pointer_->contains_pointer())
        return kept;
    for (std::size_t i = 0; i < rows_.size(); ++i) {
        const auto* const sent = std::get_if<HoldRow>(&rows_[i]);
        const bool gone = std::ranges::none_of(
            rows, [&](const auto& row) { return cardOf(row).id == cardOf(rows_[i]).id; });
        if (sent && sent->committed && gone)
            kept.insert(kept.begin() + static_cast<std::ptrdiff_t>(std::min(i, kept.size())), rows_[i]);
    }
    return kept;
}

void CardList::show(const std::vector<PanelRow>& rows, std::size_t snoozed) {
    wanted_ = rows;
    snoozed_ = snoozed;
    auto fresh = withSentRows(rows);
    if (fresh == rows_)
        return;
    const auto before = std::exchange(rows_, std::move(fresh));
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
        auto* const above = view->get_prev_sibling() == &snoozedHeading_ ? snoozedHeading_.get_prev_sibling()
                                                                         : view->get_prev_sibling();
        if (above != last) {
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
    snoozedHeading_.set_visible(snoozed_ > 0 && rows_.size() - std::min(snoozed_, rows_.size()) < count);
    if (snoozedHeading_.get_visible() && snoozed_ < rows_.size()) {
        reorder_child_after(snoozedHeading_, *view(rows_.size() - snoozed_ - 1));
    } else {
        reorder_child_at_start(snoozedHeading_);
    }
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
