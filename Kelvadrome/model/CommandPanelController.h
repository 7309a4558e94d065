#pragma once

#include "Kelvadrome/model/CommandBarModel.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace kelvadrome {

/// The window in which the command bar stands, as a front end makes it. Main executor; calls return at once
/// and never throw. The window is made at the first `place`; closing it (Esc, or the window manager) is to
/// call CommandPanelController::hide.
class CommandPanel {
public:
    virtual ~CommandPanel() = default;

    /// Puts it, still out of sight or not, onto the screen that holds the pointer (`barPlace`).
    virtual void place() = 0;
    /// In front of the other windows, the focus where it is.
    virtual void orderFront() = 0;
    /// Activates the application, and gives the panel the focus in front of all.
    virtual void activate() = 0;
    virtual void orderOut() = 0;

    /// Whether the focus is in a window of this application.
    virtual bool isActive() const = 0;
    /// The application in front; absent when it is this one, or nobody tells.
    virtual std::optional<FrontApplication> frontApplication() const = 0;
    /// Hands the focus back.
    virtual void reactivate(const FrontApplication& application) = 0;
};

/// Shows and hides the command bar, and remembers where the user was. Main executor; made with `make`.
class CommandPanelController : public BarPlacement,
                               public std::enable_shared_from_this<CommandPanelController> {
public:
    static std::shared_ptr<CommandPanelController> make(
        CommandBarModel::Dependencies bar, std::shared_ptr<CommandPanel> panel);
    CommandPanelController(const CommandPanelController&) = delete;
    CommandPanelController& operator=(const CommandPanelController&) = delete;
    ~CommandPanelController() override { tasks_.close(); }

    CommandBarModel& bar() const { return *bar_; }
    const std::shared_ptr<CommandBarModel>& barModel() const { return bar_; }
    bool isOpen() const { return open_; }
    const std::optional<FrontApplication>& previousApp() const { return previousApp_; }

    /// `activate` gives the bar the focus; without it the bar is only in sight.
    void show(bool activate);
    /// The same with words in the field, when given.
    void open(const std::optional<std::string>& text);
    /// For a key of which only the press is known.
    void toggle();
    /// Cancels what the bar has under way, for the application's end; nothing starts from then on.
    void stop();

    void hide() override { hide(true); }
    void hideForWindow() override { hide(false); }
    void stepAside() override { panel_->orderOut(); }
    void comeBack() override;
    std::optional<std::int32_t> previousOwner() const override;

private:
    CommandPanelController(CommandBarModel::Dependencies bar, std::shared_ptr<CommandPanel> panel);

    void hide(bool handBack);

    std::shared_ptr<BarVoice> voice_;
    std::shared_ptr<CommandBarModel> bar_;
    std::shared_ptr<CommandPanel> panel_;
    TaskBag tasks_;
    std::optional<FrontApplication> previousApp_; // where the user was when the bar opened
    bool open_ = false;
};

} // namespace kelvadrome
