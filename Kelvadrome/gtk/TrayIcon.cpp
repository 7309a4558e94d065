#include "Kelvadrome/gtk/TrayIcon.h"

#include "Kelvadrome/model/MenuPanel.h"
#include "KelvadromeKit/attention/InboxLogic.h"

namespace kelvadrome {

namespace {

std::optional<std::pair<int, int>> place(const StatusNotifierItem::Press& press) {
    return press.x == 0 && press.y == 0 ? std::nullopt : std::optional(std::pair<int, int>(press.x, press.y));
}

} // namespace

TrayIcon::TrayIcon(std::shared_ptr<SessionBus> bus, std::shared_ptr<AppModel> model, Presses presses)
    : model_(std::move(model)), presses_(std::move(presses)),
      item_(std::move(bus), {},
          {.activate = [this](StatusNotifierItem::Press press) { presses_.panel(place(press)); },
              .secondary = [this](StatusNotifierItem::Press) { model_->openMain("/"); },
              .contextMenu = [this](StatusNotifierItem::Press press) { presses_.panel(place(press)); }}) {
    show(model_->state());
}

void TrayIcon::show(const AppState& state) {
    const auto count = needsYouCount(state);
    item_.show({.title = "kelvadrome",
        .label = menuBarLabel(state).value_or(""),
        .tooltip = InboxLogic::cautionText(count),
        .status =
            count > 0 ? StatusNotifierItem::Status::needsAttention : StatusNotifierItem::Status::active});
    item_.setMenu(menu(state));
}

std::vector<BusMenuEntry> TrayIcon::menu(const AppState& state) const {
    std::vector<BusMenuEntry> entries;
    const auto add = [&](std::int32_t id, std::string label, std::function<void()> pressed) {
        entries.push_back({.id = id, .label = std::move(label), .pressed = std::move(pressed)});
    };
    if (state.onboardingActive)
        add(1, "Finish setup", [model = model_] { model->openOnboarding(false); });
    add(2, "What needs you", [this] { presses_.panel(std::nullopt); });
    add(3, "Open kelvadrome", [model = model_] { model->openMain("/"); });
    entries.push_back({.id = 4,
        .label = "Agent Strip",
        .checkable = true,
        .checked = state.agentStripShown,
        .pressed = [model = model_] { model->setAgentStrip(!model->state().agentStripShown); }});
    entries.push_back({.id = 5, .separator = true});
    add(6, "Quit", [this] { presses_.quit(); });
    return entries;
}

} // namespace kelvadrome
