#include "Kelvadrome/model/VoiceRows.h"

#include "Kelvadrome/model/BarKeyRows.h"
#include "KelvadromeKit/voice/DictationURL.h"
#include "KelvadromeKit/voice/OpenAITranscriber.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace kelvadrome {

namespace {

using Row = SettingsRow;

Row toggle(const char* id, std::string title, std::string detail, bool on) {
    return {.id = id, .title = std::move(title), .detail = std::move(detail), .control = Row::Toggle{on}};
}

Row choice(const char* id, std::string title, std::string detail, std::vector<std::string> words,
    std::size_t chosen) {
    return {.id = id,
        .title = std::move(title),
        .detail = std::move(detail),
        .control = Row::Choice{std::move(words), chosen}};
}

template <class Range, class Value>
std::size_t placeOf(const Range& range, const Value& value) {
    const auto found = std::ranges::find(range, value);
    return found == std::ranges::end(range) ? 0 : static_cast<std::size_t>(found - std::ranges::begin(range));
}

std::string microphoneLine(const MicrophoneState& microphone) {
    if (!microphone.inputDevice)
        return "None found";
    return microphone.authorized == false ? "Access is off" : "Found";
}

SettingsGroup speaking(const VoiceFacts& facts) {
    const auto choices = voiceChoices(facts);
    std::vector<std::string> words;
    for (const auto& one : choices)
        words.push_back(one.words);
    const auto chosen = std::ranges::find(choices, facts.selectedId, &VoiceChoice::id);
    SettingsGroup group{"voice-speaking", "Speaking", "Speak to the command bar, and the words stand in it.",
        {{.id = "voice-route", .title = "Now", .detail = facts.routeLine},
            choice(VoiceRowId::selected, "Speak with", "", std::move(words),
                chosen == choices.end() ? 0 : static_cast<std::size_t>(chosen - choices.begin())),
            {.id = "voice-microphone",
                .title = "Microphone",
                .value = microphoneLine(facts.voice.microphone)}}};
    if (facts.voice.saveLine)
        group.rows.push_back({.id = "voice-not-saved", .title = *facts.voice.saveLine});
    return group;
}

std::string engineLine(AppleSpeechState state) {
    switch (state) {
    case AppleSpeechState::ready:
        return "Ready";
    case AppleSpeechState::needsAsset:
        return "Its model is missing";
    case AppleSpeechState::unknown:
        break;
    }
    return "Not available";
}

SettingsGroup onThisMachine(const VoiceFacts& facts) {
    const auto& voice = facts.voice;
    return {"voice-machine", "On this machine", "What you say stays here.",
        {{.id = "voice-engine",
             .title = "Speech engine",
             .detail = voice.apple == AppleSpeechState::needsAsset
                           ? "The package pocketsphinx-en-us brings the model."
                           : "Understands plain English requests.",
             .value = engineLine(voice.apple)},
            {.id = "voice-local",
                .title = "The daemon's own model",
                .detail = "Understands more. docs/voice.md says which models fit and where they go.",
                .value = voice.scan && voice.scan->localReady() ? "Ready" : "None"}}};
}

std::string usedLine(const VoiceState& voice) {
    if (!voice.usedMinutes)
        return "Not told by the daemon";
    return fmt::format("{:.1f} of {} minutes", *voice.usedMinutes, voice.settings.dailyMinutesCap);
}

std::vector<std::string> limitWords(const std::vector<std::int64_t>& minutes) {
    std::vector<std::string> words;
    for (const auto one : minutes)
        words.push_back(one == 1 ? "1 minute" : fmt::format("{} minutes", one));
    return words;
}

Row keyRow(const VoiceFacts& facts) {
    const auto& key = facts.voice.key;
    return {.id = VoiceRowId::key,
        .title = "OpenAI key",
        .detail =
            key.message.value_or("Kept with your secrets, never in the settings. It goes to OpenAI alone."),
        .control = Row::Field{
            .hint = key.saved ? "A key is saved" : "Paste your key", .text = facts.typedKey, .secret = true}};
}

Row keyButtons(const VoiceFacts& facts) {
    const auto& voice = facts.voice;
    return {.id = "voice-key-buttons",
        .title = "",
        .detail = voice.testing ? "Sending 1 second of silence." : voice.testLine.value_or(""),
        .control = Row::Presses{
            {{.id = VoiceRowId::testKey, .words = "Test", .enabled = voice.key.saved && !voice.testing},
                {.id = VoiceRowId::removeKey, .words = "Remove", .enabled = voice.key.saved},
                {.id = VoiceRowId::saveKey,
                    .words = "Save",
                    .enabled = !facts.typedKey.empty(),
                    .chief = true}}}};
}

SettingsGroup openAI(const VoiceFacts& facts) {
    const auto& settings = facts.voice.settings;
    const auto& models = OpenAITranscriber::models;
    const auto limits = voiceLimits(settings.dailyMinutesCap);
    return {"voice-openai", "OpenAI",
        "Clips go to OpenAI on your own key, and none before today's limit was asked. Off: none leave this "
        "machine by kelvadrome.",
        {toggle(VoiceRowId::openAI, "Use OpenAI", "", settings.openAIEnabled), keyRow(facts),
            keyButtons(facts),
            choice(VoiceRowId::model, "Model", "", {models.begin(), models.end()},
                placeOf(models, settings.openAIModel)),
            choice(VoiceRowId::limit, "Limit for a day", "A clip that would pass it isn't sent.",
                limitWords(limits), placeOf(limits, settings.dailyMinutesCap)),
            {.id = "voice-used", .title = "Used today", .value = usedLine(facts.voice)}}};
}

Row appRow(const DictationURLApp& app, const VoiceFacts& facts) {
    const auto* const found = facts.voice.scan ? facts.voice.scan->app(app.id) : nullptr;
    Row row{.id = "voice-app-" + app.id, .title = app.name, .value = "Not found"};
    if (!found || !found->installed)
        return row;
    const bool verified = facts.voice.verified && facts.voice.verified->app.id == app.id;
    row.value = verified ? "Verified" : found->running ? "Running" : "Found";
    row.detail = found->path.value_or("");
    if (found->version)
        row.detail += (row.detail.empty() ? "Version " : ", version ") + *found->version;
    if (found->hotkey)
        row.detail += (row.detail.empty() ? "Its own key: " : ". Its own key: ") + found->hotkey->label;
    return row;
}

SettingsGroup apps(const VoiceFacts& facts) {
    const auto& settings = facts.voice.settings;
    SettingsGroup group{"voice-apps", "Dictation apps",
        "One that you have already can listen instead. It types into the bar.", {}};
    for (const auto& app : DictationURLApp::all())
        group.rows.push_back(appRow(app, facts));
    group.rows.push_back(toggle(VoiceRowId::holdToTalk, "Hold to talk",
        "The command bar's key starts and stops the app. Off: only the app's own key does.",
        settings.holdToTalk));
    group.rows.push_back(toggle(VoiceRowId::autoStart, "Listen when the bar opens",
        "With an app that the bar's key starts.", settings.autoStart));
    if (facts.selectedId == DictationURLApp::superwhisper().id)
        group.rows.push_back(toggle(VoiceRowId::superwhisperMode, "A mode of its own for the bar",
            "Make a mode with the key \"kelvadrome\" in superwhisper. It is switched on while the bar is "
            "open; "
            "then the mode of before comes back.",
            settings.superwhisperMode));
    group.rows.push_back({.id = VoiceRowId::lookAgain,
        .title = "Look again",
        .detail = "After one was installed or removed.",
        .control = Row::Press{"Look Again"}});
    return group;
}

} // namespace

