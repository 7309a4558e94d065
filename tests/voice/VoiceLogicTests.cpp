#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/voice/DictationURL.h"
#include "KelvadromeKit/voice/OpenAITranscriber.h"
#include "KelvadromeKit/voice/VerifiedDictationApp.h"
#include "KelvadromeKit/voice/VoiceRoute.h"
#include "KelvadromeKit/voice/VoiceScan.h"
#include "KelvadromeKit/voice/VoiceSettings.h"
#include "KelvadromeKit/voice/WAV.h"

#include "tests/support/TemporaryFolder.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace kelvadrome::test {
namespace {

using Names = std::vector<std::string>;

TEST(WAV, aFileIsWhatOthersReadAsOne) {
    const std::vector<std::int16_t> samples{1, -2, 0x1234};
    const std::string expected(
        "RIFF\x2a\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\x3e\0\0\0\x7d\0\0\2\0\x10\0data\6\0\0\0"
        "\1\0\xfe\xff\x34\x12",
        50);
    EXPECT_EQ(WAV::encode(samples, 16000), expected);
    EXPECT_EQ(WAV::encode({}, 16000).size(), 44U);
    EXPECT_EQ(WAV::silence(0.99999, 10).size(), 44U + 2 * 9);
    EXPECT_EQ(WAV::duration(44 + 32000, 16000), 1);
    EXPECT_EQ(WAV::duration(10, 16000), 0);
}

TEST(OpenAITranscriber, theRequestIsOneFormOfThreeParts) {
    const auto request = OpenAITranscriber::request("W\0\r\n", "m", "k", "b");
    EXPECT_EQ(request.url, "https://api.openai.com/v1/audio/transcriptions");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, 60);
    EXPECT_EQ(request.headers, (std::map<std::string, std::string>{{"Authorization", "Bearer k"},
                                   {"Content-Type", "multipart/form-data; boundary=b"}}));
    EXPECT_EQ(request.body, "--b\r\nContent-Disposition: form-data; name=\"model\"\r\n\r\nm\r\n"
                            "--b\r\nContent-Disposition: form-data; name=\"response_format\"\r\n\r\njson\r\n"
                            "--b\r\nContent-Disposition: form-data; name=\"file\"; filename=\"clip.wav\"\r\n"
                            "Content-Type: audio/wav\r\n\r\nW\r\n--b--\r\n");
}

TEST(DictationURL, onlyPlainFillsAndDeclaredSchemesMakeAURL) {
    struct Row {
        std::string action;
        std::optional<std::string> fill;
        std::optional<std::string> url;
    };
    const std::string longest(64, 'a');
    const auto& app = DictationURLApp::superwhisper();
    for (const auto& [action, fill, url] : {Row{"mode", "kelvadrome", "superwhisper://mode?key=kelvadrome"},
             Row{"mode", longest, "superwhisper://mode?key=" + longest}, Row{"mode", longest + "a", {}},
             Row{"mode", "Has Space", {}}, Row{"mode", "a&b", {}}, Row{"mode", "a\n", {}},
             Row{"mode", "", {}}, Row{"mode", {}, {}}, Row{"start", {}, "superwhisper://record/start"},
             Row{"start", "x", {}}, Row{"start_mode", "x", {}}})
        EXPECT_EQ(DictationURL::render(app, action, fill), url) << action << " " << fill.value_or("-");
    EXPECT_EQ(DictationURL::render(DictationURLApp::spokenly(), "start_mode", "a_b-1"),
        "spokenly://start?mode_id=a_b-1");
    auto other = app;
    other.declared = {"superwhisper-debug"};
    EXPECT_EQ(DictationURL::render(other, "start"), std::nullopt);
}

