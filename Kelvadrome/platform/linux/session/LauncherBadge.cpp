#include "Kelvadrome/platform/linux/session/LauncherBadge.h"

namespace kelvadrome {

namespace {

constexpr const char* path = "/com/kelvadrome/mac/launcher";
constexpr const char* interface = "com.canonical.Unity.LauncherEntry";
constexpr const char* docks = "com.canonical.Unity"; // the name that docks of any make take
constexpr const char* application = "application://com.kelvadrome.mac.desktop";
constexpr const char* xml = R"xml(<node><interface name="com.canonical.Unity.LauncherEntry">
<method name="Query"><arg type="s" direction="out"/><arg type="a{sv}" direction="out"/></method>
<signal name="Update"><arg type="s"/><arg type="a{sv}"/></signal>
</interface></node>)xml";

} // namespace

LauncherBadge::LauncherBadge(std::shared_ptr<SessionBus> bus) : bus_(std::move(bus)) {
    served_ = bus_->serve(path, xml, {.call = [this](const std::string&, GVariant*) { return update(); }});
    docks_ = bus_->watch(docks, [this](const std::string& owner) {
        if (!owner.empty() && count_)
            announce();
    });
}

LauncherBadge::~LauncherBadge() {
    set(std::nullopt);
}

void LauncherBadge::set(std::optional<std::int64_t> count) {
    if (std::exchange(count_, count) != count)
        announce();
}

GVariant* LauncherBadge::update() const {
    return g_variant_new_parsed("(%s, {'count': <%x>, 'count-visible': <%b>})", application,
        count_.value_or(0), static_cast<gboolean>(count_.has_value()));
}

void LauncherBadge::announce() {
    bus_->emit(path, interface, "Update", update());
}

} // namespace kelvadrome
