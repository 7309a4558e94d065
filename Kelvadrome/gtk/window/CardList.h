#pragma once

#include "Kelvadrome/gtk/parts/CardView.h"
#include "Kelvadrome/gtk/parts/Waking.h"

#include <gtkmm/button.h>
#include <gtkmm/eventcontrollermotion.h>
#include <string>
#include <vector>

namespace kelvadrome {

/// Cards one below the other. The up and down keys go from card to card. A row that stays keeps its widget,
/// with the focus and what is typed there; when the focused one goes, its neighbour takes the focus.
class CardList final : public Gtk::Box {
public:
    CardList(std::shared_ptr<CardDesk> desk, CardView::Form form);

    /// Above the last `snoozed` rows stands a heading.
    void show(const std::vector<PanelRow>& rows, std::size_t snoozed = 0);
    /// Gives the focus to the first card; false when there is none.
    bool focusFirst() { return !views_.empty() && view(0)->focusTitle(); }
    /// Gives the focus to this card; false when it isn't among the rows.
    bool focusCard(const std::string& id);

private:
    static constexpr std::size_t step = 30; // rows at first, and more with each press on "Show more"

    void draw();
    std::vector<PanelRow> withSentRows(const std::vector<PanelRow>& rows) const;
    void settle();
    CardView* view(std::size_t index) const { return views_[index].second; }
    std::optional<std::size_t> focusedIndex() const;
    bool move(int by);

    std::shared_ptr<CardDesk> desk_;
    const CardView::Form form_;
    std::vector<PanelRow> rows_;
    std::size_t limit_ = step;
    std::vector<std::pair<std::string, CardView*>> views_; // by card id, as shown
    std::vector<PanelRow> wanted_; // what was asked for; `rows_` may keep more while the pointer is here
    std::size_t snoozed_ = 0;
    Glib::RefPtr<Gtk::EventControllerMotion> pointer_ = Gtk::EventControllerMotion::create();
    Gtk::Label snoozedHeading_;
    Gtk::Button more_;
    Waking settled_;
};

} // namespace kelvadrome
