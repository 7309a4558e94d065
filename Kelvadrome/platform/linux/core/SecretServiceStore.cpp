#include "Kelvadrome/platform/linux/core/SecretServiceStore.h"

#include "Kelvadrome/platform/linux/core/FileSecretStore.h"
#include "KelvadromeKit/support/Text.h"

#include <libsecret/secret.h>

#include <condition_variable>
#include <cstdlib>
#include <thread>

namespace kelvadrome {

namespace {

struct Unref {
    void operator()(gpointer object) const {
        if (object)
            g_object_unref(object);
    }
};
template <class T>
using Owned = std::unique_ptr<T, Unref>;

constexpr std::int32_t stillLocked = -25308; // the keychain's errSecInteractionNotAllowed

const SecretSchema& schema() {
    // Found by service and account alone: GNOME's keyring doesn't find a locked item by its schema's name,
    // and a key that seems to be missing would be made anew.
    static const SecretSchema value = {"com.kelvadrome.mac.secret", SECRET_SCHEMA_DONT_MATCH_NAME,
        {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING}, {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
            {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
        0, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    return value;
}

/// Cancels a blocking call when its limit has passed.
class Limit {
public:
    explicit Limit(double seconds)
        : cancellable_(g_cancellable_new()), watchdog_([this, seconds] { watch(seconds); }) {}
    ~Limit() {
        {
            std::lock_guard guard(lock_);
            over_ = true;
        }
        wake_.notify_all();
        watchdog_.join();
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

    GCancellable* get() const { return cancellable_.get(); }

private:
    void watch(double seconds) {
        std::unique_lock guard(lock_);
        if (!wake_.wait_for(guard, std::chrono::duration<double>(seconds), [this] { return over_; }))
            g_cancellable_cancel(cancellable_.get());
    }

    Owned<GCancellable> cancellable_;
    std::mutex lock_;
    std::condition_variable wake_;
    bool over_ = false;
    std::thread watchdog_;
};

bool hasDisplay() {
    return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY");
}

/// How long a call may take that can bring up the prompt for the keyring's password.
double patience() {
    return hasDisplay() ? SecretServiceStore::promptLimit : SecretServiceStore::limit;
}

/// Throws for an error, and frees it.
void check(GError* error, const char* operation) {
    if (!error)
        return;
    const std::unique_ptr<GError, decltype(&g_error_free)> owner(error, &g_error_free);
    throw SecretStoreError(error->code, operation);
}

} // namespace

SecretServiceStore::SecretServiceStore(std::string service, std::string account, std::string label)
    : service_(std::move(service)), account_(std::move(account)), label_(std::move(label)) {}

SecretServiceStore::State SecretServiceStore::state(double seconds) {
    const Limit limit(seconds);
    GError* error = nullptr;
    const Owned<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, limit.get(), &error));
    if (!bus) {
        g_clear_error(&error);
        return State::absent;
    }
    // The shared connection would otherwise end this process when the bus goes away.
    g_dbus_connection_set_exit_on_close(bus.get(), FALSE);
    // Opening a session proves that it answers; a bus without a service fails at once.
    const Owned<SecretService> service(
        secret_service_get_sync(SECRET_SERVICE_OPEN_SESSION, limit.get(), &error));
    if (!service) {
        g_clear_error(&error);
        return State::absent;
    }
    if (hasDisplay())
        return State::open;
    const Owned<SecretCollection> keyring(secret_collection_for_alias_sync(
        service.get(), SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, limit.get(), &error));
    g_clear_error(&error);
    return keyring && !secret_collection_get_locked(keyring.get()) ? State::open : State::locked;
}

void SecretServiceStore::set(const std::string& value) {
    const auto trimmed = trimmedSecret(value);
    const Limit limit(patience());
    GError* error = nullptr;
    secret_password_store_sync(&schema(), SECRET_COLLECTION_DEFAULT, label_.c_str(), trimmed.c_str(),
        limit.get(), &error, "service", service_.c_str(), "account", account_.c_str(), nullptr);
    check(error, "save");
}

std::optional<std::string> SecretServiceStore::read() {
    const Limit limit(patience());
    GError* error = nullptr;
    const std::unique_ptr<gchar, decltype(&secret_password_free)> found(
        secret_password_lookup_sync(&schema(), limit.get(), &error, "service", service_.c_str(), "account",
            account_.c_str(), nullptr),
        &secret_password_free);
    check(error, "read");
    // One that stayed locked isn't a missing one: the caller would put another in its place.
    if (!found && exists())
        throw SecretStoreError(stillLocked, "read");
    if (!found || !Text::isValidUTF8(found.get()))
        return std::nullopt;
    return std::string(found.get());
}

bool SecretServiceStore::exists() {
    const Limit limit(SecretServiceStore::limit);
    GError* error = nullptr;
    // Attributes only: the secret itself isn't loaded, so no keyring has to be unlocked for it.
    auto* items = secret_password_search_sync(&schema(), SECRET_SEARCH_NONE, limit.get(), &error, "service",
        service_.c_str(), "account", account_.c_str(), nullptr);
    const bool found = items != nullptr;
    g_list_free_full(items, g_object_unref);
    g_clear_error(&error);
    return found;
}

void SecretServiceStore::remove() {
    const Limit limit(patience());
    GError* error = nullptr;
    secret_password_clear_sync(
        &schema(), limit.get(), &error, "service", service_.c_str(), "account", account_.c_str(), nullptr);
    check(error, "delete");
}

MachineSecretStore::MachineSecretStore(std::string service, std::string account, std::string label)
    : service_(std::move(service)), account_(std::move(account)), label_(std::move(label)) {}

std::shared_ptr<SecretStore> MachineSecretStore::chosen() {
    std::lock_guard guard(lock_);
    if (!store_) {
        keyring_ = false;
        auto file = std::make_unique<FileSecretStore>(FileSecretStore::defaultFolder(), service_, account_);
        auto keyring = std::make_unique<SecretServiceStore>(service_, account_, label_);
        if (!file->exists()) {
            const auto state = SecretServiceStore::state();
            using enum SecretServiceStore::State;
            keyring_ = state == open || (state == locked && keyring->exists());
        }
        if (keyring_) {
            store_ = std::move(keyring);
        } else {
            store_ = std::move(file);
        }
    }
    return store_;
}

void MachineSecretStore::set(const std::string& value) {
    chosen()->set(value);
}

std::optional<std::string> MachineSecretStore::read() {
    return chosen()->read();
}

bool MachineSecretStore::exists() {
    return chosen()->exists();
}

void MachineSecretStore::remove() {
    chosen()->remove();
    std::lock_guard guard(lock_);
    store_.reset();
}

std::string MachineSecretStore::whereabouts() {
    chosen();
    if (keyring_)
        return "In your desktop's keyring.";
    return "In a file that only you can read, in " + FileSecretStore::defaultFolder() +
           ", since no open keyring was found.";
}

} // namespace kelvadrome
