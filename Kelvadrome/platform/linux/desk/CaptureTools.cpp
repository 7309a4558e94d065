#include "Kelvadrome/platform/linux/desk/CaptureTools.h"

#include "Kelvadrome/platform/linux/desk/PortalRequest.h"
#include "Kelvadrome/platform/linux/desk/XDisplay.h"
#include "Kelvadrome/platform/linux/process/ChildRun.h"
#include "KelvadromeKit/capture/ScreenContext.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Log.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <optional>
#include <string_view>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr std::int32_t failure = -1;
constexpr std::int32_t noPicture = 1;   // as tools say that the user left it
constexpr std::int32_t unsupported = 2; // by this compositor
constexpr std::size_t keptErrors = 4096;
// One more than is allowed, so that what is too long is found out by whoever checks it.
constexpr auto keptPicture = static_cast<std::size_t>(ScreenContext::maxBytes) + 1;
constexpr const char* screenshots = "org.freedesktop.portal.Screenshot";

using Variables = std::map<std::string, std::string>;

std::string value(const Variables& environment, const char* name) {
    const auto it = environment.find(name);
    return it == environment.end() ? std::string() : it->second;
}

bool isWayland(const Variables& environment) {
    return !value(environment, "WAYLAND_DISPLAY").empty();
}

/// The program's path; empty where there is none.
std::string find(const Variables& environment, const std::string& name) {
    auto folders = value(environment, "PATH");
    if (folders.empty())
        folders = "/usr/local/bin:/usr/bin:/bin";
    for (std::size_t at = 0; at <= folders.size();) {
        const auto end = std::min(folders.find(':', at), folders.size());
        const auto path = Files::join(folders.substr(at, end - at), name);
        if (end > at && folders[at] == '/' && Files::isExecutable(path))
            return path;
        at = end + 1;
    }
    return {};
}

