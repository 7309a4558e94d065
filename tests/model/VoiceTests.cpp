#include "Kelvadrome/model/VoiceSettings.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/FakeVoice.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using Lines = std::vector<std::string>;
using Kind = VoiceRoute::Kind;

const std::string settingsPath = "/v1/voice/settings", scanPath = "/v1/voice/scan";
const std::string usedPath = "/v1/voice/engine/used", reservePath = "/v1/voice/budget/reserve";

/// A voice model over a daemon on a real socket, with a key, a microphone and a speech engine.
class VoiceTest : public testing::Test {
public:
    VoiceTest() {
        secrets->set("key");
        settings("{}");
        scan("openai");
        for (const auto* path : {"/v1/voice/settings", "/v1/voice/engine/status", "/v1/voice/engine/used"})
            daemon.on(path, FakeReply::data("{}"));
        daemon.on(
            reservePath, FakeReply::data(R"({"reservation_id":"r","denied":true})")); // the id alone decides
        daemon.on("/v1/voice/transcribe", FakeReply::data(R"({"text":"by the daemon"})"));
        make();
    }
    ~VoiceTest() override { clock->letGo(); }

    void make() {
        voice = VoiceModel::make({.executor = loop.executor(),
            .pool = &loop.pool(),
            .clock = clock,
            .client = DaemonClient(daemon.socketPath(), loop.pool()),
            .secrets = secrets,
            .http = http,
            .audio = audio,
            .speech = speech,
            .opener = app,
            .modes = app,
            .journal = std::make_shared<MemoryModeJournal>(),
            .signature = {},
            .locale = "en_US.UTF-8",
            .home = folder.path().string(),
            .roots = {folder.path().string() + "/Applications"}});
        voice->onText = [this](const std::string& text) { texts.push_back(text); };
    }
    void settings(const std::string& json) { daemon.on(settingsPath + "/get", FakeReply::data(json)); }
    void scan(const std::string& selected, const std::string& rest = "") {
        daemon.on(scanPath,
            FakeReply::data(fmt::format(R"({{"selected":"{}","hint":"","apps":[]{}}})", selected, rest)));
    }
    /// A dictation app that can be driven without a signature.
    void installSpokenly() {
        const auto contents = folder.path().string() + "/Applications/Spokenly.app/Contents";
        Files::makeFolders(contents, 0700);
        Files::replace(contents + "/Info.plist",
            "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>app.spokenly</string>"
            "<key>CFBundleURLTypes</key><array><dict><key>CFBundleURLSchemes</key><array><string>spokenly"
            "</string></array></dict></array></dict></plist>",
            0600, false);
        scan("spokenly");
        settings(R"({"hold_to_talk":true})");
    }
    void refresh(bool force = true) { loop.run(voice->refresh(force)); }
    void open() {
        loop.run(voice->barOpened());
        loop.drain();
    }
    void close() {
        loop.run(voice->barClosed());
        loop.drain();
    }
    void press() {
        loop.run(voice->holdStart());
        loop.drain();
    }
    void release() {
        loop.run(voice->holdStop());
        loop.drain();
    }
    /// Refreshed, the bar open, and the key held until the microphone is.
    void listen() {
        refresh();
        open();
        press();
        until([&] { return state().listening; }, "the microphone");
    }
    void speak(std::size_t samples = 16000) {
        listen();
        audio->hear(samples);
        release();
    }
    void rest() {
        until([&] { return !state().transcribing; }, "the text");
    }
    void until(const std::function<bool()>& condition, const std::string& what) {
        loop.until(condition, what);
    }
    const VoiceState& state() const { return voice->state(); }
    std::string line() const { return voice->status().value_or(""); }
    Lines bodies(const std::string& path) const {
        Lines all;
        for (const auto& request : daemon.requests(path))
            all.push_back(request.body);
        return all;
    }

    TestLoop loop;
    TemporaryFolder folder;
    FakeDaemon daemon;
    const std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    const std::shared_ptr<MemorySecretStore> secrets = std::make_shared<MemorySecretStore>();
    const std::shared_ptr<FakePoster> http = std::make_shared<FakePoster>();
    const std::shared_ptr<FakeAudio> audio = std::make_shared<FakeAudio>();
    const std::shared_ptr<FakeSpeech> speech = std::make_shared<FakeSpeech>();
    const std::shared_ptr<FakeDictationApp> app = std::make_shared<FakeDictationApp>();
    std::shared_ptr<VoiceModel> voice;
    Lines texts;
};

