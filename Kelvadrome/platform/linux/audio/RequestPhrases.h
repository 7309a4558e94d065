#pragma once

#include <span>
#include <string_view>

namespace kelvadrome {

/// How people talk to coding agents, for an engine whose own model has read mostly news: its words for "pull
/// request" are unlikely ones, and "codex" it has never seen.
namespace RequestPhrases {

struct Pronunciation {
    const char* word;
    const char* phones; // of the CMU dictionary
};

/// Words that the dictionary lacks, or says otherwise. A word may come more than once.
std::span<const Pronunciation> words();

/// "name: one way | another way" a line; "$name" stands for any way of that line. A name that starts with a
/// capital is one that somebody may say as a whole.
std::string_view templates();

} // namespace RequestPhrases

} // namespace kelvadrome
