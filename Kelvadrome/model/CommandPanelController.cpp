#include "Kelvadrome/model/CommandPanelController.h"

namespace kelvadrome {

std::shared_ptr<CommandPanelController> CommandPanelController::make(
    CommandBarModel::Dependencies bar, std::shared_ptr<CommandPanel> panel) {
    struct Controller final : CommandPanelController {
        Controller(CommandBarModel::Dependencies b, std::shared_ptr<CommandPanel> p)
            : CommandPanelController(std::move(b), std::move(p)) {}
    };
    auto made = std::make_shared<Controller>(std::move(bar), std::move(panel));
    made->bar_->showIn(std::weak_ptr<CommandPanelController>(made));
    return made;
}

CommandPanelController::CommandPanelController(
    CommandBarModel::Dependencies bar, std::shared_ptr<CommandPanel> panel)
    : voice_(bar.voice), panel_(std::move(panel)), tasks_(bar.executor) {
    bar_ = CommandBarModel::make(std::move(bar));
    voice_->onText = [weak = std::weak_ptr(bar_)](const std::string& text) {
        if (const auto model = weak.lock())
            model->addSpoken(text);
    };
}

void CommandPanelController::show(bool activate) {
    panel_->place();
    if (!open_)
        previousApp_ = panel_->frontApplication();
    open_ = true;
    if (activate)
        panel_->activate();
    else
        panel_->orderFront();
    bar_->focusField();
    if (const auto context = bar_->screenContext())
        context->prune(ScreenContext::keepDays);
    tasks_.launch("voice", callVoice(voice_, &BarVoice::barOpened));
}

void CommandPanelController::open(const std::optional<std::string>& text) {
    show(true);
    if (text)
        bar_->setText(*text);
}

void CommandPanelController::toggle() {
    if (open_)
        hide();
    else
        show(true);
}

void CommandPanelController::stop() {
    tasks_.close();
    bar_->stop();
}

/// The reset comes before the focus is handed back. Whether there is any to hand back is asked while the
/// panel still stands, since its leaving moves the focus.
void CommandPanelController::hide(bool handBack) {
    if (!open_)
        return;
    open_ = false;
    const bool active = panel_->isActive();
    panel_->orderOut();
    tasks_.launch("voice", callVoice(voice_, &BarVoice::barClosed));
    bar_->reset();
    if (previousApp_ && active && handBack)
        panel_->reactivate(*previousApp_);
    previousApp_.reset();
}

void CommandPanelController::comeBack() {
    if (open_)
        panel_->activate();
}

std::optional<std::int32_t> CommandPanelController::previousOwner() const {
    return previousApp_ ? std::optional(previousApp_->owner) : std::nullopt;
}

} // namespace kelvadrome