TEST_F(VoiceTest, whatIsSpokenBecomesTextOnEachRoute) {
    struct Row {
        std::string selected, rest, text, meanwhile = "Transcribing.";
    };
    for (const auto& row : {Row{"openai", "", "hello"}, Row{"apple-on-device", "", "heard here"},
             Row{"parakeet", R"(,"builtin":{"local":"ready"})", "by the daemon",
                 "Transcribing on this Mac."}}) {
        scan(row.selected, row.rest);
        texts.clear();
        listen();
        EXPECT_EQ(line(), "Listening.");
        audio->hear(1601);
        speech->working.holds = true;
        loop.run(voice->micPressed());
        EXPECT_EQ(line(), row.meanwhile);
        speech->working.open();
        EXPECT_FALSE(state().listening || audio->isOpen());
        rest();
        EXPECT_EQ(texts, Lines{row.text});
        EXPECT_EQ(line(), "");
    }
    EXPECT_EQ(http->sent.size(), 1U);
    EXPECT_EQ(bodies(reservePath), Lines{R"({"engine":"openai","model":"gpt-transcribe","seconds":1})"});
    EXPECT_EQ(bodies(usedPath), Lines{R"({"reservation_id":"r","seconds":1,"ok":true})"});
    EXPECT_EQ(bodies("/v1/voice/transcribe")[0].size(), std::string(R"({"pcm16_b64":""})").size() + 4272);

    speak(1600);
    EXPECT_FALSE(state().transcribing);
    EXPECT_EQ(line(), "");
    press();
    EXPECT_TRUE(state().listening) << "the gate is free again";
}

TEST_F(VoiceTest, aPressThatWasTakenBackRecordsNothing) {
    refresh();
    open();
    struct Row {
        std::string name;
        Barrier& at;
        std::function<void()> takeBack;
    };
    const auto reopen = [this] {
        close();
        open();
    };
    for (const auto& row : {Row{"released while asked", audio->access, [this] { release(); }},
             Row{"released while it opens", audio->opening, [this] { release(); }},
             Row{"closed while asked", audio->access, reopen},
             Row{"closed while it opens", audio->opening, reopen}}) {
        row.at.holds = true;
        press();
        press();
        EXPECT_EQ(row.at.waiting(), 1U) << row.name;
        row.takeBack();
        row.at.open();
        loop.drain();
        EXPECT_FALSE(state().listening || audio->isOpen()) << row.name;
        press();
        EXPECT_TRUE(state().listening) << row.name << ": " << line();
        release();
    }
    // Another press while the first one's question is still open: one recording, that of the second.
    audio->access.holds = true;
    press();
    reopen();
    press();
    audio->access.open();
    loop.drain();
    EXPECT_TRUE(state().listening);
    release();

    audio->broken = true;
    press();
    EXPECT_EQ(line(), "The microphone did not start.");
    audio->allowed = false;
    press();
    EXPECT_EQ(line(), "Microphone access is off. Turn it on in System Settings, Privacy and Security.");
    audio->allowed = true;
    audio->broken = false;
    press();
    EXPECT_TRUE(state().listening);
    close();
    EXPECT_FALSE(state().listening || audio->isOpen());
    EXPECT_EQ(http->sent.size() + bodies(reservePath).size(), 0U);
}

TEST_F(VoiceTest, aTextOfAnEarlierOpeningIsDropped) {
    http->wire.holds = true;
    speak();
    until([&] { return http->wire.waiting() == 1; }, "the clip on its way");
    press();
    EXPECT_EQ(line(), "1 recording is already running.");
    close();
    EXPECT_FALSE(state().transcribing);
    open();
    press();
    EXPECT_TRUE(state().listening);
    until([&] { return bodies(usedPath).size() == 1; }, "the settlement");
    EXPECT_EQ(bodies(usedPath)[0], R"({"reservation_id":"r","seconds":1,"ok":false})");
    http->wire.open();
    loop.drain();
    EXPECT_EQ(texts, Lines{});
    EXPECT_EQ(line(), "Listening.");
    audio->hear(5000);
    release();
    rest();
    EXPECT_EQ(texts, Lines{"hello"});
}

