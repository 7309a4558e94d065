#pragma once

#include "KelvadromeKit/page/SecretStore.h"

#include <memory>
#include <string>

namespace kelvadrome {

/// A secret in the desktop's keyring. Every call blocks, for at most `limit` seconds: a locked keyring on a
/// machine without a display would otherwise hang for ever. Any thread but the main one.
class SecretServiceStore final : public SecretStore {
public:
    static constexpr double limit = 5;

    SecretServiceStore(std::string service, std::string account, std::string label);

    /// Whether a Secret Service answers on this session's bus. Blocks as above.
    static bool answers();

    void set(const std::string& value) override;
    std::optional<std::string> read() override;
    bool exists() override;
    void remove() override;

private:
    std::string service_;
    std::string account_;
    std::string label_;
};

/// The store for one secret: the keyring where one answers, otherwise a file. Which of the two is found out
/// at the first call, and stays. Calls block.
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
    SecretStore& chosen();

    std::string service_;
    std::string account_;
    std::string label_;
    std::mutex lock_;
    std::unique_ptr<SecretStore> store_;
    bool keyring_ = false;
};

} // namespace kelvadrome
