#include "Kelvadrome/platform/linux/FileSecretStore.h"
#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/page/SecretStore.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>

using namespace kelvadrome;
using kelvadrome::test::TemporaryFolder;

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
    EXPECT_EQ(store.read(), std::nullopt);
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
    const auto reads = memory.reads();
    memory.exists();
    EXPECT_EQ(memory.reads(), reads);

    const TemporaryFolder folder;
    FileSecretStore file(folder / "secrets", "service", "account");
    keepsTheContract(file);
}

TEST(SecretStore, theFileIsPrivateAndAnythingElseAtItsPlaceIsRefused) {
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

TEST(SecretField, aStoredSecretIsNeverLoadedAndAFailedSaveKeepsTheText) {
    MemorySecretStore store;
    SecretField field{"typed", false, std::nullopt};
    field.save(store);
    EXPECT_EQ(field, (SecretField{"", true, "Key saved"}));
    field.text = "  ";
    field.save(store);
    EXPECT_EQ(field, (SecretField{"  ", true, "The key was not saved."}));
    SecretField fresh{"left over", false, std::nullopt};
    fresh.load(store);
    EXPECT_EQ(fresh, (SecretField{"", true, std::nullopt}));
    EXPECT_EQ(store.reads(), 0);
    fresh.remove(store);
    EXPECT_EQ(fresh, (SecretField{"", false, "Key removed"}));
}

TEST(PageKey, aShortKeyIsReplacedAndAWholeOneKept) {
    MemorySecretStore store;
    const auto made = PageKey::load(store);
    EXPECT_EQ(made.size(), 43u);
    EXPECT_EQ(made.find_first_of("+/="), std::string::npos);
    EXPECT_EQ(PageKey::load(store), made);
    EXPECT_NE(PageKey::generate(), made);
    store.set(std::string(42, 'x'));
    EXPECT_EQ(PageKey::load(store).size(), 43u);
    store.set(std::string(43, 'x'));
    EXPECT_EQ(PageKey::load(store), std::string(43, 'x'));
}

TEST(PageKey, anAccountIsTheHashOfTheHome) {
    // The digest of "abc" begins with these 8 bytes (FIPS 180-2, appendix B.1).
    EXPECT_EQ(PageKey::account("abc"), "root-ba7816bf8f01cfea");
    EXPECT_NE(PageKey::account("/a"), PageKey::account("/b"));
}