/// Where the picture goes. The folder is opened before the tool runs, so that one that is put in its place
/// during a long drag gets nothing.
struct Place {
    explicit Place(const std::string& path)
        : folder(::open(Files::parent(path).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
          name(std::filesystem::path(path).filename()) {}

    const Descriptor folder;
    const std::string name;
};

/// The command, as the one place that makes it has it.
struct Order {
    CaptureTarget target;
    std::shared_ptr<const Place> place;
};

std::optional<Order> parse(const std::vector<std::string>& argv) {
    if (argv.size() < 2)
        return std::nullopt;
    CaptureTarget target = CaptureTarget::region();
    constexpr std::string_view option = "-l";
    if (argv.size() > 3 && argv[3].starts_with(option)) {
        std::uint32_t id = 0;
        const auto* const end = argv[3].data() + argv[3].size();
        if (std::from_chars(argv[3].data() + option.size(), end, id).ptr != end)
            return std::nullopt;
        target = CaptureTarget::window(id);
    }
    if (ScreenCaptureCommand::argv(target, argv.back()) != argv)
        return std::nullopt;
    auto place = std::make_shared<const Place>(argv.back());
    if (!place->folder) {
        logLine("no screenshot: " + std::generic_category().message(errno));
        return std::nullopt;
    }
    return Order{target, std::move(place)};
}

/// What runs the tools, on a thread of the pool.
struct Tools {
    const Variables& environment;
    double limit; // seconds
    int stop;     // readable when nobody wants the picture any more

    ChildEnd run(const std::string& name, std::vector<std::string> arguments) const {
        ChildRun child({.executable = find(environment, name),
                           .arguments = std::move(arguments),
                           .environment = environment},
            {.keptOutput = keptPicture,
                .keptErrors = keptErrors,
                .atLimit = ChildRules::AtLimit::killGroup,
                .limit = limit});
        auto end = child.finish(stop);
        if (!end.status) {
            child.process()->signalGroup(SIGKILL);
            end = {child.process()->reap(), {}, {}, true};
        }
        if (end.timedOut)
            end.status = failure;
        return end;
    }
};

/// Makes a new file of it; what is at the place already stays. One that can't be written whole is left empty:
/// no file at all would say that the user gave up.
std::int32_t write(const Place& place, std::string_view picture) {
    const Descriptor file(::openat(
        place.folder.get(), place.name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        logLine("no screenshot: " + std::generic_category().message(errno));
        return failure;
    }
    for (auto rest = picture; !rest.empty();) {
        const auto count = ::write(file.get(), rest.data(), rest.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0) {
            logLine("no screenshot: " + std::generic_category().message(errno));
            if (::ftruncate(file.get(), 0) != 0)
                ::unlinkat(
                    place.folder.get(), place.name.c_str(), 0); // half a picture looks like a whole one
            return failure;
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    return 0;
}

std::int32_t keep(const Place& place, const ChildEnd& end) {
    if (*end.status != 0)
        return *end.status;
    return end.output.empty() ? noPicture : write(place, end.output);
}

std::int32_t takeOnX11(const Tools& tools, const Order& order) {
    if (order.target.isRegion())
        return keep(*order.place, tools.run("maim", {"-s", "-u"}));
    const auto id = std::get<std::uint32_t>(order.target.what);
    return keep(*order.place, tools.run("maim", {"-u", "-i", std::to_string(id)}));
}

/// A compositor that offers nothing to these tools has its portal.
std::int32_t takeOnWayland(const Tools& tools, const Order& order) {
    if (find(tools.environment, "grim").empty() || find(tools.environment, "slurp").empty())
        return unsupported;
    auto region = tools.run("slurp", {});
    if (region.timedOut)
        return failure;
    if (*region.status != 0)
        return region.errors.contains("selection cancelled") ? noPicture : unsupported;
    while (region.output.ends_with('\n'))
        region.output.pop_back();
    return keep(*order.place, tools.run("grim", {"-g", region.output, "-"}));
}

/// Takes the portal's file over, be it of use or not. One that was there before we asked stays where it is,
/// too.
std::int32_t adopt(const std::string& from, const Place& place, WallTime asked) {
    const Descriptor file(::open(from.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat about {};
    std::optional<std::string> picture;
    if (file && ::fstat(file.get(), &about) == 0 && S_ISREG(about.st_mode)) {
        picture = Files::read("/proc/self/fd/" + std::to_string(file.get()), keptPicture);
        constexpr double slack = 1; // seconds, of the file system's clock
        const auto made = wallTime(double(about.st_mtim.tv_sec) + double(about.st_mtim.tv_nsec) / 1e9);
        if (about.st_uid == ::getuid() && made >= asked - seconds(slack))
            ::unlink(from.c_str());
    }
    if (picture && !picture->empty())
        return write(place, *picture);
    (void)write(place, "");
    return failure;
}

Task<std::int32_t> viaPortal(BackgroundPool& pool, std::shared_ptr<SessionBus> bus,
    std::shared_ptr<Clock> clock, std::shared_ptr<const Place> place) {
    const auto asked = clock->now();
    PortalRequest::Question question{screenshots, "Screenshot",
        [](GVariantBuilder* options) {
            g_variant_builder_add(options, "{sv}", "interactive", g_variant_new_boolean(TRUE));
            return g_variant_new("(sa{sv})", "", options);
        },
        CaptureTools::dragLimit};
    const auto answer = co_await PortalRequest::ask(bus, clock, std::move(question));
    if (answer.status != 0)
        co_return answer.status == PortalAnswer::noPortal ? failure : noPicture;
    const OwnedText file(g_filename_from_uri(answer.text("uri").value_or("").c_str(), nullptr, nullptr));
    auto work = [from = std::string(file ? file.get() : ""), place, asked] {
        return adopt(from, *place, asked);
    };
    co_return co_await pool.run(std::move(work));
}

} // namespace

CaptureTools::CaptureTools(BackgroundPool& pool, std::shared_ptr<SessionBus> bus,
    std::shared_ptr<Clock> clock, std::map<std::string, std::string> environment)
    : pool_(pool), bus_(std::move(bus)), clock_(std::move(clock)),
      environment_(std::make_shared<const Variables>(std::move(environment))) {
    if (!isWayland(*environment_))
        return;
    bus_->call({PortalRequest::service, PortalRequest::path, "org.freedesktop.DBus.Properties"}, "Get",
        g_variant_new("(ss)", screenshots, "version"), "(v)", portal_,
        [portal = std::weak_ptr(portal_)](GVariant* reply) {
            if (const auto kept = portal.lock())
                *kept = reply != nullptr;
        });
}

CaptureTools::~CaptureTools() = default;

CaptureTools::Able CaptureTools::available() const {
    const auto has = [this](const char* tool) { return !find(*environment_, tool).empty(); };
    if (isWayland(*environment_))
        return {false, *portal_ || (has("grim") && has("slurp"))};
    const bool maim = !value(*environment_, "DISPLAY").empty() && has("maim");
    return {maim, maim};
}

Task<std::int32_t> CaptureTools::run(std::vector<std::string> argv) {
    auto order = parse(argv);
    const bool wayland = isWayland(*environment_);
    if (!order || (wayland && !order->target.isRegion()))
        co_return failure;
    const auto stop = std::make_shared<const Descriptor>(::eventfd(0, EFD_CLOEXEC));
    auto work = [order = *order, environment = environment_, wayland, stop] {
        const Tools tools{*environment, order.target.isRegion() ? dragLimit : windowLimit, stop->get()};
        return wayland ? takeOnWayland(tools, order) : takeOnX11(tools, order);
    };
    auto cancel = [stop] { ::eventfd_write(stop->get(), 1); };
    // Nothing of this object after a wait: it may have ended.
    auto& pool = pool_;
    const auto bus = bus_;
    const auto clock = clock_;
    auto taken = co_await attempt(pool.run(std::move(work), std::move(cancel)));
    if (!taken && !isCancellation(taken.error()))
        co_return failure; // it, or a thread for it, could not be started
    const auto status = taken.take();
    if (!wayland || status != unsupported)
        co_return status;
    co_return co_await viaPortal(pool, bus, clock, order->place);
}

SystemScreenPermission::SystemScreenPermission() = default;
SystemScreenPermission::~SystemScreenPermission() = default;

bool SystemScreenPermission::granted() {
    const char* const wayland = std::getenv("WAYLAND_DISPLAY");
    return (wayland && *wayland) || XDisplay::connected(display_) != nullptr;
}

} // namespace kelvadrome
