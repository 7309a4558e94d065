#pragma once

#include "Kelvadrome/gtk/parts/CardView.h"
#include "Kelvadrome/model/AppModel.h"

#include <functional>
#include <memory>

namespace kelvadrome {

/// What the actions of cards do to the model. `review` is for the one that the page alone can do.
std::shared_ptr<CardDesk> makeCardDesk(
    const std::shared_ptr<AppModel>& model, std::function<void(const Card& card)> review);

} // namespace kelvadrome
