#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"

#include <atomic>
#include <bit>
#include <cstring>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr const char* path = "/StatusNotifierItem";
constexpr const char* menuPath = "/StatusNotifierItem/Menu";
constexpr const char* interface = "org.kde.StatusNotifierItem";
constexpr const char* watcherName = "org.kde.StatusNotifierWatcher";
constexpr SessionBus::Peer watcherPeer{watcherName, "/StatusNotifierWatcher", watcherName};
constexpr SessionBus::Peer watcherProperties{
    watcherName, "/StatusNotifierWatcher", "org.freedesktop.DBus.Properties"};
constexpr SessionBus::Peer busPeer{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};

constexpr const char* xml = R"xml(<node><interface name="org.kde.StatusNotifierItem">
<property name="Category" type="s" access="read"/>
<property name="Id" type="s" access="read"/>
<property name="Title" type="s" access="read"/>
<property name="Status" type="s" access="read"/>
<property name="WindowId" type="i" access="read"/>
<property name="IconThemePath" type="s" access="read"/>
<property name="IconName" type="s" access="read"/>
<property name="IconPixmap" type="a(iiay)" access="read"/>
<property name="OverlayIconName" type="s" access="read"/>
<property name="OverlayIconPixmap" type="a(iiay)" access="read"/>
<property name="AttentionIconName" type="s" access="read"/>
<property name="AttentionIconPixmap" type="a(iiay)" access="read"/>
<property name="AttentionMovieName" type="s" access="read"/>
<property name="ToolTip" type="(sa(iiay)ss)" access="read"/>
<property name="ItemIsMenu" type="b" access="read"/>
<property name="Menu" type="o" access="read"/>
<property name="XAyatanaLabel" type="s" access="read"/>
<property name="XAyatanaLabelGuide" type="s" access="read"/>
<method name="ContextMenu"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
<method name="Activate"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
<method name="SecondaryActivate"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
<method name="Scroll"><arg type="i" direction="in"/><arg type="s" direction="in"/></method>
<method name="ProvideXdgActivationToken"><arg type="s" direction="in"/></method>
<signal name="NewTitle"/><signal name="NewIcon"/><signal name="NewAttentionIcon"/><signal name="NewOverlayIcon"/>
<signal name="NewToolTip"/><signal name="NewMenu"/><signal name="NewStatus"><arg type="s"/></signal>
<signal name="XAyatanaNewLabel"><arg type="s"/><arg type="s"/></signal>
</interface></node>)xml";

const char* word(StatusNotifierItem::Status status) {
    using enum StatusNotifierItem::Status;
    switch (status) {
    case passive:
        return "Passive";
    case needsAttention:
        return "NeedsAttention";
    case active:
        break;
    }
    return "Active";
}

GVariant* toVariant(const std::vector<StatusNotifierItem::Pixmap>& pixmaps) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(iiay)"));
    for (const auto& pixmap : pixmaps) {
        g_variant_builder_add(&builder, "(ii@ay)", pixmap.width, pixmap.height,
            g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, pixmap.bytes.data(), pixmap.bytes.size(), 1));
    }
    return g_variant_builder_end(&builder);
}

std::string nextOwnName() {
    static std::atomic<int> count = 0;
    return std::string(interface) + "-" + std::to_string(getpid()) + "-" + std::to_string(++count);
}

} // namespace

StatusNotifierItem::Pixmap StatusNotifierItem::Pixmap::fromPremultiplied(
    std::int32_t width, std::int32_t height, std::size_t stride, const unsigned char* pixels) {
    Pixmap pixmap{width, height, {}};
    pixmap.bytes.reserve(std::size_t(width) * std::size_t(height) * 4);
    for (std::int32_t y = 0; y < height; ++y) {
        for (std::int32_t x = 0; x < width; ++x) {
            std::uint32_t pixel = 0;
            std::memcpy(&pixel, pixels + std::size_t(y) * stride + std::size_t(x) * 4, sizeof pixel);
            const auto alpha = pixel >> 24;
            pixmap.bytes += static_cast<char>(alpha);
            for (const int shift : {16, 8, 0}) {
                const auto part = (pixel >> shift) & 0xff;
                pixmap.bytes +=
                    static_cast<char>(alpha == 0 ? 0 : std::min(255U, (part * 255 + alpha / 2) / alpha));
            }
        }
    }
    return pixmap;
}

StatusNotifierItem::StatusNotifierItem(std::shared_ptr<SessionBus> bus, Icon icon, Presses presses)
    : bus_(std::move(bus)), icon_(std::move(icon)), presses_(std::move(presses)), menu_(bus_, menuPath),
      ownName_(nextOwnName()) {
    served_ = bus_->serve(path, xml,
        {.call = [this](const std::string& method, GVariant* arguments) { return answer(method, arguments); },
            .property = [this](const std::string& name) { return property(name); }});
    for (const char* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
        listening_.push_back(bus_->listen(watcherPeer, signal, "()", [this](GVariant*) { hostsChanged(); }));
    }
    listening_.push_back(bus_->listen(
        watcherProperties, "PropertiesChanged", "(sa{sv}as)", [this](GVariant*) { hostsChanged(); }));
    listening_.push_back(
        bus_->watch(watcherName, [this](const std::string& owner) { watcherChanged(owner); }));
}

