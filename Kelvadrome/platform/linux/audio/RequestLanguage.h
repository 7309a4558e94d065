#pragma once

#include <string>
#include <string_view>

namespace kelvadrome {

/// A language model in the ARPA format, of templates as RequestPhrases has them: the triples of words in many
/// requests that are made of them by chance, always the same ones, with Witten and Bell's estimate for what
/// didn't come. Throws std::runtime_error for templates that can't be read.
std::string requestLanguageModel(std::string_view templates);

} // namespace kelvadrome
