#pragma once

#include "KelvadromeKit/page/SecretStore.h"

#include <string>

namespace kelvadrome {

/// A secret in a file of mode 0600 in a folder of mode 0700, outside of the settings: the store for a machine
/// where no Secret Service answers. A link at its place, or a file of another user's, is refused. Any thread.
class FileSecretStore final : public SecretStore {
public:
    /// The file is `folder`/`service`.`account`.
    FileSecretStore(std::string folder, std::string service, std::string account);

    /// $XDG_DATA_HOME/kelvadrome/secrets, or the same under ~/.local/share.
    static std::string defaultFolder();

    void set(const std::string& value) override;
    std::optional<std::string> read() override;
    bool exists() override;
    void remove() override;

private:
    std::string folder_;
    std::string path_;
};

} // namespace kelvadrome
