#include "Kelvadrome/platform/linux/core/LinkPage.h"
#include "KelvadromeKit/support/Files.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <system_error>

namespace kelvadrome::test {
namespace {

namespace fs = std::filesystem;

std::size_t filesIn(const std::string& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

} // namespace

TEST(LinkPage, leadsToTheLinkFromAPrivateFileThatGoesWithIt) {
    const TemporaryFolder place;
    const auto folder = place / "a b/kelvadrome";
    {
        const LinkPage page(folder, "http://127.0.0.1:1/login?t=x&next=\"<'");
        EXPECT_EQ(page.url().find("login"), std::string::npos);
        ASSERT_TRUE(
            page.url().starts_with("file://" + place.path().string() + "/a%20b/kelvadrome/open-page-"));
        const auto path = folder + page.url().substr(page.url().rfind('/'));
        struct stat info {};
        ASSERT_EQ(::stat(path.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u);
        ASSERT_EQ(::stat(folder.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0700u);
        const auto text = Files::read(path, 4096).value_or("");
        EXPECT_TRUE(text.contains("http-equiv=\"refresh\" "
                                  "content=\"0;url=http://127.0.0.1:1/login?t=x&#38;next=&#34;&#60;&#39;\""))
            << text;
        EXPECT_TRUE(text.contains("<meta name=\"referrer\" content=\"no-referrer\">"));
        const LinkPage another(folder, "http://127.0.0.1:1/");
        EXPECT_EQ(filesIn(folder), 2u);
    }
    EXPECT_EQ(filesIn(folder), 0u);
}

TEST(LinkPage, isNotWrittenWhereOthersMayAndTakesOldOnesAway) {
    const TemporaryFolder place;
    const auto folder = place / "pages";
    Files::makeFolders(folder, 0700);
    for (const auto* name : {"open-page-old.html", "open-page-new.html", "kept.html"})
        std::ofstream(folder + "/" + name) << "x";
    for (const auto* name : {"open-page-old.html", "kept.html"})
        fs::last_write_time(folder + "/" + name, fs::file_time_type::clock::now() - std::chrono::hours(1));
    { const LinkPage page(folder, "http://127.0.0.1:1/"); }
    EXPECT_FALSE(fs::exists(folder + "/open-page-old.html"));
    EXPECT_EQ(filesIn(folder), 2u);
    ::chmod(folder.c_str(), 0770);
    EXPECT_THROW(LinkPage(folder, "http://127.0.0.1:1/"), std::system_error);
    EXPECT_EQ(filesIn(folder), 2u);
}

} // namespace kelvadrome::test