std::vector<VoiceChoice> voiceChoices(const VoiceFacts& facts) {
    std::vector<VoiceChoice> choices{{"none", "Whatever is ready"}, {"openai", "OpenAI"},
        {"apple-on-device", "This machine's speech engine"}, {"parakeet", "The daemon's own model"}};
    for (const auto& app : DictationURLApp::all())
        choices.push_back({app.id, app.name});
    if (facts.voice.scan) {
        for (const auto& app : facts.voice.scan->apps) {
            if (std::ranges::find(choices, app.id, &VoiceChoice::id) == choices.end())
                choices.push_back({app.id, app.name});
        }
    }
    return choices;
}

std::vector<std::int64_t> voiceLimits(std::int64_t inForce) {
    std::vector<std::int64_t> limits{5, 15, 30, 60, 120, inForce};
    std::ranges::sort(limits);
    limits.erase(std::ranges::unique(limits).begin(), limits.end());
    return limits;
}

std::vector<SettingsGroup> voicePane(const VoiceFacts& facts, const SettingsFacts::Place& place) {
    std::vector<SettingsGroup> groups{speaking(facts)};
    if (facts.key) {
        groups.push_back(barKeyRows(*facts.key, place));
        auto& key = groups.back().rows.front();
        key.control = Row::KeyRecorder{facts.recordingKey};
        if (facts.recordingKey)
            key.detail = "Press the new key, with Control, Alt or Super. Escape keeps the old one.";
        else if (!facts.keyNotice.empty())
            key.detail = facts.keyNotice;
    }
    groups.push_back(onThisMachine(facts));
    groups.push_back(openAI(facts));
    groups.push_back(apps(facts));
    return groups;
}

} // namespace kelvadrome
