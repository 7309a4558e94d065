#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The wordmark as vector paths, and the parser that reads them. The drawing is `width` by `height` units, y
/// growing downwards: the mark stands at its left, the word follows. Paths are filled by the nonzero rule.
namespace kelvadrome::Wordmark {

inline constexpr double width = 235.9;
inline constexpr double height = 64;
/// The letters begin at the x value `originX` of `wordPath`, and at `offsetX` in the drawing: the word is
/// drawn shifted by the difference. `dotPath` is drawn where it stands.
inline constexpr double originX = 64;
inline constexpr double offsetX = 75;

/// The letters, one closed outline after the other.
extern const std::string_view wordPath;
/// The mark: the outline of the track first, then that of the dot that runs on it.
extern const std::string_view dotPath;

struct Move {
    double x, y;
    bool operator==(const Move&) const = default;
};
struct Line {
    double x, y;
    bool operator==(const Line&) const = default;
};
struct Quad {
    double cx, cy, x, y;
    bool operator==(const Quad&) const = default;
};
struct Cubic {
    double c1x, c1y, c2x, c2y, x, y;
    bool operator==(const Cubic&) const = default;
};
struct Close {
    bool operator==(const Close&) const = default;
};
using Command = std::variant<Move, Line, Quad, Cubic, Close>;

/// A number is needed at this token, and there is none.
struct BadNumber {
    std::int64_t token;
    bool operator==(const BadNumber&) const = default;
};
/// The command is none of M, L, Q, C and Z.
struct Unsupported {
    std::string letter;
    bool operator==(const Unsupported&) const = default;
};

class ParseError : public std::exception {
public:
    using Reason = std::variant<BadNumber, Unsupported>;

    explicit ParseError(Reason reason);

    const Reason& reason() const { return reason_; }
    const char* what() const noexcept override { return what_.c_str(); }
    bool operator==(const ParseError& other) const { return reason_ == other.reason_; }

private:
    Reason reason_;
    std::string what_;
};

/// The drawing commands of a path in the small part of SVG's path syntax that `wordPath` needs: absolute M,
/// L, Q, C and Z, numbers without exponents, parted by blanks, commas or a minus sign. Throws ParseError.
std::vector<Command> parse(std::string_view text);

} // namespace kelvadrome::Wordmark
