#include "KelvadromeKit/capture/FrontWindow.h"
#include "KelvadromeKit/capture/ScreenContext.h"
#include "KelvadromeKit/capture/ShotID.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestLoop.h"

#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace kelvadrome;
using namespace kelvadrome::test;
namespace fs = std::filesystem;

namespace {

constexpr double now = 1'767'268'800; // 2026-01-01T12:00:00Z
constexpr const char* anID = "shot-20260101T120000Z-a1b2c3";
const std::string png = "\x89PNG\r\n\x1a\n";

void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

void setAge(const std::string& path, double time) {
    const timespec times[2]{{static_cast<time_t>(time), 0}, {static_cast<time_t>(time), 900'000'000}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

/// A capture tool that does what the test says with the path.
class FakeTool final : public CaptureCommandRunning, public ScreenPermission {
public:
    Task<std::int32_t> run(std::vector<std::string> argv) override {
        commands.push_back(argv);
        if (effect)
            effect(argv.back());
        co_return status;
    }
    bool granted() override { return allowed; }
    void request() override { ++requests; }

    std::vector<std::vector<std::string>> commands;
    std::function<void(const std::string& path)> effect;
    std::int32_t status = 0;
    bool allowed = true;
    int requests = 0;
};

class Capture : public testing::Test {
protected:
    CaptureOutcome capture(bool region, std::size_t attached = 0) {
        return loop.run(
            context->capture(region ? CaptureTarget::region() : CaptureTarget::window(42), attached));
    }

    TestLoop loop;
    TemporaryFolder temporary;
    const std::string home = temporary / "home";
    const std::string shots = home + "/shots";
    std::shared_ptr<FakeTool> tool = std::make_shared<FakeTool>();
    std::shared_ptr<ScreenContext> context = std::make_shared<ScreenContext>(
        ScreenContext::Parts{{home}, tool, tool, [] { return wallTime(now); }});
};

using Kind = CaptureOutcome::Kind;

} // namespace

TEST(ShotID, onlyOurOwnNamesAreValid) {
    std::uint32_t next = 34;
    const auto made = ShotID::make(wallTime(now + 0.9), [&] { return next++; });
    EXPECT_EQ(made, "shot-20260101T120000Z-89abcd");
    EXPECT_TRUE(ShotID::isValid(ShotID::make(wallTime(now))));
    for (const std::string text : {"shot-20260101T120000Z-a1b2C3", "shot-20260101T120000Z-a1b2c3d",
             "shot-20260101T120000Z-a1b2c", "shot-20260101T120000Z-a1b2c3\n", " shot-20260101T120000Z-a1b2c3",
             "../shot-20260101T120000Z-a1b2c3", "shot-2026-01-01T120000Z-a1b2", ""})
        EXPECT_FALSE(ShotID::isValid(text)) << text;
}

TEST(FrontWindow, theFirstWorthwhileWindowOfTheApplication) {
    const WindowInfo good{.id = 1, .ownerPID = 7, .width = 120, .height = 80};
    const auto with = [&](auto change) {
        auto window = good;
        window.id = 9;
        change(window);
        return window;
    };
    const std::vector<WindowInfo> passedOver{with([](auto& w) { w.ownerPID = 8; }),
        with([](auto& w) { w.layer = 3; }), with([](auto& w) { w.onScreen = false; }),
        with([](auto& w) { w.alpha = 0.05; }), with([](auto& w) { w.width = 119, w.height = 500; }),
        with([](auto& w) { w.width = 500, w.height = 79; })};
    for (const auto& other : passedOver)
        EXPECT_EQ(FrontWindow::pick({other, good, with([](auto&) {})}, 7, 1), good);
    EXPECT_EQ(FrontWindow::pick(passedOver, 7, 1), std::nullopt);
    EXPECT_EQ(FrontWindow::pick({good}, 7, 7), std::nullopt);
    EXPECT_EQ(FrontWindow::pick({good}, std::nullopt, 1), std::nullopt);

    const auto read = [](const char* json) {
        return WindowInfo::fromDictionary(boost::json::parse(json).get_object());
    };
    EXPECT_EQ(read(R"({"kCGWindowNumber":1,"kCGWindowOwnerPID":7,"kCGWindowLayer":0,
        "kCGWindowBounds":{"Width":120.0,"Height":80}})"),
        good);
    EXPECT_FALSE(read(R"({"kCGWindowNumber":1,"kCGWindowOwnerPID":7,"kCGWindowLayer":0,
        "kCGWindowBounds":{},"kCGWindowIsOnscreen":false})")
                     ->onScreen);
    for (const auto* json : {R"({"kCGWindowNumber":1,"kCGWindowOwnerPID":7,"kCGWindowLayer":0})",
             R"({"kCGWindowNumber":-1,"kCGWindowOwnerPID":7,"kCGWindowLayer":0,"kCGWindowBounds":{}})",
             R"({"kCGWindowNumber":1,"kCGWindowOwnerPID":"7","kCGWindowLayer":0,"kCGWindowBounds":{}})"})
        EXPECT_EQ(read(json), std::nullopt) << json;
}

