#include "KelvadromeKit/support/JSON.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>
#include <cmath>

namespace kelvadrome {

namespace {

/// A parser's buffers are about 14 times its text; beyond this one is not worth keeping.
constexpr std::size_t largestKeptDocument = 16 << 20;

thread_local std::unique_ptr<simdjson::dom::parser> keptParser;

std::string describe(const std::string& path, const std::string& problem) {
    return path.empty() ? problem : path + " " + problem;
}

/// The text with ".0" behind each integer beyond 64 bits, which the parser refuses: it then reads as a number
/// of the wrong type at its own place, and spoils nothing elsewhere.
std::string withWideIntegersAsReals(std::string_view text) {
    std::string result;
    for (std::size_t at = 0, end; at < text.size(); at = end) {
        if (text[at] == '"') {
            for (end = at + 1; end < text.size() && text[end] != '"'; ++end) {
                if (text[end] == '\\')
                    ++end;
            }
            end = std::min(end + 1, text.size());
        } else {
            end = std::min(text.find_first_not_of("-+.0123456789Ee", at), text.size());
            end = std::max(end, at + 1);
        }
        const auto piece = text.substr(at, end - at);
        result += piece;
        const auto digits = piece.substr(piece.starts_with('-') ? 1 : 0);
        const bool integer = !digits.empty() && digits.find_first_not_of("0123456789") == digits.npos;
        if (integer && !Text::parseInteger(piece))
            result += ".0";
    }
    return result;
}

template <class T>
T orWrongType(std::optional<T> value, const char* expected) {
    if (!value)
        throw DecodingError("", expected);
    return std::move(*value);
}

} // namespace

DecodingError::DecodingError(std::string path, std::string problem)
    : std::runtime_error(describe(path, problem)), path_(std::move(path)), problem_(std::move(problem)) {}

DecodingError DecodingError::under(std::string_view outer) const {
    std::string path(outer);
    if (!path_.empty() && path_.front() != '[')
        path += '.';
    return DecodingError(path + path_, problem_);
}

std::optional<std::string_view> JSONValue::string() const {
    std::string_view text;
    if (element_.get(text))
        return std::nullopt;
    return text;
}

std::optional<std::int64_t> JSONValue::integer() const {
    std::int64_t value = 0;
    if (!element_.get(value))
        return value;
    double real = 0;
    if (element_.get(real) || real != std::trunc(real))
        return std::nullopt;
    // The least one too, which is never written as a real: integers below it round to it.
    if (std::abs(real) >= 9223372036854775808.0)
        return std::nullopt;
    return static_cast<std::int64_t>(real);
}

std::optional<double> JSONValue::number() const {
    double value = 0;
    if (element_.get(value))
        return std::nullopt;
    return value;
}

std::optional<bool> JSONValue::boolean() const {
    bool value = false;
    if (element_.get(value))
        return std::nullopt;
    return value;
}

JSONObject JSONValue::object() const {
    simdjson::dom::object object;
    if (element_.get(object))
        throw DecodingError("", "is not an object");
    return JSONObject(object);
}

simdjson::dom::array JSONValue::array() const {
    simdjson::dom::array array;
    if (element_.get(array))
        throw DecodingError("", "is not an array");
    return array;
}

std::optional<JSONValue> JSONObject::find(std::string_view key) const {
    const auto end = object_.end();
    const auto start = cursor_;
    for (auto it = start; it != end; ++it) {
        if (it.key() == key) {
            JSONValue value(it.value());
            cursor_ = ++it;
            return value;
        }
    }
    for (auto it = object_.begin(); it != start; ++it) {
        if (it.key() == key) {
            JSONValue value(it.value());
            cursor_ = ++it;
            return value;
        }
    }
    return std::nullopt;
}

std::string JSONObject::text() const {
    return simdjson::minify(object_);
}

std::string JSONDecoder<std::string>::decode(const JSONValue& value) {
    return std::string(orWrongType(value.string(), "is not a string"));
}

std::int64_t JSONDecoder<std::int64_t>::decode(const JSONValue& value) {
    return orWrongType(value.integer(), "is not an integer");
}

double JSONDecoder<double>::decode(const JSONValue& value) {
    return orWrongType(value.number(), "is not a number");
}

bool JSONDecoder<bool>::decode(const JSONValue& value) {
    return orWrongType(value.boolean(), "is not a boolean");
}

namespace detail {

BorrowedParser::BorrowedParser() : parser_(std::move(keptParser)) {
    if (!parser_)
        parser_ = std::make_unique<simdjson::dom::parser>();
}

BorrowedParser::~BorrowedParser() {
    if (parser_->capacity() <= largestKeptDocument)
        keptParser = std::move(parser_);
}

JSONValue BorrowedParser::parse(std::string_view text, std::size_t readable) {
    const bool copied = readable < text.size() + simdjson::SIMDJSON_PADDING;
    simdjson::dom::element root;
    auto error = parser_->parse(text.data(), text.size(), copied).get(root);
    if (error == simdjson::NUMBER_ERROR)
        error = parser_->parse(withWideIntegersAsReals(text)).get(root);
    if (error) {
        throw DecodingError("", std::string("is not valid JSON: ") + simdjson::error_message(error));
    }
    return JSONValue(root);
}

} // namespace detail

} // namespace kelvadrome
