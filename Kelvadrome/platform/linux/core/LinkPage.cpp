#include "Kelvadrome/platform/linux/core/LinkPage.h"

#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Files.h"

#include <boost/url/encode.hpp>
#include <boost/url/rfc/pchars.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr const char* prefix = "open-page-";
constexpr const char* suffix = ".html";
constexpr std::time_t longestUse = 600; // seconds; links are good for far less

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '&' || c == '"' || c == '<' || c == '>' || c == '\'')
            result += fmt::format("&#{};", static_cast<int>(c));
        else
            result += c;
    }
    return result;
}

std::string page(const std::string& link) {
    return fmt::format("<!doctype html><html><head><meta charset=\"utf-8\"><title>kelvadrome</title>"
                       "<meta name=\"referrer\" content=\"no-referrer\">"
                       "<meta http-equiv=\"refresh\" content=\"0;url={0}\"></head>"
                       "<body><p><a rel=\"noreferrer\" href=\"{0}\">Open kelvadrome</a></p></body></html>\n",
        escaped(link));
}

/// What a run that was killed left behind.
void sweep(const std::string& folder) {
    std::error_code failed;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failed)) {
        struct stat info {};
        if (!entry.path().filename().string().starts_with(prefix) ||
            ::lstat(entry.path().c_str(), &info) != 0)
            continue;
        if (S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
            std::time(nullptr) - info.st_mtime > longestUse)
            ::unlink(entry.path().c_str());
    }
}

bool hasSnapBrowser() {
    for (const auto* name : {"firefox", "chromium", "brave", "opera"}) {
        if (Files::isExecutable(std::string("/snap/bin/") + name))
            return true;
    }
    return false;
}

[[noreturn]] void fail(int error, const std::string& path) {
    throw std::system_error(error, std::generic_category(), path + " could not be written");
}

} // namespace

LinkPage::LinkPage(const std::string& folder, const std::string& link) {
    Files::makeFolders(folder, 0700);
    struct stat info {};
    // Others could put another page in this one's place.
    if (::stat(folder.c_str(), &info) != 0 || info.st_uid != ::geteuid() ||
        (info.st_mode & (S_IWGRP | S_IWOTH)))
        fail(EACCES, folder);
    sweep(folder);
    auto name = Files::join(folder, std::string(prefix) + "XXXXXX" + suffix);
    // A new file of mode 0600; a link in its place is no new file.
    const Descriptor file(
        ::mkostemps(name.data(), static_cast<int>(std::char_traits<char>::length(suffix)), O_CLOEXEC));
    if (!file)
        fail(errno, name);
    path_ = name;
    const auto text = page(link);
    if (::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        const int error = errno;
        ::unlink(path_.c_str());
        fail(error, path_);
    }
}

LinkPage::~LinkPage() {
    ::unlink(path_.c_str());
}

std::string LinkPage::url() const {
    return "file://" + boost::urls::encode(path_, boost::urls::pchars + '/');
}

std::string LinkPage::folder(const EnvironmentMap& environment, const std::string& dataHome) {
    const auto runtime = environment.find("XDG_RUNTIME_DIR");
    if (runtime == environment.end() || !runtime->second.starts_with('/') || hasSnapBrowser())
        return dataHome;
    return Files::join(runtime->second, "kelvadrome");
}

} // namespace kelvadrome
