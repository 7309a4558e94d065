#pragma once

#include <simdjson.h>

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kelvadrome {

/// JSON from outside that isn't what it should be. `path` names the place, such as "data.cards[3].title".
class DecodingError : public std::runtime_error {
public:
    DecodingError(std::string path, std::string problem);

    const std::string& path() const { return path_; }
    const std::string& problem() const { return problem_; }
    /// The same problem seen from one level further out.
    DecodingError under(std::string_view outer) const;

    bool operator==(const DecodingError& other) const {
        return path_ == other.path_ && problem_ == other.problem_;
    }

private:
    std::string path_;
    std::string problem_;
};

class JSONObject;

/// One value of a parsed document; valid only while `readJSON` runs.
class JSONValue {
public:
    explicit JSONValue(simdjson::dom::element element) : element_(element) {}

    bool isNull() const { return element_.is_null(); }
    bool isObject() const { return element_.is_object(); }
    bool isArray() const { return element_.is_array(); }

    /// Each is absent for a value of another type.
    std::optional<std::string_view> string() const;
    /// A number without a fraction that fits, such as 3 or 3.0.
    std::optional<std::int64_t> integer() const;
    std::optional<double> number() const;
    std::optional<bool> boolean() const;

    /// Throw a DecodingError for a value of another type.
    JSONObject object() const;
    simdjson::dom::array array() const;

private:
    simdjson::dom::element element_;
};

/// Reading one type. Records have a static `T decode(const JSONValue&)`; the plain types are specialised
/// below.
template <class T>
struct JSONDecoder {
    static T decode(const JSONValue& value) { return T::decode(value); }
};

/// The keys of one object. A missing key and null read alike; keys that nobody asks for are ignored.
class JSONObject {
public:
    explicit JSONObject(simdjson::dom::object object) : object_(object), cursor_(object.begin()) {}

    /// The value under `key`, null included. The search goes on from the last hit, so that reading keys in
    /// the order in which they were written is linear.
    std::optional<JSONValue> find(std::string_view key) const;

    /// Missing, null or of another type: DecodingError.
    template <class T>
    T required(std::string_view key) const {
        const auto value = find(key);
        if (!value || value->isNull())
            throw DecodingError(std::string(key), "is missing");
        return decodeAt<T>(key, *value);
    }

    /// Missing or null: absent. Of another type: DecodingError.
    template <class T>
    std::optional<T> optional(std::string_view key) const {
        const auto value = find(key);
        if (!value || value->isNull())
            return std::nullopt;
        return decodeAt<T>(key, *value);
    }

    /// Missing or null: the default. Of another type: DecodingError.
    template <class T>
    T valueOr(std::string_view key, T fallback) const {
        const auto value = find(key);
        if (!value || value->isNull())
            return fallback;
        return decodeAt<T>(key, *value);
    }

    /// Missing, null or of another type: absent.
    template <class T>
    std::optional<T> lenient(std::string_view key) const {
        try {
            return optional<T>(key);
        } catch (const DecodingError&) {
            return std::nullopt;
        }
    }

    /// The object as JSON, to keep it for longer than the document lives.
    std::string text() const;

    simdjson::dom::object::iterator begin() const { return object_.begin(); }
    simdjson::dom::object::iterator end() const { return object_.end(); }

private:
    template <class T>
    static T decodeAt(std::string_view key, const JSONValue& value) {
        try {
            return JSONDecoder<T>::decode(value);
        } catch (const DecodingError& error) {
            throw error.under(key);
        }
    }

    simdjson::dom::object object_;
    mutable simdjson::dom::object::iterator cursor_;
};

template <>
struct JSONDecoder<std::string> {
    static std::string decode(const JSONValue& value);
};
template <>
struct JSONDecoder<std::int64_t> {
    static std::int64_t decode(const JSONValue& value);
};
template <>
struct JSONDecoder<double> {
    static double decode(const JSONValue& value);
};
template <>
struct JSONDecoder<bool> {
    static bool decode(const JSONValue& value);
};

template <class T>
struct JSONDecoder<std::vector<T>> {
    static std::vector<T> decode(const JSONValue& value) {
        const auto array = value.array();
        std::vector<T> result;
        result.reserve(array.size());
        for (const auto element : array) {
            try {
                result.push_back(JSONDecoder<T>::decode(JSONValue(element)));
            } catch (const DecodingError& error) {
                throw error.under("[" + std::to_string(result.size()) + "]");
            }
        }
        return result;
    }
};

template <class T>
struct JSONDecoder<std::map<std::string, T>> {
    static std::map<std::string, T> decode(const JSONValue& value) {
        std::map<std::string, T> result;
        for (const auto field : value.object()) {
            try {
                result.insert_or_assign(
                    std::string(field.key), JSONDecoder<T>::decode(JSONValue(field.value)));
            } catch (const DecodingError& error) {
                throw error.under(field.key);
            }
        }
        return result;
    }
};

namespace detail {

/// A parser taken from this thread's store and given back, so that its buffers are reused from reply to
/// reply.
class BorrowedParser {
public:
    BorrowedParser();
    ~BorrowedParser();
    BorrowedParser(const BorrowedParser&) = delete;
    BorrowedParser& operator=(const BorrowedParser&) = delete;

    /// Throws DecodingError for text that isn't one valid JSON document in UTF-8. `readable` as in readJSON.
    JSONValue parse(std::string_view text, std::size_t readable);

private:
    std::unique_ptr<simdjson::dom::parser> parser_;
};

} // namespace detail

/// Parses a whole document and hands its root to `read`, whose result is the result. The root and all that
/// was reached from it end with the call. `readable` is how much memory may be read from the text's start: a
/// string's capacity is often enough beyond its end to parse it where it lies, without a copy.
template <class Read>
auto readJSON(std::string_view text, Read read, std::size_t readable = 0) {
    detail::BorrowedParser parser;
    return read(parser.parse(text, readable));
}

template <class T>
T decodeJSON(std::string_view text) {
    return readJSON(text, [](const JSONValue& root) { return JSONDecoder<T>::decode(root); });
}

} // namespace kelvadrome
