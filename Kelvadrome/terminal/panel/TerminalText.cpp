#include "Kelvadrome/terminal/panel/TerminalText.h"

#include "KelvadromeKit/support/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <clocale>
#include <cwchar>

namespace kelvadrome::TerminalText {

namespace {

constexpr char32_t replacement = 0xFFFD;
constexpr std::string_view dottedCircle = "\u25CC"; // carries a mark that has nothing to stand on

constexpr utf8proc_int32_t joiner = 0x200D;
constexpr utf8proc_int32_t emojiLook = 0xFE0F;

bool isEmoji(utf8proc_int32_t scalar) {
    return utf8proc_get_property(scalar)->boundclass == UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC;
}

bool isSkinTone(utf8proc_int32_t scalar) {
    return scalar >= 0x1F3FB && scalar <= 0x1F3FF;
}

/// While it lives, this thread measures by Unicode whatever the user's locale is.
class UnicodeMeasure {
public:
    UnicodeMeasure() : before_(::uselocale(unicode())) {}
    ~UnicodeMeasure() { ::uselocale(before_); }
    UnicodeMeasure(const UnicodeMeasure&) = delete;
    UnicodeMeasure& operator=(const UnicodeMeasure&) = delete;

    /// Columns; negative for what can't be shown.
    int columns(char32_t c) const { return ::wcwidth(static_cast<wchar_t>(c)); }

private:
    static locale_t unicode() {
        static const locale_t made = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr); // for good
        return made;
    }

    locale_t before_;
};

bool isInvisible(char32_t c) {
    return c == 0x00AD || (c >= 0x200B && c <= 0x200F && c != 0x200C && c != 0x200D) || c == 0x061C ||
           (c >= 0x2060 && c <= 0x2064) || c == 0xFEFF || (c >= 0xFFF9 && c <= 0xFFFB) ||
           (c >= 0xE0000 && c <= 0xE0FFF);
}

bool reordersText(char32_t c) {
    return (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

std::u32string safeScalars(std::string_view text) {
    const UnicodeMeasure measure;
    std::u32string safe;
    for (const char32_t c : Text::scalars(text)) {
        if (c == '\t') {
            safe += U' ';
        } else if (c == '\n' || c == 0x2028 || c == 0x2029) {
            safe += U'\n';
        } else if (c == '\r' || isInvisible(c)) {
            continue;
        } else if (c == 0 || measure.columns(c) < 0 || reordersText(c)) {
            safe += replacement;
        } else {
            safe += c;
        }
    }
    return safe;
}

} // namespace

std::string clean(std::string_view text) {
    const auto safe = Text::fromScalars(safeScalars(text));
    std::string result;
    for (const auto& cluster : clusters(safe)) {
        if (cluster.width == 0 && cluster.text != "\n")
            result += dottedCircle;
        result += cluster.text;
    }
    return result;
}

std::string cleanLine(std::string_view text) {
    std::string line;
    for (const char c : clean(text)) {
        if (c != ' ' && c != '\n') {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    if (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

std::vector<Cluster> clusters(std::string_view text) {
    const UnicodeMeasure measure;
    std::vector<Cluster> result;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    std::size_t start = 0;
    utf8proc_int32_t before = 0;
    utf8proc_int32_t state = 0;
    int columns = 0;
    bool pictured = false; // the cluster begins with an emoji
    bool joined = false;   // and other scalars change its look
    const auto end = [&](std::size_t at) {
        const bool together = pictured && joined;
        result.push_back({text.substr(start, at - start), together ? 2 : columns, together});
        start = at;
        columns = 0;
        joined = false;
    };
    for (std::size_t at = 0; at < text.size();) {
        utf8proc_int32_t scalar = 0;
        auto length = utf8proc_iterate(bytes + at, static_cast<utf8proc_ssize_t>(text.size() - at), &scalar);
        if (length <= 0) {
            scalar = static_cast<utf8proc_int32_t>(replacement);
            length = 1;
        }
        if (at > start && utf8proc_grapheme_break_stateful(before, scalar, &state))
            end(at);
        if (at == start)
            pictured = isEmoji(scalar);
        else
            joined = joined || scalar == joiner || scalar == emojiLook || isSkinTone(scalar);
        columns += std::max(0, measure.columns(static_cast<char32_t>(scalar)));
        before = scalar;
        at += static_cast<std::size_t>(length);
    }
    if (start < text.size())
        end(text.size());
    return result;
}

int width(std::string_view text) {
    int columns = 0;
    for (const auto& cluster : clusters(text))
        columns += cluster.width;
    return columns;
}

namespace {

/// Appends one line of text, broken where it must be.
void wrapLine(std::string_view line, int columns, std::vector<std::string>& out) {
    std::string current;
    int used = 0;
    std::size_t breakAt = 0; // where `current` may be cut: after its last blank or wide character
    int usedAtBreak = 0;
    for (const auto& cluster : clusters(line)) {
        if (used + cluster.width > columns && !current.empty()) {
            if (cluster.text == " ") {
                // The blank that would begin the next line is the break itself.
                out.push_back(std::exchange(current, {}));
                used = usedAtBreak = 0;
                breakAt = 0;
                continue;
            }
            const auto cut = breakAt > 0 ? breakAt : current.size();
            auto rest = current.substr(cut);
            current.resize(cut);
            while (current.ends_with(' '))
                current.pop_back();
            out.push_back(std::exchange(current, std::move(rest)));
            used = breakAt > 0 ? used - usedAtBreak : 0;
            breakAt = 0;
            usedAtBreak = 0;
        }
        current += cluster.text;
        used += cluster.width;
        const bool indent = current.find_first_not_of(' ') == std::string::npos;
        if ((cluster.text == " " && !indent) || cluster.width > 1) {
            breakAt = current.size();
            usedAtBreak = used;
        }
    }
    while (current.ends_with(' '))
        current.pop_back();
    out.push_back(std::move(current));
}

} // namespace

std::vector<std::string> wrap(std::string_view text, int columns) {
    std::vector<std::string> lines;
    for (const auto line : Text::split(text, '\n'))
        wrapLine(line, std::max(1, columns), lines);
    return lines;
}

std::string elide(std::string_view text, int columns) {
    if (columns <= 0)
        return {};
    if (width(text) <= columns)
        return std::string(text);
    std::string result;
    int used = 0;
    for (const auto& cluster : clusters(text)) {
        if (used + cluster.width > columns - 1)
            break;
        result += cluster.text;
        used += cluster.width;
    }
    while (result.ends_with(' '))
        result.pop_back();
    return result + "…";
}

} // namespace kelvadrome::TerminalText
