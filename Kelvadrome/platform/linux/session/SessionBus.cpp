#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include "KelvadromeKit/support/Log.h"
#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

namespace {

/// GLib is C: nothing may be thrown through it.
void guarded(const std::function<void()>& body) noexcept {
    try {
        body();
    } catch (...) {
        logLine("session bus: " + describeException(std::current_exception()));
    }
}

/// For GLib to keep; `freeKept` is its destroy notification.
template <class T>
gpointer keep(T value) {
    return std::make_unique<T>(std::move(value)).release();
}

template <class T>
void freeKept(gpointer kept) {
    const std::unique_ptr<T> owner(static_cast<T*>(kept));
}

struct Pending {
    std::weak_ptr<void> owner;
    SessionBus::Reply reply;
};

using Watcher = std::function<void(const std::string&)>;

struct Listener {
    std::string type;
    std::function<void(GVariant*)> heard;
};

void takeReply(GObject* bus, GAsyncResult* result, gpointer data) {
    const std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
    GError* raw = nullptr;
    // Also right for a call without descriptors: those of a reply are closed with the list.
    const OwnedVariant value(
        g_dbus_connection_call_with_unix_fd_list_finish(G_DBUS_CONNECTION(bus), nullptr, result, &raw));
    const OwnedError error(raw);
    if (const auto owner = pending->owner.lock())
        guarded([&] { pending->reply(value.get()); });
}

void answerCall(GDBusConnection*, const char*, const char*, const char*, const char* method,
    GVariant* arguments, GDBusMethodInvocation* invocation, gpointer kept) {
    // Its own copy: the method may end what it belongs to.
    const auto object = *static_cast<std::shared_ptr<SessionBus::Object>*>(kept);
    SessionBus::answer(invocation, [&] { return object->call(method, arguments); });
}

GVariant* readProperty(GDBusConnection*, const char*, const char*, const char*, const char* name,
    GError** error, gpointer kept) {
    const auto object = *static_cast<std::shared_ptr<SessionBus::Object>*>(kept);
    GVariant* value = nullptr;
    guarded([&] { value = object->property(name); });
    if (!value)
        g_set_error_literal(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_PROPERTY, name);
    return value;
}

/// Takes a floating value that nobody else will.
void discard(GVariant* value) {
    if (value)
        const OwnedVariant owned(g_variant_ref_sink(value));
}

} // namespace

std::shared_ptr<SessionBus> SessionBus::open() {
    GError* raw = nullptr;
    OwnedObject<GDBusConnection> connection(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &raw));
    const OwnedError error(raw);
    return std::make_shared<SessionBus>(std::move(connection));
}

SessionBus::SessionBus(OwnedObject<GDBusConnection> connection) : connection_(std::move(connection)) {
    if (connection_)
        g_dbus_connection_set_exit_on_close(connection_.get(), FALSE);
}

bool SessionBus::connected() const {
    return connection_ && !g_dbus_connection_is_closed(connection_.get());
}

std::string SessionBus::name() const {
    const char* const name = connection_ ? g_dbus_connection_get_unique_name(connection_.get()) : nullptr;
    return name ? name : "";
}

void SessionBus::call(const Peer& peer, const char* method, GVariant* arguments, const char* replyType,
    std::weak_ptr<void> owner, Reply reply, Options options) {
    if (!connection_) {
        discard(arguments);
        guarded([&] { reply(nullptr); });
        return;
    }
    const auto flags =
        options.start == Start::never ? G_DBUS_CALL_FLAGS_NO_AUTO_START : G_DBUS_CALL_FLAGS_NONE;
    g_dbus_connection_call_with_unix_fd_list(connection_.get(), peer.name, peer.path, peer.interface, method,
        arguments, G_VARIANT_TYPE(replyType), flags, options.limit, options.descriptors, nullptr, &takeReply,
        keep(Pending{std::move(owner), std::move(reply)}));
}

void SessionBus::tell(const Peer& peer, const char* method, GVariant* arguments) {
    if (!connection_) {
        discard(arguments);
        return;
    }
    g_dbus_connection_call(connection_.get(), peer.name, peer.path, peer.interface, method, arguments,
        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, defaultLimit, nullptr, nullptr, nullptr);
}