StatusNotifierItem::~StatusNotifierItem() {
    bus_->tell(busPeer, "ReleaseName", g_variant_new("(s)", ownName_.c_str()));
}

void StatusNotifierItem::show(State state) {
    const auto before = std::exchange(state_, std::move(state));
    const auto changed = [&](const char* signal, GVariant* arguments = nullptr) {
        bus_->emit(path, interface, signal, arguments);
    };
    if (before.title != state_.title)
        changed("NewTitle");
    if (before.title != state_.title || before.tooltip != state_.tooltip)
        changed("NewToolTip");
    if (before.label != state_.label)
        changed("XAyatanaNewLabel", g_variant_new("(@s@s)", busText(state_.label), busText("")));
    if (before.status != state_.status)
        changed("NewStatus", g_variant_new("(s)", word(state_.status)));
    if (before.pixmaps != state_.pixmaps) {
        changed("NewIcon");
        changed("NewAttentionIcon");
    }
}

GVariant* StatusNotifierItem::property(const std::string& name) const {
    if (name == "Category")
        return g_variant_new_string("ApplicationStatus");
    if (name == "Id")
        return g_variant_new_string("com.kelvadrome.mac");
    if (name == "Title")
        return busText(state_.title);
    if (name == "Status")
        return g_variant_new_string(word(state_.status));
    if (name == "WindowId")
        return g_variant_new_int32(0);
    if (name == "IconThemePath")
        return busText(icon_.themePath);
    if (name == "IconName" || (name == "AttentionIconName" && state_.pixmaps.empty()))
        return busText(icon_.name);
    if (name == "IconPixmap" || name == "AttentionIconPixmap")
        return toVariant(state_.pixmaps.empty() ? icon_.pixmaps : state_.pixmaps);
    if (name == "OverlayIconPixmap")
        return toVariant({});
    if (name == "ToolTip") {
        return g_variant_new("(s@a(iiay)@s@s)", "", toVariant({}), busText(state_.title),
            busText(markupEscaped(state_.tooltip)));
    }
    if (name == "ItemIsMenu")
        return g_variant_new_boolean(FALSE);
    if (name == "Menu")
        return g_variant_new_object_path(menuPath);
    if (name == "XAyatanaLabel")
        return busText(state_.label);
    return g_variant_new_string(""); // what this item never has
}

GVariant* StatusNotifierItem::answer(const std::string& method, GVariant* arguments) {
    if (method == "ProvideXdgActivationToken") {
        const char* token = nullptr;
        g_variant_get(arguments, "(&s)", &token);
        activationToken_ = token;
        return nullptr;
    }
    if (method == "Scroll")
        return nullptr;
    Press press;
    g_variant_get(arguments, "(ii)", &press.x, &press.y);
    press.activationToken = takeActivationToken();
    // A copy: the press may end this item.
    const auto pressed = method == "Activate"            ? presses_.activate
                         : method == "SecondaryActivate" ? presses_.secondary
                                                         : presses_.contextMenu;
    if (pressed)
        pressed(std::move(press));
    return nullptr;
}

void StatusNotifierItem::watcherChanged(const std::string& owner) {
    registered_ = false;
    stay_ = owner.empty() ? nullptr : std::make_shared<bool>();
    if (stay_)
        takeName();
    setHosted(false);
}

/// Watchers expect a name of its own for each item; in a sandbox that gives none, the connection's will do.
void StatusNotifierItem::takeName() {
    joining_ = true;
    bus_->call(busPeer, "RequestName", g_variant_new("(su)", ownName_.c_str(), 0U), "(u)", stay_,
        [this](GVariant* reply) {
            std::uint32_t result = 0;
            if (reply)
                g_variant_get(reply, "(u)", &result);
            const bool owned = result == 1 || result == 4; // the primary owner, or already that
            join(owned ? ownName_ : bus_->name());
        });
}

void StatusNotifierItem::join(std::string name) {
    bus_->call(watcherPeer, "RegisterStatusNotifierItem", g_variant_new("(s)", name.c_str()), "()", stay_,
        [this](GVariant* reply) {
            joining_ = false;
            registered_ = reply != nullptr;
            if (registered_)
                hostsChanged();
        });
}

/// A host that is gone may not have been the only one, so the watcher is asked.
void StatusNotifierItem::hostsChanged() {
    if (!stay_ || joining_)
        return;
    if (!registered_) {
        takeName(); // it wasn't ready for items before
        return;
    }
    bus_->call(watcherProperties, "Get", g_variant_new("(ss)", watcherName, "IsStatusNotifierHostRegistered"),
        "(v)", stay_, [this](GVariant* reply) {
            OwnedVariant value;
            if (reply) {
                GVariant* raw = nullptr;
                g_variant_get(reply, "(v)", &raw);
                value.reset(raw);
            }
            setHosted(value && g_variant_is_of_type(value.get(), G_VARIANT_TYPE_BOOLEAN) &&
                      g_variant_get_boolean(value.get()));
        });
}

void StatusNotifierItem::setHosted(bool hosted) {
    if (std::exchange(hosted_, hosted) == hosted)
        return;
    if (const auto tell = onHosted)
        tell(hosted);
}

} // namespace kelvadrome
