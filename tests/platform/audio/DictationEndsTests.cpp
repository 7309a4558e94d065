#include "Kelvadrome/platform/linux/audio/DictationApps.h"
#include "Kelvadrome/platform/linux/audio/URLSessionPoster.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/support/FakeDaemon.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>

namespace kelvadrome::test {
namespace {

struct DictationEndsTest : testing::Test {
    std::string script(const std::string& path, const std::string& body) const {
        Files::makeFolders(Files::parent(folder / path), 0700);
        Files::replace(folder / path, "#!/bin/sh\n" + body + "\n", 0700, false);
        return folder / path;
    }
    std::string written() const { return Files::read(folder / "opened", 1000).value_or(""); }

    TemporaryFolder folder;
    TestLoop loop;
};

} // namespace

TEST_F(DictationEndsTest, aURLGoesToTheProgramInTheBundleAndToNoOtherThatIsRegistered) {
    const auto write = "printf %s \"$1\" > " + folder / "opened.new" + " && mv " + folder / "opened.new" +
                       " " + folder / "opened";
    const std::pair<const char*, std::string> programs[] = {
        {"own", script("Good.app/Contents/run", write)}, {"other", script("Bad.app/run", write)}};
    for (const auto& [name, path] : programs) {
        Files::makeFolders(folder / "applications", 0700);
        Files::replace(folder / fmt::format("applications/{}.desktop", name),
            fmt::format(
                "[Desktop Entry]\nType=Application\nName={0}\nExec={1} %u\nMimeType=x-scheme-handler/kd-{0};"
                "x-scheme-handler/kd-both;\n",
                name, path),
            0600, false);
    }
    Files::replace(folder / "applications/mimeapps.list",
        "[Default Applications]\nx-scheme-handler/kd-both=other.desktop;own.desktop\n"
        "[Added "
        "Associations]\nx-scheme-handler/kd-own=own.desktop;\nx-scheme-handler/kd-other=other.desktop;\n"
        "x-scheme-handler/kd-both=other.desktop;own.desktop;\n",
        0600, false);
    ::setenv("XDG_DATA_HOME", folder.path().c_str(), 1); // before GLib looks at it
    ::setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
    SystemURLOpener opener(loop.pool());
    const auto open = [&](const char* url, const char* bundle) {
        return loop.run(opener.open(url, folder / bundle, false));
    };
    EXPECT_FALSE(open("kd-other://start", "Good.app"));
    EXPECT_FALSE(open("kd-own://start", "Good"));
    EXPECT_FALSE(open("kd-nobody://start", "Good.app"));
    EXPECT_FALSE(open("no scheme", "Good.app"));
    EXPECT_TRUE(open("kd-both://mode?key=a", "Good.app"));
    loop.until([&] { return !written().empty(); }, "the program to be started");
    EXPECT_EQ(written(), "kd-both://mode?key=a");
}

TEST_F(DictationEndsTest, theModeIsWhatTheToolPrintsAndIsPlain) {
    const auto mode = [&](const std::string& body) {
        DefaultsModeKeyReader reader(loop.pool(), {{"PATH", "/usr/bin:/bin"}}, script("defaults", body));
        return loop.run(reader.active());
    };
    EXPECT_EQ(
        mode("[ \"$*\" = 'read com.superduper.superwhisper activeModeKey' ] && echo ' default '"), "default");
    EXPECT_EQ(mode("echo default; exit 1"), std::nullopt);
    EXPECT_EQ(mode("echo 'Not Plain'"), std::nullopt);
    EXPECT_EQ(mode("printf 'a\\nb'"), std::nullopt);
    DefaultsModeKeyReader absent(loop.pool(), {}, folder / "nowhere");
    EXPECT_EQ(loop.run(absent.active()), std::nullopt);
}

TEST_F(DictationEndsTest, aPostGivesBodyAndStatusAndGoesNowhereWithoutTLS) {
    FakeDaemon server;
    const auto url = fmt::format("http://127.0.0.1:{}/v1", server.listenOnTCP());
    const HTTPRequest post{"POST", url, {{"Authorization", "Bearer key"}}, std::string("a\0b", 3), 60};
    URLSessionPoster real(loop.pool());
    EXPECT_THROW(loop.run(real.send(post)), std::runtime_error);
    EXPECT_EQ(server.connections(), 0u);

    URLSessionPoster poster(loop.pool(), 60, "http");
    server.on("/v1", FakeReply{.status = 401, .headers = {{"Set-Cookie", "a=1"}}, .body = "no"});
    auto reply = loop.run(poster.send(post));
    EXPECT_EQ(reply.status, 401);
    EXPECT_EQ(reply.body, "no");
    EXPECT_EQ(server.requests().back().body, *post.body);
    server.on("/v1", FakeReply{.status = 302, .headers = {{"Location", "/elsewhere"}}});
    EXPECT_EQ(loop.run(poster.send(post)).status, 302);
    EXPECT_FALSE(server.requests().back().headers.contains("cookie"));
    server.on("/v1", FakeReply::raw("not HTTP\n"));
    EXPECT_EQ(loop.run(poster.send(post)).status, 0);

    const auto gate = std::make_shared<FakeGate>();
    server.on("/v1", FakeReply{}.heldBy(gate));
    URLSessionPoster hurried(loop.pool(), 0.2, "http");
    EXPECT_THROW(loop.run(hurried.send(post)), std::runtime_error);
    gate->open();
}

} // namespace kelvadrome::test
