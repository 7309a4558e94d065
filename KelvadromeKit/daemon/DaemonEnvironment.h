#pragma once

#include "KelvadromeKit/support/Files.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kelvadrome {

using EnvironmentMap = std::map<std::string, std::string>;
using FileTest = std::function<bool(const std::string& path)>;

/// A PATH with those of `folders` that aren't entries yet put before it; the old value is kept as a whole.
std::string prependMissing(const std::string& path, const std::vector<std::string>& folders);

/// Where the daemon's files are, for one run. A value; but for the home's links, which `resolveHome` follows,
/// it asks the disk only through the tests that it is given.
struct DaemonEnvironment {
    DaemonEnvironment() = default;
    DaemonEnvironment(
        std::string home, std::optional<std::int64_t> port, std::optional<std::string> resources);

    std::string home;                     // the data home, with the daemon's socket in it
    std::optional<std::int64_t> port;     // of the page; absent lets the daemon choose
    std::optional<std::string> resources; // absent when the application has no resource directory

    static std::string defaultHome();
    /// The override, then KELVADROME_HOME, each if not empty and with a leading tilde expanded; else the
    /// default. As it was written: `resolveHome` gives the one name of that place.
    static std::string namedHome(
        const std::optional<std::string>& override, const EnvironmentMap& environment);
    /// The named home, canonical: the page key's account, the socket and the daemon's own notion of its home
    /// all hang on the very text.
    static std::string resolveHome(
        const std::optional<std::string>& override, const EnvironmentMap& environment);
    /// Whether the home is the default one.
    bool isStandard() const { return home == Files::canonical(defaultHome()); }

    std::string socketPath() const;
    // Absent without a resource directory.
    std::optional<std::string> bundleRoot() const;
    std::optional<std::string> bundledNode() const;
    std::optional<std::string> launcherPath() const;
    std::optional<std::string> webDistPath() const;
    std::optional<std::string> cliPath() const;
    std::optional<std::string> mcpPath() const;

    /// Where Node may be, best first, each place once. `path` is the value of PATH.
    std::vector<std::string> nodeCandidates(const std::optional<std::string>& path) const;
    std::optional<std::string> findNode(
        const std::optional<std::string>& path, const FileTest& isExecutable = Files::isExecutable) const;
    /// What follows Node on the command line; absent without a resource directory.
    std::optional<std::vector<std::string>> daemonArguments() const;
    /// The daemon's whole environment, built from a few variables of `base`.
    EnvironmentMap daemonEnvironment(const EnvironmentMap& base) const;

    /// Whether the output of `node --version` says 22.13 or later.
    static bool nodeVersionOK(std::string_view version);

    bool operator==(const DaemonEnvironment&) const = default;

private:
    std::optional<std::string> inResources(std::string_view rest) const;
};

} // namespace kelvadrome
