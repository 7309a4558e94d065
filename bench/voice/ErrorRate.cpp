// Prints how many of a hundred words are heard wrong, how long that takes and what memory it needs. Says the
// sentences with flite; see scripts/voice-error-rate.

#include "Kelvadrome/platform/linux/audio/PocketSphinxEngine.h"
#include "Kelvadrome/platform/linux/audio/SphinxDecoder.h"
#include "Kelvadrome/platform/linux/process/PosixCommand.h"
#include "KelvadromeKit/support/Text.h"
#include "KelvadromeKit/voice/AudioSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <span>
#include <sstream>
#include <unistd.h>

namespace kelvadrome::bench {
namespace {

using Words = std::vector<std::string>;
using Samples = std::vector<std::int16_t>;

// None of them is a line of the templates. Written before those were:
constexpr const char* requests[] = {"tell claude to run the tests again",
    "ask codex to review the last commit", "what is waiting for me", "show me the open questions",
    "open the settings", "tell claude to stop", "answer yes to the first question",
    "start a new session in the website project", "what did codex do yesterday",
    "ask claude to fix the failing build", "summarize the changes since this morning",
    "tell the agent on the payment topic to wait for me", "push the branch to github and open a pull request",
    "run npm install and start the server", "why did the last deployment fail",
    "tell gemini to write a test for the parser", "pause all agents until tomorrow",
    "remind me about the release on friday", "do not change anything just explain the error",
    "move the card about the login page to done", "how much did we spend on tokens today",
    "ask codex to rename the function and update the documentation",
    "let claude continue with the second option", "close the session in the terminal",
    "which agents are running right now", "tell claude that the database password is in the environment file",
    "revert the last change and try a smaller step", "search for receipts from last week",
    "add a button to the header that opens the menu", "deny the request and tell claude to ask me first"};
// And after, without a look at them:
constexpr const char* furtherRequests[] = {"claude should look at the slow query in the report",
    "tell codex the tests are red on the main branch", "is the migration finished",
    "ask the second agent why it deleted the folder", "give me the short version of what happened overnight",
    "take the third option and go on", "have claude write release notes for version two",
    "please do not merge this before i have seen it", "what was my answer about the license",
    "let codex check whether the page works on a phone", "turn the long function into three small ones",
    "ask gemini to compare both ways and recommend one", "stop everything that runs on the old server",
    "find the card where i allowed the database change", "tell claude to use postgres instead of a file",
    "say no to the last question", "continue where you stopped yesterday evening",
    "the icon is too dark make it lighter", "which questions are older than one hour",
    "write an email to the customer about the outage"};

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

/// VmRSS, or VmHWM, of this process in MiB.
double memory(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string name; status >> name;) {
        double kilobytes = 0;
        if (name == field + ":" && status >> kilobytes)
            return kilobytes / 1024;
    }
    return 0;
}

void forgetPeak() {
    std::ofstream("/proc/self/clear_refs") << "5";
}

/// What flite says, at 16 kHz; empty when it isn't there.
Samples spoken(const std::string& sentence, const std::string& voice) {
    const std::string file = std::filesystem::temp_directory_path() / fmt::format("voice-{}.raw", ::getpid());
    runCommand("/usr/bin/flite", {"-voice", voice, "-t", sentence, "-o", file}, {}, 60);
    std::ifstream wave(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(wave)), {});
    std::filesystem::remove(file);
    constexpr std::size_t head = 44;
    Samples samples(bytes.size() > head ? (bytes.size() - head) / 2 : 0);
    std::memcpy(samples.data(), bytes.data() + std::min(head, bytes.size()), samples.size() * 2);
    return samples;
}

Words split(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

/// Words put in, left out or taken for others.
std::size_t errors(const Words& said, const Words& heard) {
    std::vector<std::size_t> row(heard.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < said.size(); ++i) {
        auto corner = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < heard.size(); ++j) {
            const auto other = corner + (said[i] == heard[j] ? 0 : 1);
            corner = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, corner + 1, other});
        }
    }
    return row.back();
}

void measureErrors(SphinxDecoder& decoder, const char* title, std::span<const char* const> sentences,
    const std::string& voice, bool show) {
    const std::atomic<bool> stop = false;
    std::size_t wrong = 0, count = 0;
    double spokenFor = 0, took = 0;
    for (const std::string sentence : sentences) {
        const auto samples = spoken(Text::replaceAll(sentence, "npm", "N P M"), voice);
        const auto began = now();
        const auto heard = decoder.hear(samples, stop);
        took += now() - began;
        spokenFor += static_cast<double>(samples.size()) / voiceSampleRate;
        const auto said = split(sentence);
        const auto wrongHere = errors(said, split(heard));
        wrong += wrongHere;
        count += said.size();
        if (show && wrongHere > 0)
            fmt::print("  {}\n    {}\n", sentence, heard);
    }
    fmt::print("{}, {}: {:.1f} % of {} words wrong, {:.2f} of real time\n", title, voice,
        100.0 * static_cast<double>(wrong) / static_cast<double>(count), count, took / spokenFor);
}

void measureLength(SphinxDecoder& decoder, double seconds) {
    const std::atomic<bool> stop = false;
    Samples clip;
    for (std::size_t at = 0; clip.size() < seconds * voiceSampleRate; ++at) {
        const auto more = spoken(requests[at % std::size(requests)], "slt");
        clip.insert(clip.end(), more.begin(), more.end());
    }
    clip.resize(static_cast<std::size_t>(seconds * voiceSampleRate));
    const auto idle = memory("VmRSS");
    forgetPeak();
    const auto began = now();
    decoder.hear(clip, stop);
    fmt::print("a clip of {} s: {:.2f} of real time, at most {:.1f} MiB above idle\n", seconds,
        (now() - began) / seconds, memory("VmHWM") - idle);
}

int run(bool show) {
    const auto folders = PocketSphinxEngine::modelFolders();
    const auto folder = std::ranges::find_if(folders, SphinxDecoder::isModel);
    if (folder == folders.end() || spoken("yes", "slt").empty()) {
        fmt::print(stderr, "The packages pocketsphinx-en-us and flite are needed.\n");
        return 1;
    }
    const auto bare = memory("VmRSS");
    const auto began = now();
    SphinxDecoder decoder(*folder);
    fmt::print("loading: {:.2f} s, {:.0f} MiB\n", now() - began, memory("VmRSS") - bare);
    for (const auto* const voice : {"slt", "rms"}) {
        measureErrors(decoder, "requests", requests, voice, show);
        measureErrors(decoder, "further requests", furtherRequests, voice, show);
    }
    measureLength(decoder, 5);
    measureLength(decoder, 120);
    return 0;
}

} // namespace
} // namespace kelvadrome::bench

int main(int argc, char** arguments) {
    return kelvadrome::bench::run(argc > 1 && std::string_view(arguments[1]) == "-v");
}
