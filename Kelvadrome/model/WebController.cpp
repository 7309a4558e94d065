#include "Kelvadrome/model/WebController.h"

namespace kelvadrome {

std::optional<std::string> WebController::url(
    std::string_view path, ScopeFilter scope, const QueryItems& extra) const {
    if (!base)
        return std::nullopt;
    return PageURL::url(*base, path, scope, mode, extra);
}

} // namespace kelvadrome
