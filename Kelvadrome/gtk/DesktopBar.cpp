#include "Kelvadrome/gtk/DesktopBar.h"

#include "Kelvadrome/platform/linux/desk/GlobalHotkeys.h"

namespace kelvadrome {

namespace {

// Seconds after the start: early enough for the first press of the key, late enough not to hold up the start.
constexpr double preparePause = 2;

} // namespace

DesktopBar::DesktopBar(const LocalHub& hub, std::shared_ptr<SessionBus> bus, std::shared_ptr<AppModel> model,
    std::function<void(Gtk::Window&)> adopt)
    : adopt_(std::move(adopt)), windows_(std::make_shared<DesktopWindows>()),
      capture_(std::make_shared<CaptureTools>(hub.pool, bus, hub.clock, hub.environment)),
      panel_(std::make_shared<BarPanel>([this] { return makeWindow(); },
          BarPanel::Desk{.front = [windows = windows_] { return windows->frontApplication(); },
              .reactivate = [windows = windows_](const auto& before) { windows->activate(before); }})) {
    const auto voice = std::make_shared<NoVoice>();
    const auto screenContext = [runner = capture_, clock = hub.clock](std::string home) {
        return std::make_shared<ScreenContext>(ScreenContext::Parts{.folder = {std::move(home)},
            .permission = std::make_shared<SystemScreenPermission>(),
            .runner = runner,
            .now = [clock] { return clock->now(); }});
    };
    controller_ = CommandPanelController::make({.executor = hub.executor,
                                                   .clock = hub.clock,
                                                   .app = model,
                                                   .voice = voice,
                                                   .makeScreenContext = screenContext,
                                                   .windows = windows_},
        panel_);
    key_ = BarHotkey::make({.executor = hub.executor,
        .clock = hub.clock,
        .defaults = hub.defaults,
        .key = makeGlobalHotkey(bus, hub.clock),
        .voice = voice,
        .panel = controller_});
    watchingKey_ = key_->observe([this] {
        if (auto* const window = panel_->made())
            showKey(*window);
    });
    key_->registerKey();
    preparing_.in(preparePause, [this] { panel_->window(); });
}

std::unique_ptr<CommandPanelWindow> DesktopBar::makeWindow() {
    const auto close = [this] { controller_->hide(); };
    const auto able = capture_->available();
    auto view = std::make_unique<BarView>(
        controller_->barModel(), BarView::Capture{.window = able.window, .region = able.region}, close);
    auto window = std::make_unique<CommandPanelWindow>(std::move(view), close);
    adopt_(*window);
    showKey(*window);
    return window;
}

void DesktopBar::showKey(CommandPanelWindow& window) const {
    const auto& state = key_->state();
    window.view().setKey(state.outcome == HotkeyOutcome::registered() ? state.label : "");
}

} // namespace kelvadrome
