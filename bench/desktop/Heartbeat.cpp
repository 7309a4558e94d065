// Asks the running application something that only its main loop can answer, all the time, and says how long
// the answers took: bench_heartbeat SECONDS
#include <gio/gio.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

/// The name of the one instance that runs here; it depends on its home.
std::string instance(GDBusConnection* bus) {
    std::string found;
    GVariant* reply = g_dbus_connection_call_sync(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "ListNames", nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, nullptr);
    if (!reply)
        return found;
    GVariantIter* names = nullptr;
    g_variant_get(reply, "(as)", &names);
    for (const char* name = nullptr; g_variant_iter_next(names, "&s", &name);) {
        if (g_str_has_prefix(name, "com.kelvadrome.mac"))
            found = name;
    }
    g_variant_iter_free(names);
    g_variant_unref(reply);
    return found;
}

} // namespace

int main(int count, char** words) {
    const int seconds = count == 2 ? std::atoi(words[1]) : 0;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus || seconds <= 0)
        return 1;
    const std::string name = instance(bus);
    if (name.empty()) {
        std::fputs("no instance runs\n", stderr);
        return 1;
    }
    std::string path = "/" + name;
    std::ranges::replace(path, '.', '/');
    std::ranges::replace(path, '-', '_');
    using Clock = std::chrono::steady_clock;
    std::vector<double> beats;
    for (const auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end; g_usleep(2000)) {
        const auto asked = Clock::now();
        GVariant* reply = g_dbus_connection_call_sync(bus, name.c_str(), path.c_str(), "org.gtk.Actions",
            "Describe", g_variant_new("(s)", "open"), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        if (!reply)
            return 1;
        g_variant_unref(reply);
        beats.push_back(std::chrono::duration<double, std::milli>(Clock::now() - asked).count());
    }
    std::ranges::sort(beats);
    const auto at = [&](double part) {
        return beats[static_cast<std::size_t>(part * static_cast<double>(beats.size() - 1))];
    };
    std::printf("{\"beats\":%zu,\"median\":%.2f,\"most\":%.2f,\"longest\":%.2f}\n", beats.size(), at(.5),
        at(.99), at(1));
}
