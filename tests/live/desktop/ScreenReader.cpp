#include "tests/live/desktop/ScreenReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

namespace kelvadrome::test {

namespace {

constexpr const char* application = "kelvadrome";
constexpr const char* accessible = "org.a11y.atspi.Accessible";
constexpr int replyLimit = 3000; // milliseconds
constexpr int deepest = 60;

// AT-SPI's numbers of what is asked for. GTK 4.8 calls visible what shows, but for windows.
enum State : unsigned {
    checked = 4,
    focused = 12,
    pressed = 20,
    selected = 23,
    sensitive = 24,
    visible = 30
};

OwnedVariant callOn(GDBusConnection* bus, const char* name, const char* path, const char* interface,
    const char* method, GVariant* arguments, const char* replyType) {
    return OwnedVariant(g_dbus_connection_call_sync(bus, name, path, interface, method, arguments,
        G_VARIANT_TYPE(replyType), G_DBUS_CALL_FLAGS_NONE, replyLimit, nullptr, nullptr));
}

std::string text(GVariant* tuple) {
    const char* words = "";
    if (tuple)
        g_variant_get(tuple, "(&s)", &words);
    return words;
}

} // namespace

ScreenReader::ScreenReader() {
    const OwnedObject<GDBusConnection> session(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    const auto address =
        callOn(session.get(), "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", nullptr, "(s)");
    const auto flags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus_.reset(g_dbus_connection_new_for_address_sync(
        text(address.get()).c_str(), flags, nullptr, nullptr, nullptr));
    if (!bus_)
        throw std::runtime_error("there is no accessibility bus");
}

OwnedVariant ScreenReader::call(const Thing& thing, const char* interface, const char* method,
    GVariant* arguments, const char* replyType) const {
    return callOn(
        bus_.get(), thing.owner.c_str(), thing.path.c_str(), interface, method, arguments, replyType);
}

std::vector<ScreenReader::Thing> ScreenReader::children(const Thing& thing) const {
    std::vector<Thing> found;
    const auto reply = call(thing, accessible, "GetChildren", nullptr, "(a(so))");
    if (!reply)
        return found; // it has gone meanwhile
    GVariantIter* rows = nullptr;
    g_variant_get(reply.get(), "(a(so))", &rows);
    const char *owner = nullptr, *path = nullptr;
    while (g_variant_iter_next(rows, "(&s&o)", &owner, &path))
        found.push_back({.owner = owner, .path = path, .depth = thing.depth + 1});
    g_variant_iter_free(rows);
    return found;
}

std::string ScreenReader::name(const Thing& thing) const {
    const auto reply = call(
        thing, "org.freedesktop.DBus.Properties", "Get", g_variant_new("(ss)", accessible, "Name"), "(v)");
    if (!reply)
        return {};
    GVariant* value = nullptr;
    g_variant_get(reply.get(), "(v)", &value);
    const OwnedVariant held(value);
    return g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) ? g_variant_get_string(value, nullptr) : "";
}

void ScreenReader::collect(Thing thing, std::vector<Thing>& things) const {
    const auto states = call(thing, accessible, "GetState", nullptr, "(au)");
    if (!states || thing.depth > deepest)
        return;
    std::uint32_t low = 0;
    const OwnedVariant list(g_variant_get_child_value(states.get(), 0));
    if (g_variant_n_children(list.get()) > 0)
        g_variant_get_child(list.get(), 0, "u", &low);
    const auto is = [low](State state) { return (low >> state & 1) != 0; };
    if (!is(State::visible))
        return;
    thing.role = text(call(thing, accessible, "GetRoleName", nullptr, "(s)").get());
    thing.name = name(thing);
    thing.focused = is(State::focused);
    thing.checked = is(State::checked) || is(State::pressed);
    thing.selected = is(State::selected);
    thing.sensitive = is(State::sensitive);
    const auto below = children(thing);
    things.push_back(std::move(thing));
    for (const auto& child : below)
        collect(child, things);
}

std::vector<ScreenReader::Thing> ScreenReader::look() const {
    std::vector<Thing> things;
    const Thing registry{.owner = "org.a11y.atspi.Registry", .path = "/org/a11y/atspi/accessible/root"};
    for (const auto& program : children(registry)) {
        if (name(program) != application)
            continue;
        for (const auto& window : children(program))
            collect(window, things);
    }
    return things;
}

std::optional<ScreenReader::Thing> ScreenReader::first(
    const std::function<bool(const Thing&)>& wanted) const {
    const auto things = look();
    const auto found = std::ranges::find_if(things, wanted);
    return found == things.end() ? std::nullopt : std::optional(*found);
}

std::optional<ScreenReader::Thing> ScreenReader::find(
    const std::string& name, const std::string& role) const {
    return first(
        [&](const Thing& thing) { return thing.name == name && (role.empty() || thing.role == role); });
}

std::optional<ScreenReader::Thing> ScreenReader::findPart(
    const std::string& words, const std::string& role) const {
    return first([&](const Thing& thing) {
        return thing.name.find(words) != std::string::npos && (role.empty() || thing.role == role);
    });
}

std::optional<ScreenReader::Thing> ScreenReader::focused() const {
    return first([](const Thing& thing) { return thing.focused; });
}

void ScreenReader::press(const Thing& thing) const {
    call(thing, "org.a11y.atspi.Action", "DoAction", g_variant_new("(i)", 0), "(b)");
}

std::string ScreenReader::describe() const {
    std::string lines;
    for (const auto& thing : look()) {
        lines += fmt::format("{:>{}}{} \"{}\"{}{}{}\n", "", 2 * thing.depth, thing.role, thing.name,
            thing.focused ? " focused" : "", thing.checked ? " checked" : "",
            thing.selected ? " selected" : "");
    }
    return lines;
}

} // namespace kelvadrome::test
