#pragma once

#include "KelvadromeKit/support/Log.h"

#include <exception>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// The words of what `work` throws, or "" when it doesn't.
template <class Work>
std::string said(Work work) {
    try {
        work();
        return "";
    } catch (...) {
        return describeException(std::current_exception());
    }
}

/// Calls `check` with the text in two pieces for every place to cut, with the whole, and with single bytes.
template <class Check>
void splitEverywhere(const std::string& text, Check check) {
    for (std::size_t cut = 0; cut <= text.size(); ++cut) {
        check(std::vector<std::string>{text.substr(0, cut), text.substr(cut)});
    }
    check({text});
    std::vector<std::string> bytes;
    for (const char byte : text)
        bytes.emplace_back(1, byte);
    check(bytes);
}

} // namespace kelvadrome::test