TEST_F(VoiceTest, overTheLimitThisMachineHears) {
    daemon.on(reservePath, FakeReply::data(R"({"denied":true,"used_minutes":30.5})"));
    speech->installed = {};
    speak();
    rest();
    EXPECT_EQ(line(), "Daily voice limit reached.");
    EXPECT_EQ(voice->route().kind, Kind::openAI);
    close();

    speech->installed = {"en-US"};
    make();
    speak();
    rest();
    EXPECT_EQ(line(), "Daily voice limit reached. Using Apple speech.");
    EXPECT_EQ(texts, Lines{"heard here"});
    EXPECT_EQ(state().usedMinutes, 30.5);
    EXPECT_EQ(voice->route().kind, Kind::apple);
    EXPECT_EQ(voice->routeLine(), "Speech on this machine: today's voice limit is reached.");
    speech->broken = true;
    speak();
    rest();
    EXPECT_EQ(line(), "Couldn't transcribe that. Try again.");
    EXPECT_EQ(http->sent.size(), 0U);
    EXPECT_EQ(bodies(reservePath).size(), 2U);
}

TEST_F(VoiceTest, aRecordingEndsByItself) {
    listen();
    audio->hear(MicRecorder::limit + 1);
    audio->hear(1);
    until([&] { return !texts.empty(); }, "the text");
    EXPECT_EQ(bodies(usedPath), Lines{R"({"reservation_id":"r","seconds":120,"ok":true})"});

    listen();
    audio->hear(5000);
    audio->lost()();
    until([&] { return texts.size() == 2; }, "what was heard before the device went");
    for (const bool atOnce : {false, true}) {
        audio->losesAtOnce = atOnce;
        press();
        if (!atOnce)
            audio->lost()();
        until([&] { return !audio->isOpen(); }, "the end of a recording without a device");
        EXPECT_EQ(line(), "The microphone went away.");
    }
    audio->losesAtOnce = false;

    listen();
    const auto heard = audio->heard();
    const auto lost = audio->lost();
    voice.reset();
    EXPECT_FALSE(audio->isOpen());
    heard(std::vector<std::int16_t>(MicRecorder::limit + 1)); // on its way when the model ended
    lost();
    loop.drain();
}

TEST_F(VoiceTest, whatWasBegunForThisMachineStaysHere) {
    scan("apple-on-device");
    listen();
    audio->hear(5000);
    scan("openai");
    refresh();
    EXPECT_EQ(voice->route().kind, Kind::openAI);
    release();
    rest();
    EXPECT_EQ(texts, Lines{"heard here"});
    close();

    listen();
    audio->hear(5000);
    installSpokenly();
    refresh();
    release();
    EXPECT_FALSE(state().listening) << "ended where it was begun";
    rest();
    EXPECT_EQ(http->sent.size(), 0U);
    EXPECT_EQ(app->opened, Lines{});
}

TEST_F(VoiceTest, aDictationAppIsDrivenAndItsAnswerAwaited) {
    installSpokenly();
    refresh();
    open();
    EXPECT_EQ(voice->hint(), "Hold Control Option B to talk (Spokenly).");
    press();
    EXPECT_EQ(line(), "Listening in Spokenly.");
    EXPECT_TRUE(voice->recording() && voice->holdCapable());
    release();
    voice->textChanged();
    EXPECT_EQ(line(), "Text received.");
    loop.advance(*clock, 61);
    EXPECT_EQ(line(), "Text received.");

    loop.run(voice->holdStart()); // so short that both come at once
    loop.run(voice->holdStop());
    loop.drain();
    EXPECT_EQ(
        app->opened, (Lines{"spokenly://start", "spokenly://stop", "spokenly://start", "spokenly://stop"}));
    loop.advance(*clock, 30);
    press(); // another one, for which the first one's wait doesn't count
    loop.advance(*clock, 31);
    EXPECT_EQ(line(), "Listening in Spokenly.");
    loop.run(voice->micPressed());
    loop.advance(*clock, 61);
    EXPECT_EQ(line(), "Spokenly did not answer.");

    press();
    close();
    EXPECT_EQ(app->opened.back(), "spokenly://stop") << "closing the bar ends it";
    settings("{}");
    refresh();
    EXPECT_EQ(voice->route(), (VoiceRoute{Kind::appKey, "spokenly"}));
    EXPECT_EQ(voice->hint(), "Use your Spokenly key to talk.");
    press();
    EXPECT_EQ(app->opened.back(), "spokenly://stop");

    settings(R"({"hold_to_talk":true,"auto_start":true})");
    refresh();
    open();
    EXPECT_EQ(app->opened.back(), "spokenly://start");
    scan("superwhisper");
    refresh();
    loop.drain();
    EXPECT_EQ(app->opened.back(), "spokenly://stop") << "another app was selected";
    EXPECT_EQ(voice->route(), (VoiceRoute{Kind::appKey, "superwhisper"})) << "nobody signed it";
}

