#include "KelvadromeKit/relay/RelayCode.h"
#include "KelvadromeKit/relay/RelayConnectorPlan.h"
#include "KelvadromeKit/relay/RelayQR.h"
#include "KelvadromeKit/relay/RelayStatus.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

namespace kelvadrome::test {
namespace {

TEST(RelayCode, itKeepsTheFirstSixAsciiDigits) {
    EXPECT_EQ(RelayCode::digits(" 12-34 56789"), "123456");
    EXPECT_EQ(RelayCode::digits("12a"), "12");
    EXPECT_EQ(RelayCode::digits("abc"), "");
    EXPECT_EQ(RelayCode::digits("\u0661\u0662 7"), "7") << "digits of other scripts are none";
}

TEST(RelayStatus, aReplyIsReadWholeOrNotAtAll) {
    const std::string whole = R"({"enabled":true,"connector":{"connected":false,"error":"refused"},
        "mac":{"id":"m","fingerprint":"AA BB"},"devices":[{"id":"d","name":"Phone","kind":"iphone",
        "fingerprint":"CC","face_id":true,"paired_at":"2026-01-31T09:30:00Z","last_seen":null}],
        "pairing":{"id":"p","state":"joined","expires_at":"2026-01-31T09:32:00Z","phone_name":"New"},
        "relay_url":"wss://r","app_url":"https://a"})";
    const auto status = decodeJSON<RelayStatus>(whole);
    EXPECT_TRUE(status.enabled);
    EXPECT_EQ(status.connector.error, "refused");
    EXPECT_EQ(status.devices.at(0),
        (RelayStatus::Device{"d", "Phone", "iphone", "CC", true, "2026-01-31T09:30:00Z"}));
    EXPECT_EQ(status.pairing, (RelayStatus::Pairing{"p", "joined", "2026-01-31T09:32:00Z", "New"}));

    for (const auto* key : {"enabled", "connector", "connected", "id", "fingerprint", "devices", "kind",
             "face_id", "paired_at", "state", "expires_at", "relay_url", "app_url"}) {
        auto text = whole;
        text.replace(text.find("\"" + std::string(key) + "\""), 1, "\"x");
        EXPECT_THROW(decodeJSON<RelayStatus>(text), DecodingError) << key;
    }
    const std::string start = R"({"pairing_id":"p","url":"u","expires_at":"t"})";
    EXPECT_EQ(decodeJSON<RelayPairStart>(start), (RelayPairStart{"p", "u", "t"}));
}

TEST(RelayConnectorPlan, itTakesTheFirstProgramThatIsThereAndLittleOfTheEnvironment) {
    const DaemonEnvironment env("/home/h", std::nullopt, "/r");
    const std::string first = "/r/kelvadrome/node_modules/@kelvadrome/relay/dist/bin.js";
    const std::string second = "/r/kelvadrome/node_modules/@kelvadrome/daemon/../relay/dist/bin.js";
    const EnvironmentMap base{{"PATH", "/bin"}, {"HOME", "/u"}, {"NODE_OPTIONS", "--inspect"}};
    const auto make = [&](std::vector<std::string> present) {
        return RelayConnectorPlan::make(
            env, "/n", base, [&](const std::string& path) { return std::ranges::count(present, path) > 0; });
    };
    EXPECT_EQ(make({}), std::nullopt);
    EXPECT_EQ(make({first, second})->arguments,
        (std::vector<std::string>{first, "connect", "--socket", "/home/h/kelvadromed.sock"}));
    const auto plan = make({second});
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->node, "/n");
    EXPECT_EQ(plan->arguments.front(), second);
    EXPECT_EQ(plan->environment,
        (EnvironmentMap{{"HOME", "/u"}, {"KELVADROME_HOME", "/home/h"}, {"NODE_ENV", "production"}}));
    const DaemonEnvironment bare("/home/h", std::nullopt, std::nullopt);
    EXPECT_EQ(RelayConnectorPlan::make(bare, "/n", base, [](const auto&) { return true; }), std::nullopt);
}

TEST(RelayQR, aReaderFindsTheTextInThePicture) {
    TemporaryFolder folder;
    for (const auto& text : {std::string("HELLO"), "https://phone.example/#" + std::string(500, 'x') + "/"}) {
        for (const std::size_t scale : {3, 8}) {
            const auto picture = RelayQR::image(text, scale);
            ASSERT_TRUE(picture);
            ASSERT_EQ(picture->width % scale, 0U);
            const auto path = folder / "code.pgm";
            std::ofstream(path) << "P5 " << picture->width << " " << picture->height << " 255\n"
                                << std::string(picture->pixels.begin(), picture->pixels.end());
            auto* const reader =
                ::popen(("zbarimg -q --nodbus --raw -Sdisable -Sqrcode.enable " + path).c_str(), "r");
            ASSERT_TRUE(reader);
            std::string read(1000, '\0');
            read.resize(std::fread(read.data(), 1, read.size(), reader));
            ::pclose(reader);
            EXPECT_EQ(read, text + "\n") << "scale " << scale;
        }
    }
    EXPECT_EQ(RelayQR::image("", 8), std::nullopt);
    EXPECT_EQ(RelayQR::image("x", 0), std::nullopt);
    EXPECT_EQ(RelayQR::image(std::string(3000, 'x'), 1), std::nullopt) << "more than a code holds";
}

} // namespace
} // namespace kelvadrome::test
