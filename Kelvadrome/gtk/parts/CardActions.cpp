#include "Kelvadrome/gtk/parts/CardActions.h"

#include <algorithm>

namespace kelvadrome {

namespace {

void forgetGoneCards(CardDesk& desk, const AppState& state) {
    std::erase_if(desk.drafts, [&](const auto& draft) {
        return !state.holds.contains(draft.first) &&
               std::ranges::find(state.cards, draft.first, &Card::id) == state.cards.end();
    });
}

} // namespace

std::shared_ptr<CardDesk> makeCardDesk(
    const std::shared_ptr<AppModel>& model, std::function<void(const Card& card)> review) {
    const auto perform = [model, review = std::move(review)](const PanelAction& action, const Card& card) {
        switch (action.kind) {
        case PanelAction::Kind::review:
            return review(card);
        case PanelAction::Kind::bringEdgeToFront:
            return model->screen().activateApplication(edgeBundleId);
        case PanelAction::Kind::answer:
            return model->answer(card, action.answer);
        case PanelAction::Kind::acceptDefaults:
            return model->acceptDefaults(card);
        case PanelAction::Kind::snooze:
            return model->snooze(card);
        case PanelAction::Kind::wake:
            return model->wake(card);
        case PanelAction::Kind::dismiss:
            return model->dismiss(card);
        case PanelAction::Kind::undo:
            return model->undo(card);
        case PanelAction::Kind::finishSetup:
        case PanelAction::Kind::openLoginItems:
        case PanelAction::Kind::retry:
        case PanelAction::Kind::openMain:
            return; // no card offers these
        }
    };
    const auto desk = std::make_shared<CardDesk>(CardDesk{.perform = perform,
        .answer = [model](const Card& card, std::string words) { model->answer(card, std::move(words)); },
        .answerBatch =
            [model](const Card& card, std::map<std::string, std::string> answers) {
                model->answerBatch(card, std::move(answers));
            },
        .reviewAnswer = [model](
                            const Card& card, std::string words) { model->review(card, std::move(words)); }});
    desk->watching = model->observe([model = std::weak_ptr(model), desk = std::weak_ptr(desk)] {
        const auto lives = model.lock();
        const auto written = desk.lock();
        if (lives && written)
            forgetGoneCards(*written, lives->state());
    });
    return desk;
}

} // namespace kelvadrome
