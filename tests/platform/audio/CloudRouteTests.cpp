#include "Kelvadrome/platform/linux/audio/URLSessionPoster.h"
#include "Kelvadrome/platform/linux/process/ProcessRunner.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/voice/SpeechPipeline.h"
#include "KelvadromeKit/voice/TranscriptionError.h"
#include "KelvadromeKit/voice/WAV.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kelvadrome::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::HasSubstr;

const auto key = "sk-proj-of-the-tests"s;
const auto reservePath = "/v1/voice/budget/reserve"s, usedPath = "/v1/voice/engine/used"s,
           cloudPath = "/v1/audio/transcriptions"s;
const auto vague = "Couldn't transcribe that. Try again."s;

/// The real poster, whose requests go to a port of this machine in place of OpenAI's.
class ToLoopback final : public HTTPPosting {
public:
    ToLoopback(BackgroundPool& pool, std::uint16_t port, double timeout, const char* protocol)
        : poster_(pool, timeout, protocol), origin_(fmt::format("{}://127.0.0.1:{}", protocol, port)) {}

    Task<PostReply> send(HTTPRequest request) override {
        const auto host = "https://api.openai.com"s;
        EXPECT_TRUE(request.url.starts_with(host));
        request.url.replace(0, host.size(), origin_);
        return poster_.send(std::move(request));
    }

private:
    URLSessionPoster poster_;
    std::string origin_;
};

/// The daemon and OpenAI are one server, on a socket and on a port, so that the order of all requests shows.
class CloudRouteTest : public testing::Test {
protected:
    CloudRouteTest() {
        secrets->set(key);
        server.on(reservePath, FakeReply::data(R"({"reservation_id":"voice-7"})"));
        server.on(usedPath, FakeReply::data(R"({"accepted":true})"));
        server.on(cloudPath, FakeReply{.body = R"({"text":" hello\n"})"});
    }

    SpeechPipeline pipeline(std::uint16_t to, double timeout = 60, const char* protocol = "http") {
        const auto http = std::make_shared<ToLoopback>(loop.pool(), to, timeout, protocol);
        return {OpenAITranscriber("gpt-4o-mini-transcribe", {secrets, http, &loop.pool()}),
            std::make_shared<DaemonBudgetLedger>(DaemonClient(server.socketPath(), loop.pool()))};
    }
    std::string result(const SpeechPipeline& pipeline, const std::string& wav = WAV::silence(1.5, 16000)) {
        try {
            return loop.run(pipeline.transcribe(wav, WAV::duration(wav.size(), 16000)));
        } catch (const TranscriptionError& error) {
            return error.errorDescription();
        }
    }

    /// What was asked since the last look, in order. The key goes to OpenAI alone.
    std::vector<std::string> paths() {
        std::vector<std::string> found;
        const auto all = server.requests();
        for (; seen < all.size(); ++seen) {
            found.push_back(all[seen].path);
            EXPECT_EQ(all[seen].bytes.find(key) != std::string::npos, all[seen].path == cloudPath);
        }
        return found;
    }
    std::string settled() const { return server.requests(usedPath).back().body; }
    static std::string settlement(bool ok) {
        return fmt::format(R"({{"reservation_id":"voice-7","seconds":2,"ok":{}}})", ok);
    }

    TestLoop loop;
    FakeDaemon server;
    const std::uint16_t port = server.listenOnTCP();
    const std::shared_ptr<MemorySecretStore> secrets = std::make_shared<MemorySecretStore>();
    std::size_t seen = 0;
};

