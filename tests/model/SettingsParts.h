#pragma once

#include "Kelvadrome/model/SettingsModel.h"

#include "tests/model/World.h"

namespace kelvadrome::test {

/// What the settings of a world are made of, to be changed where a test needs something else.
inline SettingsModel::Dependencies settingsParts(World& world) {
    return {.executor = world.loop.executor(),
        .pool = &world.loop.pool(),
        .model = world.model,
        .defaults = world.defaults,
        .automation = std::make_shared<AutomationPrompter>(
            world.loop.executor(), world.probe, std::make_shared<MemoryFlags>()),
        .session = std::make_shared<PageSession>(world.loop.executor(), world.page, FakePage::mint),
        .apps = std::make_shared<FakeApps>(),
        .place = {},
        .secretPlace = [] { return std::string(); },
        .showInDock = [](bool) {}};
}

} // namespace kelvadrome::test
