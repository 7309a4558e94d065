#include "KelvadromeKit/daemon/DaemonEnvironment.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

namespace {

std::optional<std::string> value(const EnvironmentMap& environment, const std::string& name) {
    const auto found = environment.find(name);
    if (found == environment.end())
        return std::nullopt;
    return found->second;
}

} // namespace

DaemonEnvironment::DaemonEnvironment(
    std::string home, std::optional<std::int64_t> port, std::optional<std::string> resources)
    : home(std::move(home)), port(port), resources(std::move(resources)) {}

std::string DaemonEnvironment::defaultHome() {
    return Files::userHome() + "/Library/Application Support/Kelvadrome";
}

std::string DaemonEnvironment::resolveHome(
    const std::optional<std::string>& override, const EnvironmentMap& environment) {
    return Files::canonical(namedHome(override, environment));
}

std::string DaemonEnvironment::namedHome(
    const std::optional<std::string>& override, const EnvironmentMap& environment) {
    if (override && !override->empty())
        return Files::expandTilde(*override);
    const auto variable = value(environment, "KELVADROME_HOME");
    if (variable && !variable->empty())
        return Files::expandTilde(*variable);
    return defaultHome();
}

std::string DaemonEnvironment::socketPath() const {
    return Files::join(home, "kelvadromed.sock");
}

std::optional<std::string> DaemonEnvironment::inResources(std::string_view rest) const {
    if (!resources)
        return std::nullopt;
    return Files::join(*resources, rest);
}

std::optional<std::string> DaemonEnvironment::bundleRoot() const {
    return inResources("kelvadrome");
}

std::optional<std::string> DaemonEnvironment::bundledNode() const {
    return inResources("node/bin/node");
}

std::optional<std::string> DaemonEnvironment::launcherPath() const {
    return inResources("kelvadrome/kelvadromed-app.mjs");
}

std::optional<std::string> DaemonEnvironment::webDistPath() const {
    return inResources("kelvadrome/web/dist");
}

std::optional<std::string> DaemonEnvironment::cliPath() const {
    return inResources("kelvadrome/dist/bin.js");
}

std::optional<std::string> DaemonEnvironment::mcpPath() const {
    return inResources("kelvadrome/node_modules/@kelvadrome/mcp/dist/bin.js");
}

std::vector<std::string> DaemonEnvironment::nodeCandidates(const std::optional<std::string>& path) const {
    std::vector<std::string> candidates;
    const auto add = [&](std::string place) {
        if (std::find(candidates.begin(), candidates.end(), place) == candidates.end()) {
            candidates.push_back(std::move(place));
        }
    };
    if (const auto bundled = bundledNode())
        add(*bundled);
    add("/opt/homebrew/bin/node");
    add("/usr/local/bin/node");
    if (path) {
        for (const auto entry : Text::split(*path, ':', Text::EmptyPieces::drop))
            add(std::string(entry) + "/node");
    }
    return candidates;
}

std::optional<std::string> DaemonEnvironment::findNode(
    const std::optional<std::string>& path, const FileTest& isExecutable) const {
    for (auto& candidate : nodeCandidates(path)) {
        if (isExecutable(candidate))
            return std::move(candidate);
    }
    return std::nullopt;
}

std::optional<std::vector<std::string>> DaemonEnvironment::daemonArguments() const {
    if (!resources)
        return std::nullopt;
    std::vector<std::string> arguments = {*launcherPath(), "--home", home, "--static", *webDistPath()};
    if (port) {
        arguments.emplace_back("--port");
        arguments.push_back(std::to_string(*port));
    }
    return arguments;
}

EnvironmentMap DaemonEnvironment::daemonEnvironment(const EnvironmentMap& base) const {
    EnvironmentMap environment;
    for (const auto* name : {"HOME", "USER", "LOGNAME", "LANG", "TMPDIR", "SHELL"}) {
        if (const auto held = value(base, name))
            environment.emplace(name, *held);
    }
    auto path = value(base, "PATH").value_or("/usr/bin:/bin:/usr/sbin:/sbin");
    environment["PATH"] = prependMissing(path, {"/opt/homebrew/bin", "/usr/local/bin"});
    environment["KELVADROME_HOME"] = home;
    environment["NODE_ENV"] = "production";
    return environment;
}

bool DaemonEnvironment::nodeVersionOK(std::string_view version) {
    auto text = Text::trimWhitespace(version);
    while (text.starts_with('v'))
        text.remove_prefix(1);
    while (text.ends_with('v'))
        text.remove_suffix(1);
    std::vector<std::int64_t> numbers;
    for (const auto piece : Text::split(text, '.')) {
        if (const auto number = Text::parseInteger(piece))
            numbers.push_back(*number);
    }
    if (numbers.size() < 2)
        return false;
    return numbers[0] > 22 || (numbers[0] == 22 && numbers[1] > 12);
}

std::string prependMissing(const std::string& path, const std::vector<std::string>& folders) {
    const auto entries = Text::split(path, ':', Text::EmptyPieces::drop);
    std::vector<std::string> pieces;
    for (const auto& folder : folders) {
        if (std::find(entries.begin(), entries.end(), folder) == entries.end())
            pieces.push_back(folder);
    }
    pieces.push_back(path);
    return Text::join(pieces, ":");
}

} // namespace kelvadrome
