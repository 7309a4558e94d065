#include "Kelvadrome/platform/linux/core/FileSecretStore.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

namespace kelvadrome::test {
namespace {

/// What every store promises.
void keepsTheContract(SecretStore& store) {
    EXPECT_FALSE(store.exists());
    EXPECT_EQ(store.read(), std::nullopt);
    store.remove();
    store.set("  first \n");
    store.set("second");
    EXPECT_TRUE(store.exists());
    EXPECT_EQ(store.read(), "second");
    try {
        store.set(" \t");
        ADD_FAILURE() << "an empty secret was stored";
    } catch (const SecretStoreError& error) {
        EXPECT_STREQ(error.what(), "Keychain save failed (-50).");
    }
    EXPECT_EQ(store.read(), "second");
    store.remove();
    EXPECT_FALSE(store.exists());
}

mode_t modeOf(const std::string& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_mode & 0777;
}

} // namespace

TEST(SecretStore, memoryAndFileKeepTheContract) {
    MemorySecretStore memory;
    keepsTheContract(memory);
    const TemporaryFolder folder;
    FileSecretStore file(folder / "secrets", "service", "account");
    keepsTheContract(file);
}

TEST(FileSecretStore, theFileIsPrivateAndAnythingElseAtItsPlaceIsRefused) {
    const TemporaryFolder folder;
    const auto secrets = folder / "secrets";
    const auto path = secrets + "/service.account";
    FileSecretStore store(secrets, "service", "account");
    store.set("secret");
    EXPECT_EQ(modeOf(secrets), 0700u);
    EXPECT_EQ(modeOf(path), 0600u);
    ::chmod(path.c_str(), 0644);
    EXPECT_EQ(store.read(), "secret");
    EXPECT_EQ(modeOf(path), 0600u);

    std::filesystem::rename(path, secrets + "/moved");
    std::filesystem::create_symlink(secrets + "/moved", path);
    EXPECT_FALSE(store.exists());
    EXPECT_THROW(store.read(), SecretStoreError);
    // Saving replaces the link and not what it points at.
    store.set("new");
    EXPECT_EQ(store.read(), "new");
    std::ifstream moved(secrets + "/moved");
    std::string text;
    moved >> text;
    EXPECT_EQ(text, "secret");
}

} // namespace kelvadrome::test