TEST(VoiceRoute, eachWayIsTriedInItsOrder) {
    using Kind = VoiceRoute::Kind;
    using Apple = AppleSpeechState;
    struct Row {
        VoiceRoute::Facts facts; // selected, control, start and stop, OpenAI, key, Apple, local
        Kind kind;
    };
    for (const auto& [facts, kind] :
        {Row{{"superwhisper", true, true, true, true, Apple::ready, true}, Kind::urlApp},
            Row{{"superwhisper", false, true, true, true, Apple::ready, true}, Kind::appKey},
            Row{{"superwhisper", true, false, true, true, Apple::ready, true}, Kind::appKey},
            Row{{"parakeet", true, true, true, true, Apple::ready, true}, Kind::local},
            Row{{"parakeet", true, true, true, true, Apple::ready, false}, Kind::openAI},
            Row{{"none", false, false, true, true, Apple::ready, true}, Kind::openAI},
            Row{{"openai", false, false, false, true, Apple::ready, false}, Kind::apple},
            Row{{"openai", false, false, true, false, Apple::ready, false}, Kind::apple},
            Row{{"openai", false, false, true, false, Apple::needsAsset, false}, Kind::none},
            Row{{"apple-on-device", false, false, true, true, Apple::ready, false}, Kind::apple},
            Row{{"apple-on-device", false, false, true, true, Apple::unknown, true}, Kind::none}}) {
        const auto route = VoiceRoute::decide(facts);
        EXPECT_EQ(route.kind, kind) << facts.selected;
        EXPECT_EQ(route.holdCapable(), kind != Kind::appKey && kind != Kind::none);
    }
    const MicrophoneState none, refused{true, false}, unknown{true, {}};
    EXPECT_TRUE(BarInput::micUsable({Kind::openAI}, unknown) && BarInput::micUsable({Kind::urlApp}, none));
    EXPECT_FALSE(BarInput::micUsable({Kind::openAI}, refused) || BarInput::micUsable({Kind::none}, unknown));
    EXPECT_EQ(BarInput::textModeLine({Kind::local}, none), "No microphone found. Type your request.");
    EXPECT_FALSE(
        BarInput::textModeLine({Kind::apple}, unknown) || BarInput::textModeLine({Kind::none}, none));
}

TEST(VoiceWire, whatIsLeftOutHasADefault) {
    EXPECT_EQ(decodeJSON<VoiceSettingsWire>("{}"), VoiceSettingsWire());
    const auto settings = decodeJSON<VoiceSettingsWire>(
        R"({"selected":"openai","live":true,"bar_hotkey":"Option A","hold_to_talk":true,"auto_start":true,
            "openai_enabled":false,"openai_model":"m","daily_minutes_cap":5,"parse_agent":"codex",
            "superwhisper_mode":true,"used_minutes":1.5,"more":1})");
    EXPECT_EQ(settings,
        (VoiceSettingsWire{"openai", true, "Option A", true, true, false, "m", 5, "codex", true, 1.5}));
    const auto scan = decodeJSON<VoiceScan>(
        R"({"selected":"x","hint":"","apps":[{"id":"x","name":"X","team_ok":false}],"builtin":{"local":"ready"}})");
    EXPECT_TRUE(scan.localReady());
    EXPECT_EQ(scan.app("x")->teamOK, false);
    EXPECT_FALSE(decodeJSON<VoiceScan>(R"({"selected":"none","hint":"","apps":[]})").localReady());
}

/// Folders of applications, and one beside them.
class BundleVerifierTest : public testing::Test {
public:
    std::string put(const std::string& folder, const std::string& name, const std::string& id,
        const Names& schemes) const {
        const auto bundle = at(folder + "/" + name);
        std::string all;
        for (const auto& scheme : schemes)
            all += "<string>" + scheme + "</string>";
        Files::makeFolders(bundle + "/Contents", 0700);
        Files::replace(bundle + "/Contents/Info.plist",
            fmt::format("<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>{}</string>"
                        "<key>CFBundleURLTypes</key><array><string>no</string><dict>"
                        "<key>CFBundleURLSchemes</key><array><true/>{}</array></dict></array></dict></plist>",
                id, all),
            0600, false);
        return bundle;
    }
    std::string at(const std::string& path) const { return root_.path().string() + "/" + path; }
    std::vector<std::string> roots() const { return {at("none"), at("Applications"), at("more")}; }