TEST_F(Capture, aShotIsPrivateAndTheToolIsToldWhatToTake) {
    tool->effect = [](const std::string& path) { write(path, png + "x"); };
    const auto window = capture(false);
    ASSERT_EQ(window.kind, Kind::captured);
    EXPECT_TRUE(ShotID::isValid(window.shot.id));
    EXPECT_EQ(window.shot.path, shots + "/" + window.shot.id + ".png");
    EXPECT_EQ(window.shot.bytes, 9);
    EXPECT_EQ(modeOf(shots), 0700u);
    EXPECT_EQ(modeOf(window.shot.path), 0600u);
    EXPECT_EQ(tool->commands[0],
        (std::vector<std::string>{ScreenCaptureCommand::program, "-x", "-o", "-l42", window.shot.path}));
    const auto region = capture(true, 2);
    ASSERT_EQ(region.kind, Kind::captured);
    EXPECT_EQ(tool->commands[1],
        (std::vector<std::string>{ScreenCaptureCommand::program, "-i", "-x", region.shot.path}));
    context->discard({"shot-20260101T120000Z-aaaaaa", window.shot.path, 9}); // another's path
    context->discard({window.shot.id, home + "/shots/../shots/" + window.shot.id + ".png", 9});
    EXPECT_TRUE(fs::exists(window.shot.path));
    context->discard(window.shot);
    EXPECT_FALSE(fs::exists(window.shot.path));
    EXPECT_TRUE(fs::exists(region.shot.path));
}

TEST_F(Capture, whatTheToolLeavesDecides) {
    struct Row {
        const char* name;
        std::function<void(const std::string&)> effect;
        std::int32_t status;
        Kind window, region;
    };
    const std::string secret = temporary / "secret";
    write(secret, png + "secret");
    const std::vector<Row> rows{
        {"nothing, exit 0", {}, 0, Kind::cancelled, Kind::cancelled},
        {"nothing, exit 1", {}, 1, Kind::failed, Kind::cancelled},
        {"not started", {}, -1, Kind::failed, Kind::cancelled},
        {"a signature alone", [](auto& path) { write(path, png); }, 0, Kind::failed, Kind::failed},
        {"no PNG", [](auto& path) { write(path, "GIF89a and so on"); }, 0, Kind::failed, Kind::failed},
        {"a PNG, exit 1", [](auto& path) { write(path, png + "x"); }, 1, Kind::captured, Kind::captured},
        {"25 MiB",
            [](auto& path) {
                write(path, png);
                fs::resize_file(path, 26214400);
            },
            0, Kind::captured, Kind::captured},
        {"a byte more",
            [](auto& path) {
                write(path, png);
                fs::resize_file(path, 26214401);
            },
            0, Kind::failed, Kind::failed},
        {"a link", [&](auto& path) { fs::create_symlink(secret, path); }, 0, Kind::failed, Kind::failed},
        {"a pipe", [](auto& path) { ::mkfifo(path.c_str(), 0600); }, 0, Kind::failed, Kind::failed},
    };
    for (const auto& row : rows) {
        tool->effect = row.effect;
        tool->status = row.status;
        for (const bool region : {false, true}) {
            const auto outcome = capture(region);
            EXPECT_EQ(outcome.kind, region ? row.region : row.window) << row.name << region;
            EXPECT_EQ(
                fs::exists(fs::symlink_status(tool->commands.back().back())), outcome.kind == Kind::captured)
                << row.name;
        }
    }
    EXPECT_TRUE(fs::exists(secret));
    EXPECT_EQ(modeOf(secret) & 0077, 0044u); // not touched through the link
}

