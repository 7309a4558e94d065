#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"

#include "KelvadromeKit/support/Text.h"

#include <TrayBus.h>
#include <atomic>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr const char* path = "/StatusNotifierItem";
constexpr const char* menuPath = "/StatusNotifierItem/Menu";
constexpr const char* watcherName = "org.kde.StatusNotifierWatcher";
constexpr SessionBus::Peer watcherPeer{watcherName, "/StatusNotifierWatcher", watcherName};
constexpr SessionBus::Peer watcherProperties{
    watcherName, "/StatusNotifierWatcher", "org.freedesktop.DBus.Properties"};
constexpr SessionBus::Peer busPeer{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};

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
    return "org.kde.StatusNotifierItem-" + std::to_string(getpid()) + "-" + std::to_string(++count);
}

} // namespace

StatusNotifierItem::StatusNotifierItem(std::shared_ptr<SessionBus> bus, Icon icon, Presses presses)
    : bus_(std::move(bus)), icon_(std::move(icon)), presses_(std::move(presses)), menu_(bus_, menuPath),
      ownName_(nextOwnName()), skeleton_(kd_tray_item_skeleton_new()) {
    auto* const item = skeleton_.get();
    kd_tray_item_set_category(item, "ApplicationStatus");
    kd_tray_item_set_id(item, "com.kelvadrome.mac");
    kd_tray_item_set_icon_name(item, icon_.name.c_str());
    kd_tray_item_set_icon_theme_path(item, Text::repairUTF8(icon_.themePath).c_str());
    kd_tray_item_set_overlay_icon_pixmap(item, toVariant({}));
    kd_tray_item_set_menu(item, menuPath);
    describe();
    answerPresses();
    served_ = bus_->serve(path, G_DBUS_INTERFACE_SKELETON(item));
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
    if (state == state_)
        return;
    const auto before = std::exchange(state_, std::move(state));
    describe();
    auto* const item = skeleton_.get();
    if (before.title != state_.title)
        kd_tray_item_emit_new_title(item);
    if (before.title != state_.title || before.tooltip != state_.tooltip)
        kd_tray_item_emit_new_tool_tip(item);
    if (before.label != state_.label)
        kd_tray_item_emit_new_label(item, kd_tray_item_get_label(item), "");
    if (before.status != state_.status)
        kd_tray_item_emit_new_status(item, word(state_.status));
    if (before.pixmaps != state_.pixmaps) {
        kd_tray_item_emit_new_icon(item);
        kd_tray_item_emit_new_attention_icon(item);
    }
}

/// Puts the state into what hosts read.
void StatusNotifierItem::describe() {
    auto* const item = skeleton_.get();
    kd_tray_item_set_title(item, Text::repairUTF8(state_.title).c_str());
    kd_tray_item_set_status(item, word(state_.status));
    kd_tray_item_set_label(item, Text::repairUTF8(state_.label).c_str());
    kd_tray_item_set_tool_tip(item, g_variant_new("(s@a(iiay)@s@s)", "", toVariant({}), busText(state_.title),
                                        busText(markupEscaped(state_.tooltip))));
    const bool drawn = !state_.pixmaps.empty();
    kd_tray_item_set_icon_pixmap(item, toVariant(drawn ? state_.pixmaps : icon_.pixmaps));
    kd_tray_item_set_attention_icon_pixmap(item, toVariant(drawn ? state_.pixmaps : icon_.pixmaps));
    kd_tray_item_set_attention_icon_name(item, drawn ? "" : icon_.name.c_str());
}

void StatusNotifierItem::answerPresses() {
    using Pressed = std::function<void(Press)> Presses::*;
    for (const auto& [signal, which] :
        {std::pair<const char*, Pressed>("handle-activate", &Presses::activate),
            {"handle-secondary-activate", &Presses::secondary},
            {"handle-context-menu", &Presses::contextMenu}}) {
        SessionBus::onCall(skeleton_.get(), signal, std::function([this, which](int x, int y) -> GVariant* {
            const auto pressed = presses_.*which; // a copy: the press may end this item
            if (pressed)
                pressed({x, y, takeActivationToken()});
            return nullptr;
        }));
    }
    SessionBus::onCall(skeleton_.get(), "handle-scroll",
        std::function([](int, const char*) -> GVariant* { return nullptr; }));
    SessionBus::onCall(skeleton_.get(), "handle-provide-xdg-activation-token",
        std::function([this](const char* token) -> GVariant* {
            activationToken_ = token;
            return nullptr;
        }));
}

void StatusNotifierItem::watcherChanged(const std::string& owner) {
    registered_ = false;
    watcherCalls_ = owner.empty() ? nullptr : std::make_shared<bool>();
    if (watcherCalls_)
        takeName();
    setHosted(false);
}

/// Watchers expect a name of its own for each item; in a sandbox that gives none, the connection's will do.
void StatusNotifierItem::takeName() {
    joining_ = true;
    bus_->call(busPeer, "RequestName", g_variant_new("(su)", ownName_.c_str(), 0U), "(u)", watcherCalls_,
        [this](GVariant* reply) {
            std::uint32_t result = 0;
            if (reply)
                g_variant_get(reply, "(u)", &result);
            const bool owned = result == 1 || result == 4; // the primary owner, or already that
            join(owned ? ownName_ : bus_->name());
        });
}

void StatusNotifierItem::join(std::string name) {
    bus_->call(watcherPeer, "RegisterStatusNotifierItem", g_variant_new("(s)", name.c_str()), "()",
        watcherCalls_, [this](GVariant* reply) {
            joining_ = false;
            registered_ = reply != nullptr;
            if (registered_)
                hostsChanged();
        });
}

/// A host that is gone may not have been the only one, so the watcher is asked.
void StatusNotifierItem::hostsChanged() {
    if (!watcherCalls_ || joining_)
        return;
    if (!registered_) {
        takeName(); // it wasn't ready for items before
        return;
    }
    bus_->call(watcherProperties, "Get", g_variant_new("(ss)", watcherName, "IsStatusNotifierHostRegistered"),
        "(v)", watcherCalls_, [this](GVariant* reply) {
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
