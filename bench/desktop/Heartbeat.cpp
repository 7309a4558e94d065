// Asks the running application something that only its main loop can answer, all the time, and says how long
// the answers took, in milliseconds: bench_heartbeat SECONDS
// Between two of them the bus itself is asked. It has nothing else to do, so its answers say how long this
// machine lets any program wait.
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

using Clock = std::chrono::steady_clock;

/// How long a call took in milliseconds; less than 0 when it failed.
double timeOf(GDBusConnection* bus, const char* name, const char* path, const char* interface,
    const char* method, GVariant* words) {
    const auto asked = Clock::now();
    GVariant* reply = g_dbus_connection_call_sync(
        bus, name, path, interface, method, words, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (!reply)
        return -1;
    g_variant_unref(reply);
    return std::chrono::duration<double, std::milli>(Clock::now() - asked).count();
}

/// The time that this part of all answers stayed within.
double within(double part, const std::vector<double>& sorted) {
    return sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
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
    std::vector<double> beats, busBeats;
    for (const auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end; g_usleep(2000)) {
        beats.push_back(timeOf(
            bus, name.c_str(), path.c_str(), "org.gtk.Actions", "Describe", g_variant_new("(s)", "open")));
        busBeats.push_back(timeOf(
            bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "GetId", nullptr));
        if (beats.back() < 0 || busBeats.back() < 0)
            return 1;
    }
    std::ranges::sort(beats);
    std::ranges::sort(busBeats);
    std::printf("{\"beats\":%zu,\"median\":%.2f,\"most\":%.2f,\"longest\":%.2f,\"busMost\":%.2f,"
                "\"busLongest\":%.2f}\n",
        beats.size(), within(.5, beats), within(.99, beats), within(1, beats), within(.99, busBeats),
        within(1, busBeats));
}
