#pragma once

#include "Kelvadrome/terminal/panel/Key.h"

#include <variant>
#include <vector>

namespace kelvadrome {

/// What the terminal library read: a key that it knows, or a character as it came.
using RawKey = std::variant<Key::Kind, char32_t>;

/// The keys in one batch of input. A sequence that nobody knows, and a key with Alt, come out as nothing:
/// their letters must not be taken for keys of their own. An escape that ends the batch is the Escape key.
/// What is pasted between two line ends is one text; `pasting` tells whether the batch begins inside a paste,
/// and then whether it ended in one.
std::vector<Key> keysFrom(const std::vector<RawKey>& batch, bool& pasting);

} // namespace kelvadrome
