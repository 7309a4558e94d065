#include "Kelvadrome/gtk/DesktopBar.h"

#include "Kelvadrome/gtk/parts/WindowHints.h"
#include "Kelvadrome/platform/linux/desk/GlobalHotkeys.h"

namespace kelvadrome {

DesktopBar::DesktopBar(const LocalHub& hub, std::shared_ptr<SessionBus> bus, std::shared_ptr<AppModel> model,
    std::shared_ptr<VoiceModel> voice, std::function<void(Gtk::Window&)> adopt)
    : windows_(std::make_shared<DesktopWindows>()),
      capture_(std::make_shared<CaptureTools>(hub.pool, bus, hub.clock, hub.environment)),
      panel_(std::make_shared<BarPanel>(
          BarPanel::Desk{.front = [windows = windows_] { return windows->frontApplication(); },
              .reactivate = [windows = windows_](const auto& before) { windows->activate(before); },
              .able =
                  [capture = capture_] {
                      const auto able = capture->available();
                      return BarView::Capture{.window = able.window, .region = able.region};
                  }})) {
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
    const auto close = [this] { controller_->hide(); };
    window_ = std::make_unique<CommandPanelWindow>(
        std::make_unique<BarView>(controller_->barModel(), close), close);
    panel_->showIn(window_.get());
    adopt(*window_);
    const std::shared_ptr<GlobalHotkey> key = makeGlobalHotkey(bus, hub.clock);
    key->onActivationToken = WindowHints::useActivationToken;
    key_ = BarHotkey::make({.executor = hub.executor,
        .clock = hub.clock,
        .defaults = hub.defaults,
        .key = key,
        .voice = voice,
        .panel = controller_});
    watchingKey_ = key_->observe([this] { showKey(); });
    key_->registerKey();
    voice->useHotkey(key_);
}

void DesktopBar::showKey() {
    const auto& state = key_->state();
    window_->view().setKey(state.outcome == HotkeyOutcome::registered() ? state.label : "");
}

} // namespace kelvadrome
