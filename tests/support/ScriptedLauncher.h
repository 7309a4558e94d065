#pragma once

#include "KelvadromeKit/daemon/ChildProcess.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace kelvadrome::test {

/// Makes `resources` a resource directory with a launcher and a "Node", an executable of this text.
inline void installDaemon(const std::string& resources, const std::string& node = "") {
    std::filesystem::create_directories(resources + "/node/bin");
    std::filesystem::create_directories(resources + "/kelvadrome");
    std::ofstream(resources + "/kelvadrome/kelvadromed-app.mjs") << "";
    std::ofstream(resources + "/node/bin/node") << node;
    std::filesystem::permissions(resources + "/node/bin/node", std::filesystem::perms::owner_all);
}

/// A child that does what the test says, and remembers what was asked of it.
class ScriptedChild final : public ChildProcess {
public:
    ScriptedChild(std::int32_t pid, ChildLauncher::Callbacks callbacks)
        : pid_(pid), callbacks_(std::move(callbacks)) {}

    bool isRunning() const override { return running_; }
    std::int32_t pid() const override { return pid_; }
    void terminate() override {
        asked.push_back("terminate");
        if (endsWhenTold)
            running_ = false;
    }
    void kill() override {
        asked.push_back("kill");
        running_ = false;
    }
    void closeInput() override { asked.push_back("close input"); }

    void say(const std::string& text) { callbacks_.output(text); }
    /// Dead, but its end isn't told yet.
    void die() { running_ = false; }
    void tellEnd(std::int32_t code) {
        running_ = false;
        callbacks_.exited(code);
    }

    bool endsWhenTold = true;
    std::vector<std::string> asked;

private:
    const std::int32_t pid_;
    const ChildLauncher::Callbacks callbacks_;
    std::atomic<bool> running_ = true;
};

class ScriptedLauncher final : public ChildLauncher {
public:
    std::shared_ptr<ChildProcess> launch(Command command, Callbacks callbacks) override {
        if (failure)
            throw std::system_error(*failure, std::generic_category(), command.executable);
        commands.push_back(std::move(command));
        children.push_back(std::make_shared<ScriptedChild>(
            100 + static_cast<std::int32_t>(children.size()), std::move(callbacks)));
        if (onLaunch)
            onLaunch(*children.back());
        return children.back();
    }

    Output output(std::string, std::vector<std::string> arguments, double) override {
        if (onVersion)
            onVersion();
        return arguments == std::vector<std::string>{"--version"} ? version : Output();
    }

    Output version = {.text = "v24.1.0\nmore\n"};
    std::optional<int> failure;                   // an errno
    std::function<void(ScriptedChild&)> onLaunch; // before the launch returns
    std::function<void()> onVersion;              // on a pool thread
    std::vector<Command> commands;
    std::vector<std::shared_ptr<ScriptedChild>> children;
};

} // namespace kelvadrome::test
