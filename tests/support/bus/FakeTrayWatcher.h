#pragma once

#include "tests/support/bus/PrivateBus.h"

namespace kelvadrome::test {

/// What tray items register with, and whether some host shows them.
class FakeTrayWatcher : public FakePeer {
public:
    static constexpr const char* watcherName = "org.kde.StatusNotifierWatcher";
    static constexpr const char* watcherPath = "/StatusNotifierWatcher";

    explicit FakeTrayWatcher(OwnedObject<GDBusConnection> connection, bool withHost)
        : FakePeer(std::move(connection)), hosted(withHost) {
        served = bus.serve(watcherPath,
            "<node><interface name='org.kde.StatusNotifierWatcher'><method name='RegisterStatusNotifierItem'>"
            "<arg type='s' direction='in'/></method>"
            "<property name='IsStatusNotifierHostRegistered' type='b' access='read'/></interface></node>",
            {.call = [this](const std::string&, GVariant* arguments) -> GVariant* {
                 const char* name = nullptr;
                 g_variant_get(arguments, "(&s)", &name);
                 items.emplace_back(name);
                 if (refusing)
                     throw SessionBus::Refusal("not yet");
                 return nullptr;
             },
                .property =
                    [this](const std::string&) {
                        ++looks;
                        return g_variant_new_boolean(hosted);
                    }});
        own(watcherName);
    }
    void setHosted(bool now, const char* signal) {
        hosted = now;
        bus.emit(watcherPath, watcherName, signal, nullptr);
    }

    bool hosted;
    bool refusing = false;
    int looks = 0;
    std::vector<std::string> items;
};

} // namespace kelvadrome::test
