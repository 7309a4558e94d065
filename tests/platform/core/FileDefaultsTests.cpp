#include "Kelvadrome/platform/linux/core/FileDefaults.h"
#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Log.h"

#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <thread>

namespace kelvadrome::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

class FileDefaultsTest : public testing::Test {
protected:
    FileDefaultsTest() {
        setLogSink([this](std::string_view line) { log.emplace_back(line); });
    }
    ~FileDefaultsTest() override { setLogSink({}); }

    FileDefaults open(std::vector<std::string> arguments = {"kelvadrome"}) {
        return FileDefaults(path, arguments);
    }
    std::string text() { return Files::read(path, 1 << 16).value_or("no file"); }
    void write(const std::string& bytes) {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path) << bytes;
    }

    TemporaryFolder folder;
    std::string path = folder / "config/kelvadrome/defaults.json";
    std::vector<std::string> log;
};

TEST_F(FileDefaultsTest, everyKindOfValueComesBackFromTheFile) {
    {
        auto defaults = open();
        defaults.set("yes", true);
        defaults.set("number", std::int64_t(-3));
        defaults.set("real", 1.0);
        defaults.set("text", std::string("\xff\n\"é"));
        defaults.set("gone", std::string("x"));
        defaults.set("gone", std::numeric_limits<double>::infinity());
    }
    const auto defaults = open();
    EXPECT_EQ(defaults.object("yes"), DefaultsValue(true));
    EXPECT_EQ(defaults.object("number"), DefaultsValue(std::int64_t(-3)));
    EXPECT_EQ(defaults.object("real"), DefaultsValue(1.0));
    EXPECT_EQ(defaults.string("text"), "\xEF\xBF\xBD\n\"é");
    EXPECT_EQ(defaults.object("gone"), std::nullopt);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(log.empty());
}

TEST_F(FileDefaultsTest, argumentsLieAboveTheFileAndAreNeverWritten) {
    auto defaults = open({"kelvadrome", "--flag", "-KDPort", "-1", "-KDOpenPanel", "-KDQuiet", "YES", "plain",
        "-KDHome", "~/k", "-KDHome", "/k", "-last"});
    EXPECT_EQ(defaults.string("KDPort"), "-1");
    EXPECT_EQ(defaults.object("KDOpenPanel"), std::nullopt);
    EXPECT_TRUE(defaults.boolean("KDQuiet"));
    EXPECT_EQ(defaults.string("KDHome"), "/k");
    defaults.set("KDQuiet", false);
    EXPECT_TRUE(defaults.boolean("KDQuiet"));
    EXPECT_EQ(text(), "{\"KDQuiet\":false}\n");
}

TEST_F(FileDefaultsTest, theFileLiesWhereTheDesktopsConventionHasIt) {
    EXPECT_EQ(FileDefaults::standardPath({{"XDG_CONFIG_HOME", "/c"}}), "/c/kelvadrome/defaults.json");
    EXPECT_EQ(FileDefaults::standardPath({{"XDG_CONFIG_HOME", "relative"}}),
        Files::userHome() + "/.config/kelvadrome/defaults.json");
}

TEST_F(FileDefaultsTest, twoProcessesKeepEachOthersKeysAndUnknownValues) {
    write(R"({"list":[1,2],"both":"old"})");
    auto one = open();
    auto other = open();
    one.set("one", true);
    other.set("other", true);
    other.remove("both");
    one.set("late", true);
    EXPECT_EQ(one.object("other"), DefaultsValue(true));
    EXPECT_THAT(
        text(), testing::AllOf(HasSubstr(R"("list":[1,2])"), HasSubstr("late"), Not(HasSubstr("both"))));

    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer) {
        writers.emplace_back([this, writer] {
            auto defaults = open();
            for (int i = 0; i < 10; ++i)
                defaults.set("k" + std::to_string(writer * 10 + i), true);
        });
    }
    for (auto& writer : writers)
        writer.join();
    const auto all = open();
    for (int i = 0; i < 40; ++i)
        EXPECT_TRUE(all.boolean("k" + std::to_string(i))) << i;
}

TEST_F(FileDefaultsTest, aDamagedFileIsKeptAsideAndCostsTheRunningProcessNoSetting) {
    for (const auto* damaged : {"{\"a\":1", "[1]", ""}) {
        write(damaged);
        log.clear();
        auto defaults = open();
        defaults.set("b", true);
        EXPECT_EQ(text(), "{\"b\":true}\n");
        ASSERT_EQ(log.size(), 1U);
        EXPECT_THAT(log[0], HasSubstr("It was kept as " + path + ".damaged"));
    }
    EXPECT_EQ(Files::read(path + ".damaged", 100), "{\"a\":1");
    EXPECT_EQ(Files::read(path + ".damaged-1", 100), "[1]");

    write(R"({"a":1,"list":[2]})");
    auto defaults = open();
    write("{\"a\":1,\"li");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(text(), "{\"a\":1,\"list\":[2]}\n");
    EXPECT_THAT(log.back(), HasSubstr("the settings of this run go on"));
}

TEST_F(FileDefaultsTest, whatCannotBeWrittenStaysInMemoryUntilItCan) {
    std::ofstream(folder / "config") << "in the way";
    auto defaults = open();
    defaults.set("a", true);
    defaults.set("b", true);
    EXPECT_FALSE(defaults.synchronize());
    const auto told = log.size();
    EXPECT_GT(told, 0U);
    defaults.set("b", false);
    EXPECT_EQ(log.size(), told);
    fs::remove(folder / "config");
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(text(), "{\"a\":true,\"b\":false}\n");
}

TEST_F(FileDefaultsTest, aWriterThatHoldsTheLockForTooLongIsNotWaitedFor) {
    write("{}");
    const Descriptor held(::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::flock(held.get(), LOCK_EX), 0);
    auto defaults = open();
    defaults.set("a", true);
    EXPECT_EQ(text(), "{}");
    ::flock(held.get(), LOCK_UN);
    EXPECT_TRUE(defaults.synchronize());
    EXPECT_EQ(text(), "{\"a\":true}\n");
}

TEST_F(FileDefaultsTest, aFileThatCannotBeReadIsLeftAloneAndALinkStaysOne) {
    fs::create_directories(path);
    open().set("a", true);
    EXPECT_TRUE(fs::is_directory(path));
    fs::remove(path);
    std::ofstream(folder / "mine.json") << "{}";
    fs::create_symlink(folder / "mine.json", path);
    open().set("a", true);
    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_EQ(Files::read(folder / "mine.json", 100), "{\"a\":true}\n");
}

} // namespace
} // namespace kelvadrome::test
