#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace kelvadrome {

/// The user's place in a list whose rows come and go by themselves. The selected row stays selected while it
/// is there, and on its line of the screen too: what comes or goes above it moves nothing under the eyes.
/// Pure.
class ListFocus {
public:
    struct Row {
        std::string id;
        int height = 1;           // lines while it isn't selected
        std::string heading = {}; // above it, with a blank line around; empty for none

        bool operator==(const Row&) const = default;
    };

    /// The rows from now on. True when another row came under the selection.
    bool update(std::vector<Row> rows);

    // What the user does. Each is true when another row is selected then.
    bool move(int by);
    bool select(const std::string& id);
    /// Selects the row below, or above the last one, before the selected row leaves.
    void stepAside();

    bool empty() const { return rows_.empty(); }
    std::size_t size() const { return rows_.size(); }
    const std::vector<Row>& rows() const { return rows_; }
    /// Of an empty list 0.
    std::size_t index() const { return index_; }
    std::optional<std::string> selected() const;

    /// The line, counted from the list's first, at which a row's heading begins, and the row itself.
    int headingLine(std::size_t index) const { return lines_.at(index); }
    int line(std::size_t index) const;
    static int headingHeight(const Row& row, bool first);

    /// Where the screen's first line falls; negative while rows that left leave lines blank above.
    int scroll() const { return scroll_; }
    /// The scroll at which `selectedHeight` lines of the selected row show on a screen of `height` lines.
    int settledScroll(int selectedHeight, int height) const;
    /// What the last picture settled on.
    void drawn(int scroll) { scroll_ = scroll; }
    void scrollBy(int lines);
    /// The screen was divided anew: nothing has to stay where it was.
    void release() { still_ = false; }

    bool operator==(const ListFocus&) const = default;

private:
    void layOut();

    std::vector<Row> rows_;
    std::vector<int> lines_; // where each row begins, with its heading
    int length_ = 0;         // lines of the whole list, no row selected
    std::size_t index_ = 0;
    int scroll_ = 0;
    bool still_ = false; // rows changed by themselves since the user moved
};

} // namespace kelvadrome