TEST_F(VoiceTest, aRefreshReadsAllAndTellsTheDaemon) {
    settings(R"({"openai_enabled":false,"used_minutes":2.5,"bar_hotkey":"Option A"})");
    open();
    until([&] { return !bodies("/v1/voice/engine/status").empty(); }, "the refresh of the bar");
    EXPECT_EQ(bodies("/v1/voice/engine/status"), Lines{R"({"openai":"no_key","apple":"ready"})"});
    EXPECT_EQ(bodies(scanPath), Lines{R"({"force":false})"});
    EXPECT_EQ(state().usedMinutes, 2.5);
    EXPECT_TRUE(state().settingsKnown && state().key.saved && voice->micUsable());
    clock->advance(60);
    close();
    open();
    EXPECT_EQ(bodies(scanPath).size(), 1U) << "fresh still";
    clock->advance(1);
    daemon.on(scanPath, FakeReply::failure("not_implemented", "x"));
    daemon.on(settingsPath + "/get", FakeReply::failure("not_found", "x"));
    secrets->remove();
    close();
    open();
    until([&] { return !state().scan; }, "a daemon without voice");
    EXPECT_EQ(state().settings, VoiceSettingsWire());
    EXPECT_FALSE(state().settingsKnown || state().key.saved);
    EXPECT_EQ(voice->route().kind, Kind::apple);
}

TEST_F(VoiceTest, settingsAreSavedInTurnOrTakenBack) {
    refresh();
    const auto gate = std::make_shared<FakeGate>();
    daemon.on(settingsPath, FakeReply::data("{}").heldBy(gate));
    voice->save(VoiceSettingChange::holdToTalk(true));
    voice->save(VoiceSettingChange::dailyMinutesCap(5));
    voice->save(VoiceSettingChange::holdToTalk(false));
    voice->save(VoiceSettingChange::selected("apple-on-device"));
    refresh();
    EXPECT_FALSE(state().settings.holdToTalk);
    EXPECT_EQ(state().settings.dailyMinutesCap, 5) << "what isn't saved yet shows all the same";
    EXPECT_EQ(voice->route().kind, Kind::apple);
    scan("apple-on-device");
    gate->open();
    until([&] { return bodies(scanPath).size() == 3; }, "the changes and the scan");
    EXPECT_EQ(bodies(settingsPath), (Lines{R"({"hold_to_talk":true})", R"({"daily_minutes_cap":5})",
                                        R"({"hold_to_talk":false})", R"({"selected":"apple-on-device"})"}));
    EXPECT_EQ(state().saveLine, std::nullopt);
    for (const auto& [code, words] : std::vector<std::pair<std::string, std::string>>{
             {"not_implemented", "This setting saves once the daemon's voice routes land."},
             {"internal", "The setting was not saved."}}) {
        daemon.on(settingsPath, FakeReply::failure(code, "x"));
        voice->save(VoiceSettingChange::live(true));
        EXPECT_TRUE(state().settings.live);
        EXPECT_EQ(state().saveLine, std::nullopt);
        until([&] { return state().saveLine.has_value(); }, "the refusal");
        EXPECT_EQ(state().saveLine, words);
        EXPECT_FALSE(state().settings.live);
    }
}

TEST_F(VoiceTest, theKeyIsKeptTriedAndTakenAway) {
    refresh();
    voice->saveKey("  ");
    until([&] { return state().key.message.has_value(); }, "the refusal");
    EXPECT_EQ(state().key, (SecretField{"", true, "The key was not saved."}));
    voice->saveKey(" new ");
    until([&] { return state().key.message == "Key saved"; }, "the key");
    settings(R"({"used_minutes":4})");
    for (const auto& [status, words] : std::vector<std::pair<std::int64_t, std::string>>{
             {200, "The key works."}, {401, "OpenAI refused the key (401)."}}) {
        http->reply.status = status;
        voice->testKey();
        voice->testKey();
        until([&] { return !state().testing; }, "the test");
        EXPECT_EQ(state().testLine, words);
    }
    until([&] { return state().usedMinutes == 4; }, "what the tests have used");
    EXPECT_EQ(http->sent.size(), 2U);
    EXPECT_EQ(http->sent[0].headers.at("Authorization"), "Bearer new");
    voice->removeKey();
    until([&] { return state().key.message == "Key removed"; }, "the key gone");
    EXPECT_EQ(voice->route().kind, Kind::apple);
    secrets->set("by another");
    voice->keyChanged();
    until([&] { return voice->route().kind == Kind::openAI; }, "the key of another");
}

