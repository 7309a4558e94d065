#pragma once

#include "KelvadromeKit/voice/AudioSource.h"
#include "KelvadromeKit/voice/DictationEnds.h"
#include "KelvadromeKit/voice/HTTPPosting.h"
#include "KelvadromeKit/voice/SpeechEngine.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kelvadrome::test {

/// Holds tasks back until it is opened, at once to begin with. One executor.
class Barrier {
public:
    bool holds = false;
    std::size_t waiting() const { return waiting_.size(); }

    Task<> pass() {
        if (!holds)
            co_return;
        // Ends a waiting task that is cancelled, as real calls do.
        auto start = [this](Completion<bool> finish) {
            waiting_.push_back(finish);
            return [finish] { finish(false); };
        };
        const bool opened = co_await suspendUntil<bool>(std::move(start));
        if (!opened)
            throw boost::system::system_error(asio::error::operation_aborted);
    }
    void open() {
        holds = false;
        for (const auto& finish : std::exchange(waiting_, {}))
            finish(true);
    }

private:
    std::vector<Completion<bool>> waiting_;
};

/// A microphone without sound: a test speaks through `hear` and `lose`.
class FakeAudio final : public AudioSource {
public:
    MicrophoneState now{.inputDevice = true};
    bool allowed = true;
    bool broken = false, losesAtOnce = false;
    Barrier access, opening;
    int opened = 0, stopped = 0;

    Task<MicrophoneState> state() override { co_return now; }
    Task<bool> requestAccess() override {
        co_await access.pass();
        co_return allowed;
    }
    Task<> start(Heard heard, Lost lost) override {
        co_await opening.pass();
        if (broken)
            throw std::runtime_error("no device");
        ++opened;
        heard_ = std::move(heard);
        lost_ = std::move(lost);
        if (!losesAtOnce)
            co_return;
        lost_();
        const auto executor = co_await asio::this_coro::executor;
        co_await asio::post(executor, asio::use_awaitable); // its caller goes on a turn later
    }
    void stop() override {
        ++stopped;
        heard_ = nullptr;
        lost_ = nullptr;
    }

    bool isOpen() const { return heard_ != nullptr; }
    void hear(std::size_t samples, std::int16_t value = 7) {
        const std::vector<std::int16_t> sound(samples, value);
        const auto heard = heard_; // which may end with the call
        heard(sound);
    }
    Heard heard() const { return heard_; }
    Lost lost() const { return lost_; }

private:
    Heard heard_;
    Lost lost_;
};

class FakePoster final : public HTTPPosting {
public:
    std::vector<HTTPRequest> sent;
    PostReply reply{R"({"text":" hello \n"})", 200};
    bool broken = false;
    Barrier wire;

    Task<PostReply> send(HTTPRequest request) override {
        sent.push_back(std::move(request));
        co_await wire.pass();
        if (broken)
            throw std::runtime_error("no way to the server");
        co_return reply;
    }
};

class FakeSpeech final : public SpeechEngine {
public:
    std::vector<std::string> installed{"en-US"};
    std::vector<std::size_t> heard; // samples of each clip
    bool broken = false;
    Barrier working;

    std::vector<std::string> supportedLocales() const override { return {"en-US"}; }
    std::vector<std::string> installedLocales() const override { return installed; }
    Task<std::string> transcribe(Clip clip, std::string) override {
        heard.push_back(clip->size());
        co_await working.pass();
        if (broken)
            throw std::runtime_error("no model");
        co_return "heard here";
    }
};

/// A dictation app and the machine around it: opening its mode's URL changes the mode.
class FakeDictationApp final : public URLOpening, public ModeKeyReading {
public:
    std::vector<std::string> opened;
    std::vector<std::string> refuses; // URLs that can't be opened
    std::optional<std::string> mode = "default";
    Barrier opening, reading;

    Task<bool> open(std::string url, std::string, bool activates) override {
        opened.push_back(activates ? url + " in front" : url);
        co_await opening.pass();
        if (std::ranges::find(refuses, url) != refuses.end())
            co_return false;
        const std::string key = "superwhisper://mode?key=";
        if (url.starts_with(key))
            mode = url.substr(key.size());
        co_return true;
    }
    Task<std::optional<std::string>> active() override {
        co_await reading.pass();
        co_return mode;
    }
};

} // namespace kelvadrome::test
