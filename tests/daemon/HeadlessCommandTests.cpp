#include "KelvadromeKit/daemon/HeadlessCommand.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/LogFile.h"

#include "tests/daemon/LoginItem.h"
#include "tests/support/ScriptedLauncher.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kelvadrome::test {
namespace {

namespace fs = std::filesystem;
using Status = BackgroundServiceStatus;

struct Command {
    Command() {
        world = {.resources = [this] { return resources; },
            .environment = {{"PATH", "/usr/bin:/bin"}},
            .userHome = item.folder / "home",
            .agentService = [this] { return item.service; },
            .background = item.background.effects,
            .build = "7",
            .defaults = [this]() -> Defaults& { return item.defaults; },
            .out = [this](std::string_view text) { out += text; },
            .err = [this](std::string_view text) { err += text; },
            .replaceProcess = HeadlessCommand::replaceProcess};
    }

    std::optional<std::int32_t> run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "kelvadrome");
        return HeadlessCommand::run(arguments, world);
    }

    /// A "Node" that tells what it was given.
    void installNode(const std::string& script) {
        resources = item.folder / "res";
        installDaemon(*resources, script);
    }

    /// Becomes the daemon in a child process, whose streams are `streams` at first; the exit status.
    int execInChild(const std::string& streams) {
        world.err = [](std::string_view text) { (void)!::write(STDERR_FILENO, text.data(), text.size()); };
        const pid_t pid = ::fork();
        if (pid == 0) {
            const int fd = ::open(streams.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
            ::dup2(fd, STDOUT_FILENO);
            ::dup2(fd, STDERR_FILENO);
            ::_exit(run({"--kelvadromed", "and", "more"}).value_or(99));
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    LoginItem item;
    std::optional<std::string> resources;
    HeadlessCommand::World world;
    std::string out;
    std::string err;
};

std::string text(const std::string& path) {
    return Files::read(path, 1 << 16).value_or("no file");
}

int mode(const std::string& path) {
    struct stat info {};
    ::stat(path.c_str(), &info);
    return info.st_mode & 0777;
}

TEST(HeadlessCommand, onlyTheSecondWordDecidesAndOnlyWhole) {
    Command command;
    EXPECT_EQ(command.run({}), std::nullopt);
    for (const auto* word : {"--help", "--Kelvadromed", "--kelvadromed2", ""})
        EXPECT_EQ(command.run({word, "--background-status"}), std::nullopt) << word;
    command.item.service->now = Status::requiresApproval;
    EXPECT_EQ(command.run({"--background-status", "--unregister-background"}), 0);
    EXPECT_EQ(command.out, "requiresApproval\n");
    EXPECT_TRUE(command.item.service->calls.empty());
}

TEST(HeadlessCommand, theLoginItemsStateIsInTheExitStatus) {
    const std::string on = "--register-background", off = "--unregister-background";
    for (const auto& [word, before, after, status, out, error] :
        std::vector<std::tuple<std::string, Status, Status, int, std::string, std::string>>{
            {on, Status::notRegistered, Status::enabled, 0, "enabled\n", ""},
            {on, Status::notRegistered, Status::requiresApproval, 3, "requiresApproval\n", ""},
            {on, Status::notRegistered, Status::notRegistered, 1, "notRegistered\n", ""},
            {on, Status::notRegistered, Status::enabled, 1, "notRegistered\n", "refused"},
            {off, Status::enabled, Status::enabled, 0, "notRegistered\n", ""}}) {
        Command command;
        command.item.service->now = before;
        command.item.service->afterRegister = after;
        if (!error.empty())
            command.item.service->refusal = error;
        EXPECT_EQ(command.run({word}), status);
        EXPECT_EQ(command.out, out);
        EXPECT_TRUE(command.err.contains(error)) << command.err;
        EXPECT_EQ(command.item.defaults.storedBoolean("KDBackgroundService"), word == on);
    }
}

TEST(HeadlessCommand, theProcessBecomesTheDaemonInItsHomeWithItsLogs) {
    Command command;
    command.installNode("#!/bin/sh\necho \"$@\"\npwd\necho \"$KELVADROME_HOME\"\necho oops >&2\nexit 7\n");
    EXPECT_EQ(command.execInChild(command.item.folder / "old"), 7);
    const auto home = command.world.userHome + "/Library/Application Support/Kelvadrome";
    const auto logs = command.world.userHome + "/Library/Logs/Kelvadrome";
    EXPECT_EQ(text(logs + "/kelvadromed.out.log"),
        *command.resources + "/kelvadrome/kelvadromed-app.mjs --home " + home + " --static " +
            *command.resources + "/kelvadrome/web/dist\n" + home + "\n" + home + "\n");
    EXPECT_EQ(text(logs + "/kelvadromed.err.log"), "oops\n");
    EXPECT_EQ(mode(home), 0700);
    EXPECT_EQ(mode(logs), 0700);
    EXPECT_EQ(text(command.item.folder / "old"), "");

    // A log that has grown too large makes room for a new one.
    const auto log = logs + "/kelvadromed.err.log";
    const auto large = static_cast<std::uintmax_t>(LogFile::largest) + 1;
    fs::resize_file(log, large);
    EXPECT_EQ(command.execInChild(command.item.folder / "old"), 7);
    EXPECT_EQ(text(log), "oops\n");
    EXPECT_EQ(fs::file_size(log + ".1"), large);
}

TEST(HeadlessCommand, whatKeepsTheDaemonFromStartingIsInTheExitStatus) {
    Command none;
    EXPECT_EQ(none.run({"--kelvadromed"}), 78);
    EXPECT_EQ(none.err, "kelvadrome: the bundled daemon or Node is missing\n");
    Command broken;
    broken.installNode("#!/no/such/interpreter\n");
    EXPECT_EQ(broken.execInChild(broken.item.folder / "old"), 71);
    EXPECT_EQ(text(broken.world.userHome + "/Library/Logs/Kelvadrome/kelvadromed.err.log"),
        "kelvadrome: could not start " + *broken.resources + "/node/bin/node: errno 2\n");

    Command open;
    open.installNode("#!/bin/sh\nexit 7\n");
    const auto home = open.world.userHome + "/Library/Application Support/Kelvadrome";
    Files::makeFolders(home, 0700);
    ::chmod(home.c_str(), 0770);
    EXPECT_EQ(open.run({"--kelvadromed"}), 78);
    EXPECT_TRUE(open.err.starts_with("kelvadrome: Other users may write to the data home " + home))
        << open.err;
}

TEST(HeadlessCommand, aStreamOnlyEverGoesToTheEndOfAPrivateRegularFile) {
    TemporaryFolder folder;
    Descriptor stream(::open((folder / "before").c_str(), O_WRONLY | O_CREAT, 0600));
    const auto goesTo = [&](const std::string& path, const std::string& words) {
        HeadlessCommand::redirect(stream.get(), path);
        (void)!::write(stream.get(), words.data(), words.size());
    };
    fs::create_symlink(folder / "target", folder / "link");
    goesTo(folder / "link", "1");
    goesTo(folder / "", "2");
    goesTo(folder / "missing/file", "3");
    EXPECT_EQ(text(folder / "before"), "123");
    EXPECT_FALSE(fs::exists(folder / "target"));

    std::ofstream(folder / "log") << "old ";
    fs::permissions(folder / "log", fs::perms(0644));
    goesTo(folder / "log", "new");
    EXPECT_EQ(text(folder / "log"), "old new");
    EXPECT_EQ(mode(folder / "log"), 0600);
}

} // namespace
} // namespace kelvadrome::test