TEST_F(Capture, limitAndPermissionComeFirst) {
    tool->allowed = false;
    EXPECT_EQ(capture(false, 3).kind, Kind::limit);
    EXPECT_EQ(tool->requests, 0);
    EXPECT_EQ(capture(false).kind, Kind::needsPermission);
    EXPECT_EQ(capture(true).kind, Kind::needsPermission);
    EXPECT_EQ(tool->requests, 1);
    EXPECT_TRUE(tool->commands.empty());
    EXPECT_FALSE(fs::exists(shots));
}

TEST_F(Capture, nothingLeadsOutOfTheFolder) {
    const std::string elsewhere = temporary / "elsewhere";
    const auto old = std::string("/") + anID + ".png";
    fs::create_directories(elsewhere);
    fs::create_directories(home);
    write(elsewhere + old, png + "x");
    setAge(elsewhere + old, 0);
    fs::create_symlink(elsewhere, shots);
    EXPECT_EQ(capture(true).kind, Kind::failed);
    EXPECT_EQ(context->prune(7), 0);
    context->discard({anID, shots + old, 9});
    EXPECT_TRUE(fs::exists(elsewhere + old));
    EXPECT_TRUE(tool->commands.empty());
    EXPECT_NE(modeOf(elsewhere), 0700u);

    fs::remove(shots);
    write(shots, "a file");
    EXPECT_EQ(capture(true).kind, Kind::failed);

    fs::remove(shots);
    fs::create_directory(shots);
    fs::permissions(shots, fs::perms(0077)); // its owner may not even read it
    // Swapped while the tool runs: what it wrote there is neither taken nor removed.
    tool->effect = [&](const std::string& path) {
        fs::rename(shots, shots + "-before");
        fs::create_symlink(elsewhere, shots);
        write(path, png + "x");
    };
    EXPECT_EQ(capture(false).kind, Kind::cancelled);
    EXPECT_EQ(modeOf(shots + "-before"), 0700u);
}

TEST_F(Capture, onlyOldShotsArePruned) {
    const double cutoff = now - 7 * 86400;
    fs::create_directories(shots + "/shot-20260101T120000Z-folder.png");
    const std::vector<std::tuple<std::string, double, bool>> rows{
        {"notes.png", 0, true},
        {"shot-20250101T120000Z-aaaaaa.png", cutoff - 1, false},
        {"shot-20250101T120000Z-bbbbbb.png", cutoff, true},
        {"shot-20250101T120000Z-cccccc.jpg", 0, true},
        {"shot-20250101T120000Z-DDDDDD.png", 0, true},
    };
    for (const auto& [name, time, stays] : rows) {
        write(shots + "/" + name, "x");
        setAge(shots + "/" + name, time);
    }
    const std::string link = shots + "/shot-20250101T120000Z-eeeeee.png";
    fs::create_symlink(temporary / "secret", link);
    setAge(link, 0);
    EXPECT_EQ(context->prune(7), 1);
    for (const auto& [name, time, stays] : rows)
        EXPECT_EQ(fs::exists(shots + "/" + name), stays) << name;
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_TRUE(fs::exists(shots + "/shot-20260101T120000Z-folder.png"));
}
