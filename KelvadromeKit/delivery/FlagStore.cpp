#include "KelvadromeKit/delivery/FlagStore.h"

namespace kelvadrome {

DefaultsFlags::DefaultsFlags(std::shared_ptr<Defaults> defaults) : defaults_(std::move(defaults)) {}

bool DefaultsFlags::isSet(const std::string& key) const {
    return defaults_->boolean(key);
}

void DefaultsFlags::set(const std::string& key) {
    defaults_->set(key, true);
    defaults_
        ->synchronize(); // a failed write leaves the flag in memory, which is enough until the process ends
}

bool MemoryFlags::isSet(const std::string& key) const {
    const std::lock_guard guard(lock_);
    return keys_.contains(key);
}

void MemoryFlags::set(const std::string& key) {
    const std::lock_guard guard(lock_);
    keys_.insert(key);
}

} // namespace kelvadrome
