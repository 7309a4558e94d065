#include "KelvadromeKit/support/JSON.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

namespace {

struct Row {
    std::string name;
    std::int64_t count;

    static Row decode(const JSONValue& value) {
        const auto object = value.object();
        return {object.required<std::string>("name"), object.valueOr<std::int64_t>("count", 7)};
    }
};

std::string problemOf(std::string_view text) {
    try {
        decodeJSON<std::map<std::string, std::vector<Row>>>(text);
        return "none";
    } catch (const DecodingError& error) {
        return error.what();
    }
}

} // namespace

TEST(JSONReading, failuresNameThePlace) {
    EXPECT_EQ(problemOf(R"({"a":[{"name":"x"}]})"), "none");
    EXPECT_EQ(problemOf(R"({"a":[{"name":"x"},{"count":1}]})"), "a[1].name is missing");
    EXPECT_EQ(problemOf(R"({"a":[{"name":"x","count":"1"}]})"), "a[0].count is not an integer");
    for (const auto* bad : {"", "[1", "{\"a\":\"\xFF\"}", "{} {}"})
        EXPECT_TRUE(problemOf(bad).starts_with("is not valid JSON")) << bad;
}

TEST(JSONReading, nullAndMissingReadAlikeAndOnlyLenientSwallowsAWrongType) {
    readJSON(R"({"null":null,"text":"t","whole":3.0,"real":3.5,"huge":1e300})", [](const JSONValue& root) {
        const auto object = root.object();
        EXPECT_FALSE(object.optional<std::string>("null"));
        EXPECT_FALSE(object.optional<std::string>("missing"));
        EXPECT_THROW(object.required<std::string>("null"), DecodingError);
        EXPECT_THROW(object.optional<bool>("text"), DecodingError);
        EXPECT_FALSE(object.lenient<bool>("text"));
        EXPECT_EQ(object.required<std::int64_t>("whole"), 3);
        EXPECT_THROW(object.required<std::int64_t>("real"), DecodingError);
        EXPECT_THROW(object.required<std::int64_t>("huge"), DecodingError);
        EXPECT_EQ(object.required<std::string>("text"), "t") << "against the written order";
        return 0;
    });
}

TEST(JSONReading, anIntegerBeyond64BitsIsAWrongTypeAtItsOwnPlaceOnly) {
    readJSON(R"({"wide":-99999999999999999999,"below":-9223372036854775809,"above":9223372036854775808,
        "list":[-9223372036854775808,9223372036854775807],"after":1})",
        [](const JSONValue& root) {
            const auto object = root.object();
            EXPECT_FALSE(object.lenient<std::int64_t>("wide"));
            EXPECT_EQ(object.required<double>("wide"), -1e20);
            EXPECT_FALSE(object.lenient<std::int64_t>("below"));
            EXPECT_FALSE(object.lenient<std::int64_t>("above"));
            EXPECT_EQ(object.required<std::vector<std::int64_t>>("list"),
                (std::vector<std::int64_t>{INT64_MIN, INT64_MAX}));
            EXPECT_EQ(object.required<std::int64_t>("after"), 1);
            return 0;
        });
    EXPECT_THROW(decodeJSON<std::vector<double>>("[99999999999999999999,01]"), DecodingError);
}

TEST(JSONReading, oneDocumentMayBeReadInsideAnother) {
    const auto sum = readJSON("[1]", [](const JSONValue& outer) {
        const auto inner = decodeJSON<std::int64_t>("41");
        for (const auto element : outer.array())
            return *JSONValue(element).integer() + inner;
        return std::int64_t{0};
    });
    EXPECT_EQ(sum, 42);
}

TEST(JSONReading, anObjectCanBeKeptAsText) {
    const std::string text = R"({"a":[1,{"b":"x\"\n\u00fc"}],"c":null,"d":-2.5})";
    const auto kept = readJSON(text, [](const JSONValue& root) { return root.object().text(); });
    EXPECT_EQ(kept, R"({"a":[1,{"b":"x\"\nü"}],"c":null,"d":-2.5})");
}
