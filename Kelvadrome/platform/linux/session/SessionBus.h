#pragma once

#include "Kelvadrome/glib/GLibOwned.h"
#include "KelvadromeKit/support/Observation.h"

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace kelvadrome {

/// A connection to the session bus, shared by the ends on it. On a machine without one every call fails and
/// nothing else happens; a bus that goes away never ends this process. Main thread, in its main context; what
/// a closure throws is logged and goes no further. Registrations end with the subscription that they gave.
class SessionBus {
public:
    static constexpr int defaultLimit = 5000; // milliseconds for a reply

    /// Of another process, on one of its objects.
    struct Peer {
        const char* name;
        const char* path;
        const char* interface;
    };
    /// Absent when the call failed or its limit has passed.
    using Reply = std::function<void(GVariant* value)>;
    enum class Start { ifActivatable, never };
    struct Options {
        Start start = Start::ifActivatable;
        int limit = defaultLimit;
        GUnixFDList* descriptors = nullptr; // that the handles among the arguments count
    };

    /// What a served method answers with: InvalidArgs and these words.
    struct Refusal : std::runtime_error {
        using std::runtime_error::runtime_error;
    };
    /// An object that this process offers. A method gives a tuple, or nothing for an empty one, or throws
    /// Refusal.
    struct Object {
        std::function<GVariant*(const std::string& method, GVariant* arguments)> call = {};
        std::function<GVariant*(const std::string& name)> property = {};
    };

    /// The process's own connection, the one that the application object uses.
    static std::shared_ptr<SessionBus> open();
    explicit SessionBus(OwnedObject<GDBusConnection> connection);
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    bool connected() const;
    /// This connection's own name; empty without a bus.
    std::string name() const;

    /// Takes `arguments`, which may be floating. `reply` comes later, or at once without a bus, and only
    /// while `owner` lives.
    void call(const Peer& peer, const char* method, GVariant* arguments, const char* replyType,
        std::weak_ptr<void> owner, Reply reply, Options options);
    void call(const Peer& peer, const char* method, GVariant* arguments, const char* replyType,
        std::weak_ptr<void> owner, Reply reply) {
        call(peer, method, arguments, replyType, std::move(owner), std::move(reply), Options());
    }
    /// Without waiting for an answer, and without starting the peer for it.
    void tell(const Peer& peer, const char* method, GVariant* arguments);

    /// The peer's connection when it appears, and empty text when it goes. Tells of the present state first.
    [[nodiscard]] Subscription watch(const char* name, std::function<void(const std::string& owner)> changed);
    /// `arguments` are of the type given, or the signal is passed over.
    [[nodiscard]] Subscription listen(const Peer& peer, const char* signal, const char* type,
        std::function<void(GVariant* arguments)> heard);

    /// Offers the one interface that `xml` describes at `path`.
    [[nodiscard]] Subscription serve(const char* path, const char* xml, Object object);
    /// Offers what gdbus-codegen made of an interface; `onCall` connects its methods.
    [[nodiscard]] Subscription serve(const char* path, GDBusInterfaceSkeleton* skeleton);
    /// `signal` is "handle-" and the method's name. The arguments live as long as the call of `method`, which
    /// gives a tuple, or null for an empty one, or throws Refusal. It may end the skeleton.
    template <class... Arguments>
    static void onCall(gpointer skeleton, const char* signal, std::function<GVariant*(Arguments...)> method) {
        using Method = std::function<GVariant*(Arguments...)>;
        struct Handler {
            static gboolean call(
                gpointer, GDBusMethodInvocation* invocation, Arguments... arguments, gpointer kept) {
                answer(invocation, [&] { return (*static_cast<Method*>(kept))(arguments...); });
                return TRUE;
            }
            static void free(gpointer kept, GClosure*) {
                const std::unique_ptr<Method> owner(static_cast<Method*>(kept));
            }
        };
        g_signal_connect_data(skeleton, signal, G_CALLBACK(&Handler::call),
            std::make_unique<Method>(std::move(method)).release(), &Handler::free, GConnectFlags(0));
    }
    static void answer(GDBusMethodInvocation* invocation, const std::function<GVariant*()>& method);

    void emit(const char* path, const char* interface, const char* signal, GVariant* arguments);

private:
    std::shared_ptr<GDBusConnection> connection_;
};

/// A string value; what isn't UTF-8 is repaired, since GLib takes no other.
GVariant* busText(const std::string& text);
/// As text inside of markup.
std::string markupEscaped(const std::string& text);

} // namespace kelvadrome
