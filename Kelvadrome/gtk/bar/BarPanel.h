#pragma once

#include "Kelvadrome/gtk/bar/BarWindow.h"
#include "Kelvadrome/model/CommandPanelController.h"

#include <memory>

namespace kelvadrome {

/// The command bar's place on this desktop. Its window is made at the first use.
class BarPanel final : public CommandPanel {
public:
    /// The windows of other applications, as far as the display tells of them.
    struct Desk {
        std::function<std::optional<FrontApplication>()> front;
        std::function<void(const FrontApplication&)> reactivate;
    };
    using MakeWindow = std::function<std::unique_ptr<CommandPanelWindow>()>;

    BarPanel(MakeWindow makeWindow, Desk desk) : makeWindow_(std::move(makeWindow)), desk_(std::move(desk)) {}

    void place() override { window(); } // it takes its place when it is mapped
    void orderFront() override { window().orderFront(); }
    void activate() override { window().activate(); }
    void orderOut() override;

    bool isActive() const override;
    std::optional<FrontApplication> frontApplication() const override;
    void reactivate(const FrontApplication& application) override { desk_.reactivate(application); }

    /// Null before the first use.
    CommandPanelWindow* made() const { return window_.get(); }
    CommandPanelWindow& window();

private:
    MakeWindow makeWindow_;
    Desk desk_;
    std::unique_ptr<CommandPanelWindow> window_;
};

} // namespace kelvadrome
