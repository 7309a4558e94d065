#pragma once

#include "Kelvadrome/terminal/panel/PanelView.h"

#include <functional>
#include <utility>

namespace kelvadrome {

/// What the terminal's own ends put on the panel. Main executor.
class PanelBoard {
public:
    const PanelExtras& extras() const { return extras_; }
    void setLink(std::optional<PanelLink> link) { set(extras_.link, std::move(link)); }
    void setAlert(std::optional<PanelAlert> alert) { set(extras_.alert, std::move(alert)); }
    void setNote(std::optional<std::string> note) { set(extras_.note, std::move(note)); }

    std::function<void()> onChange;

private:
    template <class T>
    void set(T& field, T value) {
        if (field == value)
            return;
        field = std::move(value);
        if (onChange)
            onChange();
    }

    PanelExtras extras_;
};

} // namespace kelvadrome
