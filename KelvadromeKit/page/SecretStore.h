#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace kelvadrome {

/// A failure of the secret store, by the numbers of the keychain where it has one: -50 for a bad value,
/// -25308 for a keyring that stayed locked; else the platform's own.
class SecretStoreError : public std::exception {
public:
    SecretStoreError(std::int32_t status, std::string operation);

    std::int32_t status() const { return status_; }
    const std::string& operation() const { return operation_; }
    /// "Keychain <operation> failed (<status>)."
    const char* what() const noexcept override { return description_.c_str(); }
    bool operator==(const SecretStoreError& other) const {
        return status_ == other.status_ && operation_ == other.operation_;
    }

private:
    std::int32_t status_;
    std::string operation_;
    std::string description_;
};

/// One secret string, kept outside of ordinary settings. Calls may block; any thread.
class SecretStore {
public:
    virtual ~SecretStore() = default;

    /// Stores the value, trimmed. An empty one throws SecretStoreError(-50, "save") and changes nothing.
    virtual void set(const std::string& value) = 0;
    virtual std::optional<std::string> read() = 0;
    /// Without touching the secret itself; never throws.
    virtual bool exists() = 0;
    /// Removing a missing value is a success.
    virtual void remove() = 0;
};

/// The `set` contract's first half: the trimmed value, or SecretStoreError(-50, "save").
std::string trimmedSecret(const std::string& value);

/// Keeps the secret for as long as the object lives.
class MemorySecretStore final : public SecretStore {
public:
    void set(const std::string& value) override;
    std::optional<std::string> read() override;
    bool exists() override;
    void remove() override;

    /// How many reads there were.
    std::int64_t reads() const;

private:
    mutable std::mutex lock_;
    std::optional<std::string> value_;
    std::int64_t reads_ = 0;
};

/// A secret that has a new place: it is looked for at the old one too, and moves over when it is first read.
class MovedSecretStore final : public SecretStore {
public:
    MovedSecretStore(std::shared_ptr<SecretStore> now, std::shared_ptr<SecretStore> before)
        : now_(std::move(now)), before_(std::move(before)) {}

    void set(const std::string& value) override { now_->set(value); }
    std::optional<std::string> read() override;
    bool exists() override { return now_->exists() || before_->exists(); }
    void remove() override;

private:
    std::shared_ptr<SecretStore> now_;
    std::shared_ptr<SecretStore> before_;
};

/// The state behind a settings field: a stored secret is never loaded into it.
struct SecretField {
    static constexpr const char* savedMessage = "Key saved";

    std::string text;
    bool saved = false;
    std::optional<std::string> message;

    void load(SecretStore& store);
    void save(SecretStore& store);
    void remove(SecretStore& store);

    bool operator==(const SecretField&) const = default;
};

} // namespace kelvadrome
