#include "Kelvadrome/platform/linux/desk/CaptureTools.h"
#include "KelvadromeKit/capture/ScreenContext.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/platform/desk/FakePortal.h"
#include "tests/platform/desk/Person.h"
#include "tests/support/HeadlessDisplay.h"
#include "tests/support/TemporaryFolder.h"

#include <cairo/cairo.h>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/resource.h>

namespace kelvadrome::test {
namespace {

namespace fs = std::filesystem;

class CaptureToolsTest : public PrivateBus {
protected:
    using Environment = std::map<std::string, std::string>;
    using Able = CaptureTools::Able;

    CaptureToolsTest() { fs::create_directory(folder / "shots"); }

    /// Of no display, and with the tools of the folder alone.
    Environment wayland() { return {{"WAYLAND_DISPLAY", "wayland-0"}, {"PATH", folder.path().string()}}; }
    void tool(const std::string& name, const std::string& script) {
        std::ofstream(folder / name) << "#!/bin/sh\n" + script;
        fs::permissions(folder / name, fs::perms::owner_all);
    }
    std::unique_ptr<CaptureTools> tools(Environment environment) {
        return std::make_unique<CaptureTools>(
            loop.pool(), bus, std::make_shared<SystemClock>(), std::move(environment));
    }
    /// The status, while a person does this again and again until the tool has ended.
    std::int32_t take(
        CaptureTools& with, CaptureTarget target, const std::function<void()>& person = [] {}) {
        std::optional<std::int32_t> status;
        asio::co_spawn(loop.executor(), with.run(ScreenCaptureCommand::argv(target, path)),
            [&](std::exception_ptr, std::int32_t result) { status = result; });
        waitFor(
            [&] {
                if (!status)
                    person();
                return status.has_value();
            },
            "the tool to end");
        return *status;
    }
    std::string picture() { return Files::read(path, 1 << 20).value_or("none"); }

