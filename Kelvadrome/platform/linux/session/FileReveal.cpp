#include "Kelvadrome/platform/linux/session/FileReveal.h"

#include "KelvadromeKit/support/Descriptor.h"
#include "KelvadromeKit/support/Log.h"

#include <gio/gunixfdlist.h>

#include <fcntl.h>
#include <filesystem>

namespace kelvadrome {

namespace {

constexpr SessionBus::Peer fileManager{
    "org.freedesktop.FileManager1", "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1"};
constexpr SessionBus::Peer portal{
    "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", "org.freedesktop.portal.OpenURI"};

void openFolder(const std::string& path) {
    const auto folder = std::filesystem::path(path).parent_path().string();
    GError* raw = nullptr;
    const OwnedObject<GSubprocess> opener(g_subprocess_new(
        GSubprocessFlags(G_SUBPROCESS_FLAGS_STDOUT_SILENCE | G_SUBPROCESS_FLAGS_STDERR_SILENCE), &raw,
        "xdg-open", folder.c_str(), nullptr));
    const OwnedError error(raw);
    if (!opener)
        logLine(std::string("no program shows a folder: ") + error->message);
}

} // namespace

FileReveal::FileReveal(std::shared_ptr<SessionBus> bus) : bus_(std::move(bus)) {}

FileReveal::~FileReveal() = default;

void FileReveal::reveal(const std::string& path) {
    const OwnedText uri(g_filename_to_uri(path.c_str(), nullptr, nullptr));
    if (!uri)
        return; // relative
    const char* const uris[] = {uri.get(), nullptr};
    bus_->call(fileManager, "ShowItems", g_variant_new("(^ass)", uris, ""), "()", replyOwner_,
        [this, path](GVariant* reply) {
            if (!reply)
                openThroughPortal(path);
        },
        {.limit = limit});
}

/// It takes the open file, which is how a program in a sandbox proves that it may see it.
void FileReveal::openThroughPortal(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (file.get() < 0) {
        openFolder(path); // gone since
        return;
    }
    const OwnedObject<GUnixFDList> files(g_unix_fd_list_new());
    const int handle = g_unix_fd_list_append(files.get(), file.get(), nullptr); // a copy
    bus_->call(portal, "OpenDirectory", g_variant_new("(sha{sv})", "", handle, nullptr), "(o)", replyOwner_,
        [path](GVariant* reply) {
            if (!reply)
                openFolder(path);
        },
        {.limit = limit, .descriptors = files.get()});
}

} // namespace kelvadrome
