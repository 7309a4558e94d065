#include "KelvadromeKit/daemon/DebugFlags.h"

#include "KelvadromeKit/support/Text.h"

namespace kelvadrome {

DebugFlags DebugFlags::read(const Defaults& defaults) {
    DebugFlags flags;
    flags.home = defaults.string("KDHome");
    if (const auto port = defaults.string("KDPort"))
        flags.port = Text::parseInteger(*port);
    flags.appearance = defaults.string("KDAppearance");
    flags.notifications = !defaults.object("KDNotifications") || defaults.boolean("KDNotifications");
    flags.openPanel = defaults.boolean("KDOpenPanel");
    flags.settingsTab = defaults.string("KDOpenSettings");
    if (const auto section = defaults.string("KDSection"))
        flags.section = navSectionFromRawValue(*section);
    flags.inspector = defaults.boolean("KDInspector");
    flags.onboarding = defaults.boolean("KDOnboarding");
    flags.openBar = defaults.boolean("KDOpenBar");
    flags.barText = defaults.string("KDBarText");
    flags.quietWindows = defaults.boolean("KDQuiet");
    return flags;
}

const DebugFlags& DebugFlags::current(const Defaults& defaults) {
    static const DebugFlags flags = read(defaults);
    return flags;
}

} // namespace kelvadrome
