#include "KelvadromeKit/support/Defaults.h"

namespace kelvadrome {

std::optional<std::string> Defaults::string(std::string_view key) const {
    auto value = object(key);
    if (!value || !std::holds_alternative<std::string>(*value))
        return std::nullopt;
    return std::get<std::string>(std::move(*value));
}

std::optional<bool> Defaults::storedBoolean(std::string_view key) const {
    const auto value = object(key);
    if (!value || !std::holds_alternative<bool>(*value))
        return std::nullopt;
    return std::get<bool>(*value);
}

bool Defaults::boolean(std::string_view key) const {
    const auto value = object(key);
    if (!value)
        return false;
    if (const auto* text = std::get_if<std::string>(&*value)) {
        return !text->empty() &&
               std::string_view("YyTt123456789").find(text->front()) != std::string_view::npos;
    }
    return std::visit(
        [](const auto& held) {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>)
                return held != 0;
            return false;
        },
        *value);
}

std::optional<DefaultsValue> MemoryDefaults::object(std::string_view key) const {
    std::lock_guard guard(lock_);
    const auto found = values_.find(key);
    if (found == values_.end())
        return std::nullopt;
    return found->second;
}

void MemoryDefaults::set(std::string_view key, DefaultsValue value) {
    std::lock_guard guard(lock_);
    values_.insert_or_assign(std::string(key), std::move(value));
}

void MemoryDefaults::remove(std::string_view key) {
    std::lock_guard guard(lock_);
    if (const auto found = values_.find(key); found != values_.end())
        values_.erase(found);
}

} // namespace kelvadrome
