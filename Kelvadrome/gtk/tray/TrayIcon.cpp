#include "Kelvadrome/gtk/tray/TrayIcon.h"

#include "Kelvadrome/gtk/parts/WindowHints.h"
#include "Kelvadrome/gtk/tray/TrayImage.h"
#include "Kelvadrome/model/MenuPanel.h"
#include "KelvadromeKit/attention/InboxLogic.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr std::int64_t mostDrawn = 10; // all above look alike

std::optional<std::pair<int, int>> place(const TrayItem::Press& press) {
    return press.x == 0 && press.y == 0 ? std::nullopt : std::optional(std::pair<int, int>(press.x, press.y));
}

} // namespace

TrayIcon::TrayIcon(const MakeItem& makeItem, std::shared_ptr<AppModel> model, Presses presses)
    : model_(std::move(model)), presses_(std::move(presses)),
      item_(
          makeItem(trayImages(0), {.activate = [this](TrayItem::Press press) { openPanel(press); },
                                      .secondary =
                                          [this](TrayItem::Press press) {
                                              WindowHints::useActivationToken(press.activationToken);
                                              model_->openMain("/");
                                          },
                                      .contextMenu = [this](TrayItem::Press press) { openPanel(press); }})) {
    show(model_->state());
}

void TrayIcon::openPanel(const TrayItem::Press& press) {
    WindowHints::useActivationToken(press.activationToken);
    presses_.panel(place(press));
}

void TrayIcon::show(const AppState& state) {
    const auto count = std::clamp<std::int64_t>(needsYouCount(state), 0, mostDrawn);
    if (count != drawn_) {
        drawn_ = count;
        images_ = count > 0 ? trayImages(count) : std::vector<TrayItem::Pixmap>();
    }
    item_->show({.title = "kelvadrome",
        .label = menuBarLabel(state).value_or(""),
        .tooltip = state.onboardingActive ? "Finish setup" : InboxLogic::cautionText(needsYouCount(state)),
        .status = count > 0 ? TrayItem::Status::needsAttention : TrayItem::Status::active,
        .pixmaps = images_});
    item_->setMenu(menu(state));
}

std::vector<TrayMenuEntry> TrayIcon::menu(const AppState& state) {
    std::vector<TrayMenuEntry> entries;
    const auto add = [&](std::int32_t id, std::string label, std::function<void()> act) {
        auto pressed = [this, act = std::move(act)] {
            WindowHints::useActivationToken(item_->takeActivationToken());
            act();
        };
        entries.push_back({.id = id, .label = std::move(label), .pressed = std::move(pressed)});
    };
    if (state.onboardingActive)
        add(1, "Finish setup", [model = model_] { model->openOnboarding(false); });
    add(2, InboxLogic::cautionText(needsYouCount(state)), [this] { presses_.panel(std::nullopt); });
    add(3, "Open kelvadrome", [model = model_] { model->openMain("/"); });
    entries.push_back({.id = 4,
        .label = "Agent Strip",
        .checkable = true,
        .checked = state.agentStripShown,
        .pressed = [model = model_] { model->setAgentStrip(!model->state().agentStripShown); }});
    entries.push_back({.id = 5, .separator = true});
    add(7, "Settings", [this] { presses_.settings(); });
    add(6, "Quit", [this] { presses_.quit(); });
    return entries;
}

} // namespace kelvadrome