TEST_F(CloudRouteTest, theClipArrivesByteForByteAndWithNothingElse) {
    const std::int16_t samples[] = {0, 1, -1, 32767, -32768, 0x0a0d};
    const auto wav = "RIFF\x30\0\0\0WAVEfmt \x10\0\0\0\1\0\1\0\x80\x3e\0\0\0\x7d\0\0\2\0\x10\0data\x0c\0\0\0"s
                     "\0\0\1\0\xff\xff\xff\x7f\0\x80\x0d\x0a"s;
    EXPECT_EQ(result(pipeline(port), WAV::encode(samples, 16000)), "hello");
    EXPECT_THAT(paths(), ElementsAre(reservePath, cloudPath, usedPath));
    EXPECT_EQ(server.requests(reservePath).back().body,
        R"({"engine":"openai","model":"gpt-4o-mini-transcribe","seconds":1})");

    const auto came = server.requests(cloudPath).back();
    const auto type = came.headers.at("content-type");
    const auto boundary = type.substr(type.find('=') + 1);
    EXPECT_EQ(type, "multipart/form-data; boundary=" + boundary);
    EXPECT_THAT(boundary, testing::MatchesRegex("kd-[0-9A-F-]+"));
    const auto body =
        "--" + boundary +
        "\r\nContent-Disposition: form-data; name=\"model\"\r\n\r\ngpt-4o-mini-transcribe\r\n--" + boundary +
        "\r\nContent-Disposition: form-data; name=\"response_format\"\r\n\r\njson\r\n--" + boundary +
        "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"clip.wav\"\r\n"
        "Content-Type: audio/wav\r\n\r\n" +
        wav + "\r\n--" + boundary + "--\r\n";
    EXPECT_EQ(came.body, body);
    EXPECT_EQ(came.method, "POST");
    const std::map<std::string, std::string> headers{{"accept", "*/*"}, {"authorization", "Bearer " + key},
        {"content-length", std::to_string(body.size())}, {"content-type", type},
        {"host", fmt::format("127.0.0.1:{}", port)}};
    EXPECT_EQ(came.headers, headers);

    const auto longest = WAV::silence(SpeechPipeline::longestClip, 16000);
    EXPECT_EQ(result(pipeline(port), longest), "hello");
    EXPECT_THAT(server.requests(cloudPath).back().body, HasSubstr(longest));
    EXPECT_THAT(settled(), HasSubstr(R"("seconds":120,"ok":true)"));
}

TEST_F(CloudRouteTest, whateverTheServerDoesTheGrantIsSettledOnceAndNoErrorTellsTheKey) {
    const auto never = std::make_shared<FakeGate>();
    // OpenAI's own refusal repeats a part of the key.
    const auto refusal = fmt::format(R"({{"error":{{"message":"Incorrect API key provided: {}"}}}})", key);
    const auto half = FakeReply::raw("HTTP/1.1 200 OK\r\nContent-Length: 500\r\n\r\n{\"text\":\"half\"}");
    struct Row {
        std::string name;
        FakeReply reply;
        std::string result;
        bool ok = false;
        double timeout = 60;
    };
    const std::vector<Row> rows{{"all well", {.body = R"({"text":"hello","usage":{}})"}, "hello", true},
        {"the key is refused", {.status = 401, .body = refusal}, "OpenAI refused the key (401)."},
        {"busy", {.status = 429, .headers = {{"Retry-After", "1"}}, .body = refusal},
            "OpenAI is busy or the key has no credit (429)."},
        {"broken", {.status = 500, .body = refusal}, vague + " (HTTP 500)"},
        {"elsewhere", {.status = 307, .headers = {{"Location", usedPath}}}, vague + " (HTTP 307)"},
        {"not JSON", {.body = "<html>" + key}, vague}, {"no text", {.body = R"({"words":"hello"})"}, vague},
        {"not HTTP", FakeReply::raw(R"({"text":"hello"})"), vague + " (HTTP 0)"},
        {"cut off before the head", FakeReply::raw(""), vague},
        {"cut off in the body, where it reads as whole", half, vague},
        {"cut off in a chunk",
            FakeReply::raw(
                "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10\r\n{\"text\":\"half\"}\r\n"),
            vague},
        {"never answers", FakeReply{}.heldBy(never), vague, false, 0.2}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        server.on(cloudPath, row.reply);
        EXPECT_EQ(result(pipeline(port, row.timeout)), row.result);
        EXPECT_THAT(paths(), ElementsAre(reservePath, cloudPath, usedPath));
        EXPECT_EQ(settled(), settlement(row.ok));
    }
    std::uint16_t nobody = 0;
    {
        FakeDaemon gone;
        nobody = gone.listenOnTCP();
    }
    EXPECT_EQ(result(pipeline(nobody)), vague);
    EXPECT_THAT(paths(), ElementsAre(reservePath, usedPath));
    EXPECT_EQ(settled(), settlement(false));
}

