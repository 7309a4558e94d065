#pragma once

#include "tests/support/bus/PrivateBus.h"

#include <map>

namespace kelvadrome::test {

/// A desktop's portal for shortcuts and pictures, which answers one program as the test says.
class FakePortal : public FakePeer {
public:
    static constexpr const char* service = "org.freedesktop.portal.Desktop";
    static constexpr const char* path = "/org/freedesktop/portal/desktop";
    static constexpr const char* shortcuts = "org.freedesktop.portal.GlobalShortcuts";
    static constexpr const char* session = "/org/freedesktop/portal/desktop/session/1";

    FakePortal(OwnedObject<GDBusConnection> connection, const std::string& client)
        : FakePeer(std::move(connection)),
          requests_(std::string(path) + "/request/" + client.substr(1) + "/") {
        std::ranges::replace(requests_, '.', '_');
        const auto answer = [this](const std::string& method, GVariant* arguments) {
            return call(method, arguments);
        };
        served = bus.serve(path,
            "<node><interface name='org.freedesktop.portal.GlobalShortcuts'><method name='CreateSession'>"
            "<arg type='a{sv}' direction='in'/><arg type='o' direction='out'/></method>"
            "<method name='BindShortcuts'><arg type='o' direction='in'/>"
            "<arg type='a(sa{sv})' direction='in'/><arg type='s' direction='in'/>"
            "<arg type='a{sv}' direction='in'/><arg type='o' direction='out'/></method></interface></node>",
            {.call = answer});
        pictures_ = bus.serve(path,
            "<node><interface name='org.freedesktop.portal.Screenshot'><method name='Screenshot'>"
            "<arg type='s' direction='in'/><arg type='a{sv}' direction='in'/>"
            "<arg type='o' direction='out'/></method><property name='version' type='u' access='read'/>"
            "</interface></node>",
            {.call = answer, .property = [](const std::string&) { return g_variant_new_uint32(2); }});
        sessions_ = bus.serve(session,
            "<node><interface name='org.freedesktop.portal.Session'><method "
            "name='Close'/></interface></node>",
            {.call = [this](const std::string&, GVariant*) -> GVariant* {
                ++closed;
                return nullptr;
            }});
        own(service);
    }
    ~FakePortal() { pictures_.cancel(), sessions_.cancel(); }

    void key(const char* signal, const char* ofSession = session, const char* id = "command-bar",
        const char* details = "{}") {
        bus.emit(path, shortcuts, signal,
            g_variant_new("(ost@a{sv})", ofSession, id, guint64(5),
                g_variant_new_parsed((std::string("@a{sv} ") + details).c_str())));
    }
    void endSession() {
        bus.emit(session, "org.freedesktop.portal.Session", "Closed", g_variant_new("(@a{sv})", noDetails()));
    }

    /// What each method's Response says: its status and results; a method without one is never answered.
    std::map<std::string, std::pair<guint32, std::string>> answers{
        {"CreateSession", {0, "{'session_handle': <'/org/freedesktop/portal/desktop/session/1'>}"}},
        {"BindShortcuts", {0, "{'shortcuts': <[('command-bar', @a{sv} {})]>}"}}};
    std::vector<std::string> asked; // each method's arguments
    int closed = 0;                 // sessions

private:
    static GVariant* noDetails() { return g_variant_new_parsed("@a{sv} {}"); }

    /// The answer comes before the reply, as it may.
    GVariant* call(const std::string& method, GVariant* arguments) {
        const OwnedText printed(g_variant_print(arguments, FALSE));
        asked.emplace_back(printed.get());
        const OwnedVariant options(g_variant_get_child_value(arguments, g_variant_n_children(arguments) - 1));
        const char* token = "";
        g_variant_lookup(options.get(), "handle_token", "&s", &token);
        const auto request = requests_ + token;
        if (const auto answer = answers.find(method); answer != answers.end())
            bus.emit(request.c_str(), "org.freedesktop.portal.Request", "Response",
                g_variant_new("(u@a{sv})", answer->second.first,
                    g_variant_new_parsed(("@a{sv} " + answer->second.second).c_str())));
        return g_variant_new("(o)", request.c_str());
    }

    std::string requests_;
    Subscription pictures_, sessions_;
};

} // namespace kelvadrome::test
