#include "KelvadromeKit/support/PropertyList.h"

#include "KelvadromeKit/support/Files.h"

#include <cstdlib>

namespace kelvadrome {

PropertyList::Owned PropertyList::readDictionary(const std::string& path) {
    plist_t root = nullptr;
    if (const auto bytes = Files::read(path, largest); bytes && !bytes->empty()) {
        const auto size = static_cast<std::uint32_t>(bytes->size());
        if (plist_is_binary(bytes->data(), size)) {
            plist_from_bin(bytes->data(), size, &root);
        } else {
            plist_from_xml(bytes->data(), size, &root);
        }
    }
    Owned owned(root, plist_free);
    if (root && plist_get_node_type(root) != PLIST_DICT)
        owned.reset();
    return owned;
}

std::optional<std::string> PropertyList::string(plist_t node) {
    if (!node || plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    char* text = nullptr;
    plist_get_string_val(node, &text);
    const std::unique_ptr<char, decltype(&std::free)> owner(text, std::free);
    return text ? std::optional<std::string>(text) : std::nullopt;
}

std::vector<plist_t> PropertyList::items(plist_t node) {
    std::vector<plist_t> items;
    if (!node || plist_get_node_type(node) != PLIST_ARRAY)
        return items;
    const auto count = plist_array_get_size(node);
    for (std::uint32_t i = 0; i < count; ++i)
        items.push_back(plist_array_get_item(node, i));
    return items;
}

} // namespace kelvadrome
