// Asks the running application something that only its main loop can answer, all the time, and says how long
// the answers took: bench_heartbeat SECONDS
#include <gio/gio.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int count, char** words) {
    const int seconds = count == 2 ? std::atoi(words[1]) : 0;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus || seconds <= 0)
        return 1;
    using Clock = std::chrono::steady_clock;
    std::vector<double> beats;
    for (const auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end; g_usleep(2000)) {
        const auto asked = Clock::now();
        GVariant* reply = g_dbus_connection_call_sync(bus, "com.kelvadrome.mac", "/com/kelvadrome/mac",
            "org.gtk.Actions", "Describe", g_variant_new("(s)", "open"), nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
            nullptr, nullptr);
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