TEST_F(CloudRouteTest, nothingLeavesWithoutTheDaemonsLeaveAndATextIsNotLostOverItsSettlement) {
    server.on(reservePath, FakeReply::data(R"({"denied":true,"used_minutes":30})"));
    EXPECT_EQ(result(pipeline(port)), "Daily voice limit reached.");
    server.on(reservePath, FakeReply::failure("broken", "the disk is full", 500));
    EXPECT_EQ(result(pipeline(port)), "kelvadrome could not check today's voice limit. Nothing was sent.");
    EXPECT_THAT(paths(), ElementsAre(reservePath, reservePath));

    server.on(reservePath, FakeReply::data(R"({"reservation_id":"voice-7"})"));
    server.on(usedPath, FakeReply::failure("broken", "the disk is full", 500));
    EXPECT_EQ(result(pipeline(port)), "hello");
    EXPECT_THAT(paths(), ElementsAre(reservePath, cloudPath, usedPath));
    EXPECT_EQ(settled(), settlement(true));
}

TEST_F(CloudRouteTest, aCancelledClipLetsTheConnectionGoAndGivesTheMinutesBack) {
    const auto stream = std::make_shared<FakeStream>();
    server.on(cloudPath, FakeReply{.stream = stream});
    const auto clip = pipeline(port);
    bool ended = false;
    const auto take = [](const SpeechPipeline& clip, bool& ended) -> Task<> {
        auto call = clip.transcribe(WAV::silence(1.5, 16000), 1.5);
        auto outcome = co_await attempt(std::move(call));
        EXPECT_TRUE(isCancellation(outcome.error()));
        ended = true;
    };
    const auto handle = spawn(loop.executor(), "clip", take(clip, ended));
    loop.until([&] { return stream->opened(); }, "the head of the reply");
    handle.cancel();
    loop.until([&] { return ended && stream->clientGone(); }, "the end of the call and of its connection");
    EXPECT_THAT(paths(), ElementsAre(reservePath, cloudPath, usedPath));
    EXPECT_EQ(settled(), settlement(false));
}

TEST_F(CloudRouteTest, aServerWhoseCertificateDoesNotHoldGetsNothing) {
    TemporaryFolder folder;
    ProcessRunner runner(loop.pool());
    bool ended = false;
    const auto serve = [](ProcessRunner& runner, std::string script, bool& ended) -> Task<> {
        auto run = runner.run({"/bin/sh", {"-c", std::move(script)}}, 60);
        co_await attempt(std::move(run));
        ended = true;
    };
    const auto script = "cd " + folder.path().string() +
                        " && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2"
                        " -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -out cert -keyout key &&"
                        " exec openssl s_server -accept 127.0.0.1:0 -cert cert -key key -www >said"s;
    const auto handle = spawn(loop.executor(), "server", serve(runner, script, ended));
    std::string said;
    const auto listens = [&] {
        said = Files::read(folder / "said", 1000).value_or("");
        return said.ends_with('\n') && said.find("ACCEPT ") != std::string::npos;
    };
    loop.until(listens, "the server to listen");
    const auto at = static_cast<std::uint16_t>(std::stoi(said.substr(said.rfind(':') + 1)));

    ToLoopback poster(loop.pool(), at, 60, "https");
    std::string why;
    try {
        loop.run(poster.send(OpenAITranscriber::request("wav", "model", key, "b")));
    } catch (const std::runtime_error& error) {
        why = error.what();
    }
    EXPECT_EQ(why, "SSL peer certificate or SSH remote key was not OK");
    EXPECT_EQ(result(pipeline(at, 60, "https")), vague);
    EXPECT_THAT(paths(), ElementsAre(reservePath, usedPath));
    EXPECT_EQ(settled(), settlement(false));
    handle.cancel();
    loop.until([&] { return ended; }, "the server's end");
}

} // namespace
} // namespace kelvadrome::test