    TemporaryFolder folder;
    const std::string path = folder / "shots/shot.png";
};

/// Width and height; absent unless all of it has this colour.
std::optional<std::pair<int, int>> sizeOf(const std::string& path, std::uint32_t colour) {
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
        cairo_image_surface_create_from_png(path.c_str()), &cairo_surface_destroy);
    const int width = cairo_image_surface_get_width(surface.get());
    const int height = cairo_image_surface_get_height(surface.get());
    const auto* const data = cairo_image_surface_get_data(surface.get());
    for (int y = 0; y < height; ++y) {
        const auto* const row = reinterpret_cast<const std::uint32_t*>(
            data + std::ptrdiff_t(y) * cairo_image_surface_get_stride(surface.get()));
        if (std::any_of(row, row + width, [&](std::uint32_t pixel) { return (pixel & 0xffffff) != colour; }))
            return std::nullopt;
    }
    return std::pair(width, height);
}

TEST_F(CaptureToolsTest, aWindowAndADraggedRegionOfAnXDisplay) {
    const HeadlessDisplay display;
    if (!display.problem().empty())
        GTEST_SKIP() << display.problem();
    Person person;
    constexpr std::uint32_t colour = 0x336699;
    const auto window = person.window(100, 100, 200, 150, colour);
    person.show(window);
    const auto maim = tools(Files::processEnvironment());
    EXPECT_EQ(maim->available(), (Able{true, true}));
    EXPECT_EQ(take(*maim, CaptureTarget::window(window)), 0);
    EXPECT_EQ(sizeOf(path, colour), std::pair(200, 150));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_NE(take(*maim, CaptureTarget::window(window)), 0); // there is a file
    EXPECT_EQ(sizeOf(path, colour), std::pair(200, 150));
    fs::remove(path);
    EXPECT_NE(take(*maim, CaptureTarget::window(0x7ffffff)), 0); // no such window
    EXPECT_FALSE(fs::exists(path));

    // The tool listens a moment after it has taken the pointer, so all of this again until it has ended.
    const auto pause = [] { g_usleep(30'000); };
    const auto drag = [&] {
        if (!person.pointerIsTaken())
            return;
        person.moveTo(120, 120);
        pause();
        person.button(true);
        for (std::int16_t step = 1; step <= 6; ++step) {
            pause();
            person.moveTo(
                static_cast<std::int16_t>(120 + step * 10), static_cast<std::int16_t>(120 + step * 5));
        }
        pause();
        person.button(false);
        pause();
    };
    // It looks where the pointer is now and then, so on a busy machine it may see a drag begin late.
    std::optional<std::pair<int, int>> size;
    const auto whole = [&] { return size && size->first >= 58 && size->second >= 28; };
    for (int tries = 0; tries < 10 && !whole(); ++tries) {
        fs::remove(path);
        EXPECT_EQ(take(*maim, CaptureTarget::region(), drag), 0);
        size = sizeOf(path, colour);
        ASSERT_TRUE(size && size->first <= 62 && size->second <= 32);
    }
    EXPECT_TRUE(whole()) << size->first << "x" << size->second;
    fs::remove(path);
    constexpr xcb_keycode_t escape = 9;
    const auto leave = [&] {
        if (!person.pointerIsTaken())
            return;
        person.press(escape);
        g_usleep(200'000);
        person.release(escape);
    };
    EXPECT_GT(take(*maim, CaptureTarget::region(), leave), 0);
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(CaptureToolsTest, aRegionOfAWaylandDisplayByItsTools) {
    tool("slurp", "echo '10,20 30x40'\n");
    tool("grim", "printf '%s|' \"$@\"\n");
    const auto with = tools(wayland());
    EXPECT_EQ(with->available(), (Able{false, true}));
    EXPECT_EQ(take(*with, CaptureTarget::region()), 0);
    EXPECT_EQ(picture(), "-g|10,20 30x40|-|");
    EXPECT_EQ(take(*with, CaptureTarget::window(5)), -1);

    fs::remove(path);
    fs::create_symlink(folder / "elsewhere", path); // planted
    EXPECT_EQ(take(*with, CaptureTarget::region()), -1);
    EXPECT_FALSE(fs::exists(folder / "elsewhere"));
    fs::remove(path);
    tool("slurp", "echo 'selection cancelled' >&2\nexit 1\n");
    EXPECT_EQ(take(*with, CaptureTarget::region()), 1);
    tool("slurp", "echo 'no layer shell' >&2\nexit 1\n"); // and no portal either
    EXPECT_EQ(take(*with, CaptureTarget::region()), -1);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(run(with->run({"/bin/sh", "-c", "true"})).take(), -1);
    EXPECT_EQ(run(with->run({})).take(), -1);

    // A disk that is full after two bytes. What was taken and is lost leaves its mark.
    tool("slurp", "echo '10,20 30x40'\n");
    const auto handled = ::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const rlimit full{2, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &full);
    const auto status = take(*with, CaptureTarget::region());
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handled);
    EXPECT_EQ(status, -1);
    EXPECT_EQ(picture(), "");
    fs::remove(path);

    // The folder is swapped for a link during the drag.
    fs::create_directory(folder / "elsewhere");
    const auto shots = fs::path(path).parent_path().string();
    tool("slurp", "PATH=/usr/bin:/bin; mv '" + shots + "' '" + shots + ".moved'; ln -s '" +
                      folder / "elsewhere" + "' '" + shots + "'; echo '10,20 30x40'\n");
    EXPECT_EQ(take(*with, CaptureTarget::region()), 0);
    EXPECT_TRUE(fs::is_empty(folder / "elsewhere"));
    fs::remove(shots);
    fs::rename(shots + ".moved", shots);
    fs::remove(path);

    // Whoever no longer wants it ends the tool.
    tool("slurp", "echo $$ > " + folder / "pid" + "\nexec sleep 100\n");
    auto waits = [](CaptureTools& with, std::vector<std::string> argv) -> Task<> {
        co_await with.run(std::move(argv));
    };
    const auto handle = spawn(
        loop.executor(), "capture", waits(*with, ScreenCaptureCommand::argv(CaptureTarget::region(), path)));
    pid_t pid = 0;
    waitFor([&] { return bool(std::ifstream(folder / "pid") >> pid); }, "the tool");
    handle.cancel();
    waitFor([&] { return ::kill(pid, 0) != 0; }, "the tool's end");
}

TEST_F(CaptureToolsTest, aRegionByThePortalWhereNoToolCanTakeIt) {
    EXPECT_EQ(tools(wayland())->available(), Able());
    FakePortal portal(connection(), bus->name());
    const auto with = tools(wayland());
    waitFor([&] { return with->available() == Able{false, true}; }, "the portal to be seen");
    const auto file = folder / "Screenshot.png";
    std::ofstream(file) << "picture";
    portal.answers["Screenshot"] = {0, "{'uri': <'file://" + file + "'>}"};
    EXPECT_EQ(take(*with, CaptureTarget::region()), 0);
    EXPECT_EQ(picture(), "picture");
    EXPECT_FALSE(fs::exists(file));

    fs::remove(path);
    std::ofstream(file) << "older";
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
    EXPECT_EQ(take(*with, CaptureTarget::region()), 0);
    EXPECT_EQ(picture(), "older");
    EXPECT_TRUE(fs::exists(file)); // it wasn't made for us
    fs::remove(path);
    for (const auto& [status, results] :
        {std::pair(1u, std::string("{}")), std::pair(0u, std::string("{'uri': <'file:///no/such'>}")),
            std::pair(0u, "{'uri': <'file://" + file + "'>}")}) {
        portal.answers["Screenshot"] = {status, results};
        std::ofstream(file).close();
        fs::resize_file(file, ScreenContext::maxBytes + 2); // more than is kept
        EXPECT_NE(take(*with, CaptureTarget::region()), 0);
        EXPECT_EQ(picture(), status == 0 ? "" : "none") << results;
        EXPECT_EQ(fs::exists(file), !results.contains("Screenshot.png"));
        fs::remove(path);
    }
}

} // namespace
} // namespace kelvadrome::test
