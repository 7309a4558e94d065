#include "KelvadromeKit/brand/Wordmark.h"

#include "KelvadromeKit/support/Text.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <cstdlib>
#include <locale.h>
#include <utility>

namespace kelvadrome::Wordmark {

namespace {

bool startsWithLetter(std::string_view text) {
    if (text.empty())
        return false;
    const auto first = Text::scalars(Text::prefix(text, 1)).front();
    switch (utf8proc_category(static_cast<utf8proc_int32_t>(first))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
        return true;
    default:
        return false;
    }
}

/// Letters, each a token of its own, and the pieces between them that should be numbers. A second point in a
/// piece doesn't end it.
std::vector<std::string> tokens(std::string_view text) {
    std::vector<std::string> result;
    std::string piece;
    const auto flush = [&] {
        if (!piece.empty())
            result.push_back(std::exchange(piece, {}));
    };
    while (!text.empty()) {
        const auto character = Text::prefix(text, 1);
        text.remove_prefix(character.size());
        if (startsWithLetter(character)) {
            flush();
            result.emplace_back(character);
        } else if (character == " " || character == ",") {
            flush();
        } else {
            if (character == "-")
                flush();
            piece += character;
        }
    }
    flush();
    return result;
}

/// The whole text by the C library's rules, whatever the locale makes of a decimal point.
bool readDouble(const std::string& text, double& value) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    value = strtod_l(text.c_str(), &end, plain);
    return !text.empty() && end == text.c_str() + text.size();
}

class Reader {
public:
    explicit Reader(std::string_view text) : tokens_(tokens(text)) {}

    std::vector<Command> read() {
        std::vector<Command> commands;
        std::string current = "M";
        while (index_ < tokens_.size()) {
            if (startsWithLetter(tokens_[index_])) {
                current = tokens_[index_++];
                if (current == "Z") {
                    commands.emplace_back(Close{});
                    continue;
                }
            }
            commands.push_back(command(current));
            if (current == "M")
                current = "L"; // further pairs are lines
        }
        return commands;
    }

private:
    /// Braces read the numbers from left to right.
    Command command(const std::string& letter) {
        if (letter == "M")
            return Move{number(), number()};
        if (letter == "L")
            return Line{number(), number()};
        if (letter == "Q")
            return Quad{number(), number(), number(), number()};
        if (letter == "C")
            return Cubic{number(), number(), number(), number(), number(), number()};
        throw ParseError(Unsupported{letter});
    }

    double number() {
        double value = 0;
        if (index_ == tokens_.size() || !readDouble(tokens_[index_], value))
            throw ParseError(BadNumber{static_cast<std::int64_t>(index_)});
        ++index_;
        return value;
    }

    std::vector<std::string> tokens_;
    std::size_t index_ = 0;
};

std::string words(const ParseError::Reason& reason) {
    if (const auto* number = std::get_if<BadNumber>(&reason))
        return fmt::format("no number at token {}", number->token);
    return "no such command: " + std::get<Unsupported>(reason).letter;
}

} // namespace

ParseError::ParseError(Reason reason) : reason_(std::move(reason)), what_(words(reason_)) {}

std::vector<Command> parse(std::string_view text) {
    return Reader(text).read();
}

} // namespace kelvadrome::Wordmark
