#include "KelvadromeKit/wire/Envelope.h"

#include "tests/wire/Said.h"

#include <gtest/gtest.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

struct Named {
    std::string name;

    static Named decode(const JSONValue& value) { return {value.object().required<std::string>("name")}; }
};

/// What decoding gives: the name, "code: message (status)", or the decoder's words.
template <class T = Named>
std::string outcome(std::int64_t status, const std::string& body) {
    try {
        const auto value = Envelope::decode<T>({status, {}, body});
        if constexpr (std::is_same_v<T, Named>)
            return value.name;
        return "anything";
    } catch (const DaemonError& error) {
        EXPECT_EQ(error.what(), error.code() + ": " + error.message());
        return std::string(error.what()) + " (" + std::to_string(error.status()) + ")";
    } catch (const DecodingError& error) {
        return error.path() + "? " + error.problem().substr(0, 17);
    }
}

} // namespace

TEST(Envelope, aReplyIsARecordWhatTheDaemonSaidOrADecodingError) {
    struct Row {
        std::int64_t status;
        std::string body;
        std::string expected;
    };
    const std::string error = R"("error":{"code":"busy","message":"later"})";
    const Row rows[] = {
        {200, R"({"ok":true,"data":{"name":"a"}})", "a"},
        {299, R"({"data":{"name":"a"},"ok":true,"more":[1]})", "a"},
        {200, "{\"ok\":true,\"data\":{\"name\":\"a\"}," + error + "}", "a"},
        {200, "{\"ok\":false," + error + "}", "busy: later (200)"},
        {500, "{\"ok\":false," + error + "}", "busy: later (500)"},
        {200, "{\"ok\":false,\"data\":[[]]," + error + "}", "busy: later (200)"},
        {200, R"({"ok":false})", "internal: error (200)"},
        {404, R"({"ok":false,"error":null})", "internal: error (404)"},
        {200, R"({"ok":true})", "internal: empty answer (200)"},
        {200, R"({"ok":true,"data":null})", "internal: empty answer (200)"},
        {200, "{\"ok\":true," + error + "}", "busy: later (200)"},
        {500, "<html></html>", "internal: HTTP 500 (500)"},
        {404, "", "not_found: HTTP 404 (404)"},
        {302, R"({"ok":true,"data":{"name":"a"}})", "internal: HTTP 302 (302)"},
        {199, "[]", "internal: HTTP 199 (199)"},
        {502, R"({"ok":false,"error":{"code":"busy"}})", "internal: HTTP 502 (502)"},
        {502, R"({"ok":"false"})", "internal: HTTP 502 (502)"},
        {200, R"({"ok":true,"data":{}})", "data.name? is missing"},
        {200, R"({"ok":true,"data":{"name":5}})", "data.name? is not a string"},
        {200, R"({"ok":true,"data":{"name":"a"},"error":{"code":"busy"}})", "error.message? is missing"},
        {200, R"({"ok":false,"error":5})", "error? is not an object"},
        {200, R"({"data":{"name":"a"}})", "ok? is missing"},
        {200, "[]", "? is not an object"},
        {204, "", "? is not valid JSON"},
        {200, R"({"ok":true,"data":{"name":"a"}} x)", "? is not valid JSON"},
        {200, "{\"ok\":true,\"data\":{\"name\":\"\xFF\"}}", "? is not valid JSON"},
        {200, "{\"ok\":true,\"data\":{\"name\":\"a\"},\"\xC3\":1}", "? is not valid JSON"},
        {502, "{\"ok\":false,\"error\":{\"code\":\"busy\",\"message\":\"\xFF\"}}",
            "internal: HTTP 502 (502)"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(outcome(row.status, row.body), row.expected) << row.body;
}

TEST(Envelope, aReplyThatNobodyReadsMayBeAnything) {
    for (const std::string data : {"{}", "[1]", "5", "\"x\"", "false"}) {
        EXPECT_EQ(outcome<AnyDecodable>(200, "{\"ok\":true,\"data\":" + data + "}"), "anything");
    }
    EXPECT_EQ(outcome<AnyDecodable>(200, R"({"ok":true,"data":null})"), "internal: empty answer (200)");
}

TEST(DaemonError, onlyAMissingRouteReadsAsAnOlderDaemon) {
    EXPECT_TRUE(DaemonError("not_found", "", 404).isMissingRoute());
    EXPECT_TRUE(DaemonError("not_implemented", "", 501).isMissingRoute());
    EXPECT_FALSE(DaemonError("validation_failed", "", 404).isMissingRoute());
}