Subscription SessionBus::watch(const char* name, std::function<void(const std::string& owner)> changed) {
    if (!connection_)
        return {};
    const guint watch = g_bus_watch_name_on_connection(
        connection_.get(), name, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char* owner, gpointer kept) {
            guarded([&] { (*static_cast<Watcher*>(kept))(owner); });
        },
        [](GDBusConnection*, const char*, gpointer kept) {
            guarded([&] { (*static_cast<Watcher*>(kept))(""); });
        },
        keep<Watcher>(std::move(changed)), &freeKept<Watcher>);
    return Subscription([watch] { g_bus_unwatch_name(watch); });
}

Subscription SessionBus::listen(
    const Peer& peer, const char* signal, const char* type, std::function<void(GVariant* arguments)> heard) {
    if (!connection_)
        return {};
    const guint subscription = g_dbus_connection_signal_subscribe(
        connection_.get(), peer.name, peer.interface, signal, peer.path, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* arguments,
            gpointer kept) {
            const auto& listener = *static_cast<Listener*>(kept);
            if (g_variant_is_of_type(arguments, G_VARIANT_TYPE(listener.type.c_str())))
                guarded([&] { listener.heard(arguments); });
        },
        keep(Listener{type, std::move(heard)}), &freeKept<Listener>);
    return Subscription([connection = connection_, subscription] {
        g_dbus_connection_signal_unsubscribe(connection.get(), subscription);
    });
}

Subscription SessionBus::serve(const char* path, const char* xml, Object object) {
    if (!connection_)
        return {};
    using Kept = std::shared_ptr<Object>;
    static const GDBusInterfaceVTable table{&answerCall, &readProperty, nullptr, {}};
    const std::unique_ptr<GDBusNodeInfo, GLibRelease<g_dbus_node_info_unref>> node(
        g_dbus_node_info_new_for_xml(xml, nullptr));
    GError* raw = nullptr;
    const guint registration = g_dbus_connection_register_object(connection_.get(), path, node->interfaces[0],
        &table, keep<Kept>(std::make_shared<Object>(std::move(object))), &freeKept<Kept>, &raw);
    const OwnedError error(raw);
    if (registration == 0) {
        logLine(std::string("session bus: ") + path + ": " + error->message);
        return {};
    }
    return Subscription([connection = connection_, registration] {
        g_dbus_connection_unregister_object(connection.get(), registration);
    });
}

Subscription SessionBus::serve(const char* path, GDBusInterfaceSkeleton* skeleton) {
    GError* raw = nullptr;
    if (!connection_ || !g_dbus_interface_skeleton_export(skeleton, connection_.get(), path, &raw)) {
        if (const OwnedError error(raw); error)
            logLine(std::string("session bus: ") + path + ": " + error->message);
        return {};
    }
    g_object_ref(skeleton);
    return Subscription([kept = std::shared_ptr<GDBusInterfaceSkeleton>(skeleton, &g_object_unref)] {
        g_dbus_interface_skeleton_unexport(kept.get());
    });
}

void SessionBus::answer(GDBusMethodInvocation* invocation, const std::function<GVariant*()>& method) {
    OwnedVariant answer;
    std::optional<std::string> refused;
    guarded([&] {
        refused = "failed";
        try {
            if (auto* const value = method())
                answer.reset(g_variant_take_ref(value));
            refused.reset();
        } catch (const Refusal& refusal) {
            refused = refusal.what();
        }
    });
    if (refused) {
        g_dbus_method_invocation_return_error_literal(
            invocation, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS, refused->c_str());
        return;
    }
    g_dbus_method_invocation_return_value(invocation, answer.get());
}

void SessionBus::emit(const char* path, const char* interface, const char* signal, GVariant* arguments) {
    if (!connected()) {
        discard(arguments);
        return;
    }
    g_dbus_connection_emit_signal(connection_.get(), nullptr, path, interface, signal, arguments, nullptr);
}

GVariant* busText(const std::string& text) {
    return g_variant_new_string(Text::repairUTF8(text).c_str());
}

std::string markupEscaped(const std::string& text) {
    // No more than these: not every server reads the quotes' names.
    return Text::replaceAll(Text::replaceAll(Text::replaceAll(text, "&", "&amp;"), "<", "&lt;"), ">", "&gt;");
}

} // namespace kelvadrome
