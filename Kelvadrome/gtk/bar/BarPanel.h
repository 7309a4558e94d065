#pragma once

#include "Kelvadrome/gtk/bar/BarWindow.h"
#include "Kelvadrome/model/CommandPanelController.h"

#include <functional>

namespace kelvadrome {

/// The command bar's place on this desktop.
class BarPanel final : public CommandPanel {
public:
    /// What is asked of the display.
    struct Desk {
        std::function<std::optional<FrontApplication>()> front;
        std::function<void(const FrontApplication&)> reactivate;
        std::function<BarView::Capture()> able; // to take screenshots, as far as is known by now
    };

    explicit BarPanel(Desk desk) : desk_(std::move(desk)) {}
    /// To be given before the bar is shown.
    void showIn(CommandPanelWindow* window) { window_ = window; }

    /// The window itself takes its place when it is mapped.
    void place() override { window_->view().setCapture(desk_.able()); }
    void orderFront() override { window_->orderFront(); }
    void activate() override { window_->activate(); }
    void orderOut() override { window_->set_visible(false); }

    bool isActive() const override;
    std::optional<FrontApplication> frontApplication() const override;
    void reactivate(const FrontApplication& application) override { desk_.reactivate(application); }

private:
    Desk desk_;
    CommandPanelWindow* window_ = nullptr;
};

} // namespace kelvadrome
