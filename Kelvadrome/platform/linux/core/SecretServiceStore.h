#pragma once

#include "KelvadromeKit/page/SecretStore.h"

#include <memory>
#include <string>

namespace kelvadrome {

/// A secret in the desktop's keyring. Every call blocks, for at most `limit` seconds: a locked keyring on a
/// machine without a display would otherwise hang for ever. With a display, the calls that touch the secret
/// wait for `promptLimit` seconds, since the user may be typing the keyring's password. Any thread but the
/// main one.
class SecretServiceStore final : public SecretStore {
public:
    static constexpr double limit = 5;
    static constexpr double promptLimit = 60;

    SecretServiceStore(std::string service, std::string account, std::string label);

    enum class State {
        absent, // no Secret Service answers on this session's bus
        locked, // one does, but its keyring is locked or missing and there is no display to ask the user on
        open,
    };
    /// What stands on this session's bus, found out within so many seconds.
    static State state(double seconds = limit);

    void set(const std::string& value) override;
    std::optional<std::string> read() override;
    bool exists() override;
    void remove() override;

private:
    std::string service_;
    std::string account_;
    std::string label_;
};

/// The store for one secret: the keyring where one is open, otherwise a file. A secret that a file holds
/// already stays there, so that a keyring which answers on some days only doesn't make two of it. Which of
/// the two is found out at the first call, and stays until the secret is removed. Calls block.
class MachineSecretStore final : public SecretStore {
public:
    MachineSecretStore(std::string service, std::string account, std::string label);

    void set(const std::string& value) override;
    std::optional<std::string> read() override;
    bool exists() override;
    void remove() override;

    /// Where the secret lies, for the settings.
    std::string whereabouts();

private:
    std::shared_ptr<SecretStore> chosen();

    std::string service_;
    std::string account_;
    std::string label_;
    std::mutex lock_;
    std::shared_ptr<SecretStore> store_;
    bool keyring_ = false;
};

} // namespace kelvadrome