    const DictationURLApp& app = DictationURLApp::superwhisper();

private:
    TemporaryFolder root_;
};

TEST_F(BundleVerifierTest, aBundleIsFoundUnderAKnownRootOnly) {
    const auto downloads = put("Downloads", "superwhisper.app", app.bundleIds[0], {"superwhisper"});
    Files::makeFolders(at("Applications"), 0700);
    std::filesystem::create_directory_symlink(downloads, at("Applications/superwhisper.app"));
    EXPECT_EQ(BundleVerifier::locate(app, roots()), std::nullopt);
    EXPECT_EQ(BundleVerifier::locateAt(downloads, app, roots()), std::nullopt);
    EXPECT_EQ(BundleVerifier::locateAt(at("Applications/superwhisper.app"), app, roots()), std::nullopt);

    const auto real = put("more", "superwhisper.app", app.bundleIds[0], {"superwhisper"});
    EXPECT_EQ(BundleVerifier::locate(app, roots()), real);
    EXPECT_EQ(BundleVerifier::locateAt(at("more/../more/superwhisper.app"), app, roots()), real);
    const auto renamed = put("more", "other.app", app.bundleIds[0], {"superwhisper"});
    EXPECT_EQ(BundleVerifier::locateAt(renamed, app, roots()), std::nullopt);
    EXPECT_EQ(BundleVerifier::expand("~/Applications/x", "/h"), "/h/Applications/x");
    EXPECT_EQ(BundleVerifier::expand("~other/x", "/h"), "~other/x");
}

TEST_F(BundleVerifierTest, aBundleSaysWhoItIsAndWhatItAnswersTo) {
    struct Row {
        std::string id;
        Names schemes;
        std::optional<bool> teamOK;
        std::optional<Names> kept;
        bool startStop = false;
    };
    const auto& id = app.bundleIds[0];
    for (const auto& row : {Row{id, {"mailto", "superwhisper"}, {}, Names{"superwhisper"}, true},
             Row{id, {"superwhisper"}, true, Names{"superwhisper"}, true},
             Row{id, {"superwhisper"}, false, {}},
             Row{id, {"superwhisper-debug"}, {}, Names{"superwhisper-debug"}, false},
             Row{id, {"mailto"}, {}, {}}, Row{"com.evil", {"superwhisper"}, true, {}}}) {
        const auto bundle = put("Applications", "superwhisper.app", row.id, row.schemes);
        const auto verified = BundleVerifier::verify(app, bundle, row.teamOK);
        ASSERT_EQ(verified.has_value(), row.kept.has_value()) << row.id << " " << row.schemes[0];
        if (!verified)
            continue;
        EXPECT_EQ(verified->schemes, row.kept);
        EXPECT_EQ(verified->canStartStop(), row.startStop);
    }
    const auto bundle = at("Applications/superwhisper.app");
    for (const auto* const text :
        {"", "nonsense", "<plist version=\"1.0\"><array/></plist>", "bplist00junk"}) {
        Files::replace(bundle + "/Contents/Info.plist", text, 0600, false);
        EXPECT_EQ(BundleVerifier::verify(app, bundle, true), std::nullopt) << text;
    }
    const auto signedBy = [](std::optional<std::string> team) {
        return [team](const auto&) { return team; };
    };
    EXPECT_TRUE(CodeSignature::teamMatches(app, bundle, signedBy("XDP69BYUP9")));
    EXPECT_FALSE(CodeSignature::teamMatches(app, bundle, signedBy("OTHER")));
    EXPECT_FALSE(CodeSignature::teamMatches(app, bundle, signedBy({})));
    EXPECT_FALSE(CodeSignature::teamMatches(DictationURLApp::spokenly(), bundle, signedBy({})));
}

} // namespace
} // namespace kelvadrome::test
