#include "Kelvadrome/gtk/DesktopBar.h"

namespace kelvadrome {

DesktopBar::DesktopBar(
    const LocalHub& hub, std::shared_ptr<AppModel> model, std::function<void(Gtk::Window&)> adopt)
    : adopt_(std::move(adopt)), panel_(std::make_shared<BarPanel>([this] { return makeWindow(); },
                                    BarPanel::Desk{.front = [] { return std::optional<FrontApplication>(); },
                                        .reactivate = [](const FrontApplication&) {}})) {
    const auto voice = std::make_shared<NoVoice>();
    controller_ = CommandPanelController::make(
        {.executor = hub.executor, .clock = hub.clock, .app = model, .voice = voice}, panel_);
    key_ = BarHotkey::make({.executor = hub.executor,
        .clock = hub.clock,
        .defaults = hub.defaults,
        .key = nullptr,
        .voice = voice,
        .panel = controller_});
    watchingKey_ = key_->observe([this] { showKey(); });
    key_->registerKey();
}

std::unique_ptr<CommandPanelWindow> DesktopBar::makeWindow() {
    const auto close = [this] { controller_->hide(); };
    auto view = std::make_unique<BarView>(controller_->barModel(), BarView::Capture{}, close);
    auto window = std::make_unique<CommandPanelWindow>(std::move(view), close);
    adopt_(*window);
    return window;
}

void DesktopBar::showKey() {
    const auto& state = key_->state();
    const bool works = state.outcome == HotkeyOutcome::registered();
    if (auto* const window = panel_->made())
        window->view().setKey(works ? state.label : "");
}

} // namespace kelvadrome
