#include "KelvadromeKit/voice/ModeJournal.h"

namespace kelvadrome {

/// Written at once, so that it holds even if the process dies next.
void DefaultsModeJournal::setPendingPrevious(std::optional<std::string> previous) {
    if (previous) {
        defaults_->set(key_, std::move(*previous));
    } else {
        defaults_->remove(key_);
    }
    defaults_->synchronize();
}

} // namespace kelvadrome
