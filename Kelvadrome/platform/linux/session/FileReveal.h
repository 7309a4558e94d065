#pragma once

#include "Kelvadrome/platform/linux/session/SessionBus.h"

#include <memory>
#include <string>

namespace kelvadrome {

/// Shows a file in the user's file manager, selected where the file manager can do that. Main thread.
class FileReveal {
public:
    static constexpr int limit = 10'000; // milliseconds for each attempt: a file manager may have to start

    explicit FileReveal(std::shared_ptr<SessionBus> bus);
    ~FileReveal();
    FileReveal(const FileReveal&) = delete;
    FileReveal& operator=(const FileReveal&) = delete;

    /// Returns at once. `path` is absolute. Where no file manager answers on the bus, its folder is opened.
    void reveal(const std::string& path);

private:
    void openThroughPortal(const std::string& path);

    std::shared_ptr<SessionBus> bus_;
    std::shared_ptr<void> replyOwner_ = std::make_shared<bool>(); // no reply is heard after its end
};

} // namespace kelvadrome
