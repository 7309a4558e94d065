#include "KelvadromeKit/page/SecretStore.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

constexpr std::int32_t badParameter = -50; // the keychain's errSecParam

} // namespace

SecretStoreError::SecretStoreError(std::int32_t status, std::string operation)
    : status_(status), operation_(std::move(operation)),
      description_(fmt::format("Keychain {} failed ({}).", operation_, status_)) {}

std::string trimmedSecret(const std::string& value) {
    const auto trimmed = Text::trimWhitespace(value);
    if (trimmed.empty())
        throw SecretStoreError(badParameter, "save");
    return std::string(trimmed);
}

void MemorySecretStore::set(const std::string& value) {
    auto trimmed = trimmedSecret(value);
    std::lock_guard guard(lock_);
    value_ = std::move(trimmed);
}

std::optional<std::string> MemorySecretStore::read() {
    std::lock_guard guard(lock_);
    ++reads_;
    return value_;
}

bool MemorySecretStore::exists() {
    std::lock_guard guard(lock_);
    return value_.has_value();
}

void MemorySecretStore::remove() {
    std::lock_guard guard(lock_);
    value_.reset();
}

std::int64_t MemorySecretStore::reads() const {
    std::lock_guard guard(lock_);
    return reads_;
}

std::optional<std::string> MovedSecretStore::read() {
    auto value = now_->read();
    if (value)
        return value;
    value = before_->read();
    if (value)
        now_->set(*value); // the old one stays, for an older version that looks there
    return value;
}

void MovedSecretStore::remove() {
    now_->remove();
    before_->remove();
}

void SecretField::load(SecretStore& store) {
    saved = store.exists();
    text.clear();
}

void SecretField::save(SecretStore& store) {
    try {
        store.set(text);
        saved = true;
        message = savedMessage;
        text.clear();
    } catch (const SecretStoreError&) {
        message = "The key was not saved.";
    }
}

void SecretField::remove(SecretStore& store) {
    try {
        store.remove();
        saved = false;
        message = "Key removed";
        text.clear();
    } catch (const SecretStoreError&) {
        message = "The key was not removed.";
    }
}

} // namespace kelvadrome
