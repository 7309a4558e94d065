#pragma once

#include "Kelvadrome/gtk/parts/CardView.h"
#include "Kelvadrome/gtk/parts/Waking.h"

#include <gtkmm/button.h>
#include <string>
#include <vector>

namespace kelvadrome {

/// Cards one below the other. The up and down keys go from card to card. A row that stays keeps its widget,
/// with the focus and what is typed there; when the focused one goes, its neighbour takes the focus.
class CardList final : public Gtk::Box {
public:
    CardList(std::shared_ptr<CardDesk> desk, CardView::Form form);

    void show(const std::vector<PanelRow>& rows);
    /// Gives the focus to the first card; false when there is none.
    bool focusFirst() { return !views_.empty() && view(0)->focusTitle(); }

private:
    static constexpr std::size_t step = 30; // rows at first, and more with each press on "Show more"

    void draw();
    void settle();
    CardView* view(std::size_t index) const { return views_[index].second; }
    std::optional<std::size_t> focusedIndex() const;
    bool move(int by);

    std::shared_ptr<CardDesk> desk_;
    const CardView::Form form_;
    std::vector<PanelRow> rows_;
    std::size_t limit_ = step;
    std::vector<std::pair<std::string, CardView*>> views_; // by card id, as shown
    Gtk::Button more_;
    Waking settled_;
};

} // namespace kelvadrome
