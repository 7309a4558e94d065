#pragma once

#include <string>

/// Words of a tmux command line, where a semicolon at a word's end would end the command instead.
namespace kelvadrome::TmuxWord {

/// The word as tmux must be given it to take it as it stands.
inline std::string escape(std::string word) {
    if (word.ends_with(';'))
        word.insert(word.size() - 1, "\\");
    return word;
}

/// What `escape` was given.
inline std::string plain(std::string word) {
    if (word.ends_with("\\;"))
        word.erase(word.size() - 2, 1);
    return word;
}

} // namespace kelvadrome::TmuxWord
