#pragma once

#include <filesystem>
#include <string>

namespace kelvadrome::test {

/// A folder of mode 0700 with a short path (a socket in it stays under the path limit), gone with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    /// The path of something in the folder.
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

} // namespace kelvadrome::test
