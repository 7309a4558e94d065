#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/page/SecretStore.h"

#include <gtest/gtest.h>

using namespace kelvadrome;

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
}
