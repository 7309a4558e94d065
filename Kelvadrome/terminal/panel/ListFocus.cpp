#include "Kelvadrome/terminal/panel/ListFocus.h"

#include <algorithm>

namespace kelvadrome {

void ListFocus::layOut() {
    lines_.clear();
    length_ = 0;
    for (const auto& row : rows_) {
        lines_.push_back(length_);
        length_ += headingHeight(row, lines_.size() == 1) + row.height;
    }
}

int ListFocus::headingHeight(const Row& row, bool first) {
    if (row.heading.empty())
        return 0;
    return first ? 1 : 2;
}

int ListFocus::line(std::size_t index) const {
    return lines_.at(index) + headingHeight(rows_.at(index), index == 0);
}

std::optional<std::string> ListFocus::selected() const {
    return rows_.empty() ? std::nullopt : std::optional(rows_[index_].id);
}

bool ListFocus::update(std::vector<Row> rows) {
    if (rows == rows_)
        return false;
    const auto before = selected();
    const int lineBefore = before ? line(index_) : 0;
    rows_ = std::move(rows);
    layOut();
    const auto found = before ? std::ranges::find(rows_, *before, &Row::id) : rows_.end();
    index_ = found != rows_.end() ? static_cast<std::size_t>(found - rows_.begin())
             : rows_.empty()      ? 0
                                  : std::min(index_, rows_.size() - 1);
    if (before && !rows_.empty()) {
        scroll_ += line(index_) - lineBefore;
        still_ = true;
    } else {
        scroll_ = 0;
        still_ = false;
    }
    return selected() != before;
}

bool ListFocus::move(int by) {
    if (rows_.empty())
        return false;
    const auto last = static_cast<int>(rows_.size()) - 1;
    const auto to = static_cast<std::size_t>(std::clamp(static_cast<int>(index_) + by, 0, last));
    still_ = false;
    return std::exchange(index_, to) != to;
}

bool ListFocus::select(const std::string& id) {
    const auto found = std::ranges::find(rows_, id, &Row::id);
    if (found == rows_.end())
        return false;
    still_ = false;
    const auto to = static_cast<std::size_t>(found - rows_.begin());
    return std::exchange(index_, to) != to;
}

void ListFocus::stepAside() {
    if (index_ + 1 < rows_.size()) {
        scroll_ += line(index_ + 1) - line(index_); // it comes to stand where the other one stood
        still_ = true;
        ++index_;
    } else if (index_ > 0) {
        --index_;
    }
}

int ListFocus::settledScroll(int selectedHeight, int height) const {
    if (rows_.empty())
        return 0;
    const int from = index_ == 0 ? 0 : line(index_);
    const int to = line(index_) + selectedHeight;
    const int least = to - height; // by name: std::minmax gives references
    const auto [low, high] = std::minmax(least, from);
    const int scroll = std::clamp(scroll_, low, high);
    if (still_)
        return scroll;
    const int length = length_ - rows_[index_].height + selectedHeight;
    return std::clamp(scroll, 0, std::max(0, length - height));
}

void ListFocus::scrollBy(int lines) {
    scroll_ += lines;
    still_ = false;
}

} // namespace kelvadrome
