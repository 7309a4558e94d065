#include "Kelvadrome/platform/linux/session/LogindLock.h"

#include "Kelvadrome/glib/GLibOwned.h"

#include <string>
#include <string_view>
#include <thread>

namespace kelvadrome {

namespace {

constexpr const char* service = "org.freedesktop.login1";
constexpr const char* managerPath = "/org/freedesktop/login1";
constexpr const char* managerInterface = "org.freedesktop.login1.Manager";
constexpr const char* sessionInterface = "org.freedesktop.login1.Session";
constexpr const char* propertiesInterface = "org.freedesktop.DBus.Properties";
constexpr int callLimit = 5000; // milliseconds

} // namespace

/// All but the answer belongs to its thread, whose main context brings replies and signals.
class LogindLock::Listener {
public:
    Listener() : context_(g_main_context_new()), cancel_(g_cancellable_new()), thread_([this] { run(); }) {}

    ~Listener() {
        stopping_ = true;
        g_cancellable_cancel(cancel_.get());
        g_main_context_wakeup(context_.get());
        thread_.join();
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    bool locked() const { return locked_; }

private:
    void run() {
        g_main_context_push_thread_default(context_.get());
        connect();
        // A cancelled call still brings its reply, which names this object.
        while (!stopping_ || pending_ > 0)
            g_main_context_iteration(context_.get(), TRUE);
        bus_.reset();
        g_main_context_pop_thread_default(context_.get());
    }

    void connect() {
        const OwnedText address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
        if (!address)
            return;
        const auto flags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        ++pending_;
        // A connection of its own: the shared one ends the process when the bus goes away.
        g_dbus_connection_new_for_address(
            address.get(), flags, nullptr, cancel_.get(),
            [](GObject*, GAsyncResult* result, gpointer self) {
                static_cast<Listener*>(self)->connected(result);
            },
            this);
    }

    void connected(GAsyncResult* result) {
        --pending_;
        GError* raw = nullptr;
        bus_.reset(g_dbus_connection_new_for_address_finish(result, &raw));
        const OwnedError error(raw);
        if (!bus_)
            return; // a machine without a system bus has no lock to tell of
        g_signal_connect(bus_.get(), "closed",
            G_CALLBACK(+[](GDBusConnection*, gboolean, GError*, Listener* self) { self->locked_ = false; }),
            this);
        subscribe(propertiesInterface, "PropertiesChanged", nullptr, sessionInterface);
        subscribe(managerInterface, "SessionNew", managerPath, nullptr);
        subscribe(managerInterface, "SessionRemoved", managerPath, nullptr);
        askForSession();
    }

    void subscribe(const char* interface, const char* member, const char* path, const char* argument) {
        g_dbus_connection_signal_subscribe(
            bus_.get(), service, interface, member, path, argument, G_DBUS_SIGNAL_FLAGS_NONE,
            [](GDBusConnection*, const char*, const char* path, const char* interface, const char*,
                GVariant* parameters,
                gpointer self) { static_cast<Listener*>(self)->signalled(path, interface, parameters); },
            this, nullptr);
    }

    void signalled(const char* path, std::string_view interface, GVariant* parameters) {
        if (interface == managerInterface) {
            askForSession(); // the user's may be another one now
            return;
        }
        if (path != session_ || !g_variant_is_of_type(parameters, G_VARIANT_TYPE("(sa{sv}as)")))
            return;
        const OwnedVariant changed(g_variant_get_child_value(parameters, 1));
        gboolean hint = FALSE;
        if (g_variant_lookup(changed.get(), "LockedHint", "b", &hint))
            locked_ = hint != FALSE;
    }

    /// "auto" is the caller's session or, for one outside of any, its user's on the display.
    void askForSession() {
        call(managerPath, managerInterface, "GetSession", g_variant_new("(s)", "auto"), "(o)",
            &Listener::foundSession);
    }

    void foundSession(GVariant* reply) {
        session_.clear();
        if (!reply) {
            locked_ = false;
            return;
        }
        const char* path = nullptr;
        g_variant_get(reply, "(&o)", &path);
        session_ = path;
        call(path, propertiesInterface, "Get", g_variant_new("(ss)", sessionInterface, "LockedHint"), "(v)",
            &Listener::foundHint);
    }

    void foundHint(GVariant* reply) {
        if (!reply) {
            locked_ = false;
            return;
        }
        OwnedVariant value;
        GVariant* raw = nullptr;
        g_variant_get(reply, "(v)", &raw);
        value.reset(raw);
        locked_ = g_variant_is_of_type(raw, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(raw);
    }

    using Take = void (Listener::*)(GVariant* reply); // null when the call failed

    void call(const char* path, const char* interface, const char* method, GVariant* arguments,
        const char* replyType, Take take) {
        struct Call {
            Listener* self;
            Take take;
        };
        ++pending_;
        g_dbus_connection_call(
            bus_.get(), service, path, interface, method, arguments, G_VARIANT_TYPE(replyType),
            G_DBUS_CALL_FLAGS_NONE, callLimit, cancel_.get(),
            [](GObject* bus, GAsyncResult* result, gpointer data) {
                const std::unique_ptr<Call> call(static_cast<Call*>(data));
                --call->self->pending_;
                GError* raw = nullptr;
                const OwnedVariant reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(bus), result, &raw));
                const OwnedError error(raw);
                if (!call->self->stopping_)
                    (call->self->*call->take)(reply.get());
            },
            std::make_unique<Call>(Call{this, take}).release());
    }

    std::atomic<bool> locked_ = false;
    std::atomic<bool> stopping_ = false;
    std::unique_ptr<GMainContext, GLibRelease<g_main_context_unref>> context_;
    OwnedObject<GCancellable> cancel_;
    OwnedObject<GDBusConnection> bus_;
    std::string session_; // object path; empty when there is none
    int pending_ = 0;     // calls whose replies are to come
    std::thread thread_;  // the last: it uses all the others
};

LogindLock::LogindLock() : listener_(std::make_unique<Listener>()) {}
LogindLock::~LogindLock() = default;

bool LogindLock::screenLocked() const {
    return listener_->locked();
}

} // namespace kelvadrome