TEST_F(VoiceTest, thePaneShowsHowThingsStand) {
    const auto row = [](const VoiceFacts& facts, const std::string& id) {
        for (const auto& group : voicePane(facts, {})) {
            if (const auto at = std::ranges::find(group.rows, id, &SettingsRow::id); at != group.rows.end())
                return *at;
        }
        return SettingsRow{.id = "", .title = "", .value = "no such row"};
    };
    VoiceFacts facts{.key = BarKeyState{"F5", HotkeyOutcome::taken()}};
    const auto shows = [&](const char* id, const std::string& words) {
        const auto found = row(facts, id);
        EXPECT_TRUE(found.value == words || found.detail == words)
            << id << ": " << found.value << ", " << found.detail;
    };
    shows("voice-microphone", "None found");
    shows("voice-used", "Not told by the daemon");
    shows(SettingsId::barKey, "Taken by another app");
    shows(VoiceRowId::superwhisperMode, "no such row");
    facts.voice.microphone = {true, false};
    facts.voice.usedMinutes = 1.25;
    facts.keyNotice = "no key";
    shows("voice-microphone", "Access is off");
    shows("voice-used", "1.2 of 30 minutes");
    shows(SettingsId::barKey, "no key");
    EXPECT_EQ(voiceLimits(45), (std::vector<std::int64_t>{5, 15, 30, 45, 60, 120}));
}

TEST_F(VoiceTest, theTypedKeyStaysUntilItIsSaved) {
    refresh();
    VoiceSettings pane(loop.executor(), voice, {});
    const auto typed = [&] {
        const auto groups = pane.pane();
        const auto group = std::ranges::find(groups, "voice-openai", &SettingsGroup::id);
        const auto row = std::ranges::find(group->rows, VoiceRowId::key, &SettingsRow::id);
        return std::get<SettingsRow::Field>(row->control).text;
    };
    const auto save = [&](const std::string& text) {
        pane.edit(VoiceRowId::key, text);
        pane.submit(VoiceRowId::key);
    };
    const auto said = [&](const std::string& words) {
        until([&] { return state().key.message == words; }, words);
        loop.drain();
    };
    save("one");
    said("Key saved");
    EXPECT_EQ(typed(), "");
    voice->save(VoiceSettingChange::live(true)); // a change that is told just when the next key was pressed
    save("  ");
    said("The key was not saved.");
    EXPECT_EQ(typed(), "  ");
    save("two");
    pane.edit(VoiceRowId::key, "three"); // while the one before is on its way
    said("Key saved");
    EXPECT_EQ(typed(), "three");
    pane.lookAway();
    EXPECT_EQ(typed(), "");
    pane.press(SettingsId::barKey);
    pane.record(SettingsId::barKey, "");
    pane.record(SettingsId::barKey, "Control F5");
    until([&] { return bodies(settingsPath).size() == 2; }, "the new key");
    EXPECT_EQ(bodies(settingsPath)[1], R"({"bar_hotkey":"Control F5"})")
        << "keys that make none change nothing";
}

TEST_F(VoiceTest, theEndSettlesWhatIsUnderWay) {
    http->wire.holds = true;
    speak();
    until([&] { return http->wire.waiting() == 1; }, "the clip on its way");
    bool ended = false;
    spawn(loop.executor(), "end", [](auto model, bool& done) -> Task<> {
        co_await model->finish();
        done = true;
    }(voice, ended));
    until(
        [&] {
            clock->advance(0.01);
            return ended;
        },
        "the end");
    EXPECT_EQ(bodies(usedPath), Lines{R"({"reservation_id":"r","seconds":1,"ok":false})"});
    EXPECT_EQ(texts, Lines{});
}

} // namespace
} // namespace kelvadrome::test
