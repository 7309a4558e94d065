#include "Kelvadrome/platform/linux/session/FreedesktopNotifications.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr const char* serverName = "org.freedesktop.Notifications";
constexpr SessionBus::Peer server{serverName, "/org/freedesktop/Notifications", serverName};
constexpr SessionBus::Peer busPeer{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
constexpr const char* applicationId = "com.kelvadrome.mac";
constexpr const char* bodyAction = "default"; // what a press on the notification itself invokes
constexpr unsigned char normalUrgency = 1;

using Value = std::shared_ptr<GVariant>;

Value held(GVariant* value) {
    return value ? Value(g_variant_ref_sink(value), &g_variant_unref) : nullptr;
}

std::set<std::string> words(GVariant* list) {
    std::set<std::string> words;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, list);
    const char* word = nullptr;
    while (g_variant_iter_next(&iterator, "&s", &word))
        words.insert(word);
    return words;
}

} // namespace

std::shared_ptr<FreedesktopNotifications> FreedesktopNotifications::make(
    std::shared_ptr<SessionBus> bus, int limit) {
    const auto made = std::shared_ptr<FreedesktopNotifications>(
        new FreedesktopNotifications(std::move(bus), limit)); // the constructor is private
    made->listen();
    return made;
}

FreedesktopNotifications::FreedesktopNotifications(std::shared_ptr<SessionBus> bus, int limit)
    : bus_(std::move(bus)), limit_(limit) {}

void FreedesktopNotifications::listen() {
    listening_.push_back(bus_->listen(server, "ActivationToken", "(us)", [this](GVariant* arguments) {
        std::uint32_t id = 0;
        const char* token = nullptr;
        g_variant_get(arguments, "(u&s)", &id, &token);
        if (const auto posted = find(id); posted != posted_.end())
            posted->second.activationToken = token;
    }));
    listening_.push_back(bus_->listen(server, "ActionInvoked", "(us)", [this](GVariant* arguments) {
        std::uint32_t id = 0;
        const char* action = nullptr;
        g_variant_get(arguments, "(u&s)", &id, &action);
        invoked(id, action);
    }));
    listening_.push_back(bus_->listen(server, "NotificationClosed", "(uu)", [this](GVariant* arguments) {
        std::uint32_t id = 0;
        g_variant_get(arguments, "(uu)", &id, nullptr);
        if (const auto posted = find(id); posted != posted_.end())
            posted_.erase(posted);
    }));
    listening_.push_back(bus_->watch(serverName, [this](const std::string& owner) { serverChanged(owner); }));
}

bool FreedesktopNotifications::acceptsThisProcess() {
    return bus_->connected();
}

void FreedesktopNotifications::registerCategory(Category category) {
    auto identifier = category.identifier;
    categories_.insert_or_assign(std::move(identifier), std::move(category));
}

void FreedesktopNotifications::serverChanged(const std::string& owner) {
    // The next server counts from 1 again. What it hasn't taken yet has no number.
    std::erase_if(posted_, [](const auto& entry) { return entry.second.id != 0; });
    capabilities_.reset();
    const bool differs = server_.empty() != owner.empty();
    server_ = owner;
    if (const auto tell = changed_; tell && differs)
        tell();
}

void FreedesktopNotifications::invoked(std::uint32_t id, const std::string& action) {
    const auto posted = find(id); // everybody hears of everybody's
    if (posted == posted_.end() || !knowsAction(action))
        return;
    const auto token = std::exchange(posted->second.activationToken, {});
    if (const auto tell = onActivationToken; tell && !token.empty())
        tell(token);
    if (const auto opened = opened_)
        opened();
}

bool FreedesktopNotifications::knowsAction(const std::string& action) const {
    return action == bodyAction || std::ranges::any_of(categories_, [&](const auto& entry) {
        return std::ranges::any_of(
            entry.second.actions, [&](const auto& known) { return known.identifier == action; });
    });
}

std::map<std::string, FreedesktopNotifications::Posted>::iterator FreedesktopNotifications::find(
    std::uint32_t id) {
    return std::ranges::find_if(posted_, [&](const auto& entry) { return id != 0 && entry.second.id == id; });
}

Task<Value> FreedesktopNotifications::ask(SessionBus::Peer peer, const char* method, Value arguments,
    const char* replyType, SessionBus::Start start) {
    const auto self = shared_from_this();
    const auto begin = [&](Completion<Value> done) {
        bus_->call(peer, method, arguments.get(), replyType, self,
            [done](GVariant* reply) { done(held(reply)); }, {.start = start, .limit = limit_});
    };
    co_return co_await suspendUntil<Value>(begin);
}

Task<std::optional<FreedesktopNotifications::Capabilities>> FreedesktopNotifications::capabilities(
    SessionBus::Start start) {
    if (capabilities_)
        co_return capabilities_;
    const auto asked = server_;
    const auto reply = co_await ask(server, "GetCapabilities", nullptr, "(as)", start);
    if (!reply)
        co_return std::nullopt;
    const OwnedVariant list(g_variant_get_child_value(reply.get(), 0));
    auto found = words(list.get());
    if (server_ == asked && !server_.empty()) // not those of one that went meanwhile
        capabilities_ = found;
    co_return found;
}

Task<bool> FreedesktopNotifications::requestAuthorization() {
    const auto self = shared_from_this();
    const auto answered = co_await capabilities(SessionBus::Start::never);
    if (answered)
        co_return true;
    co_return co_await couldBeStarted();
}

/// Not so with a server that is there and doesn't answer.
Task<bool> FreedesktopNotifications::couldBeStarted() {
    const auto name = held(g_variant_new("(s)", serverName));
    const auto owned = co_await ask(busPeer, "NameHasOwner", name, "(b)", SessionBus::Start::never);
    gboolean isOwned = TRUE;
    if (owned)
        g_variant_get(owned.get(), "(b)", &isOwned);
    if (isOwned)
        co_return false;
    const auto reply =
        co_await ask(busPeer, "ListActivatableNames", nullptr, "(as)", SessionBus::Start::never);
    if (!reply)
        co_return false;
    const OwnedVariant list(g_variant_get_child_value(reply.get(), 0));
    co_return words(list.get()).contains(serverName);
}

Task<> FreedesktopNotifications::add(NotificationRequest request) {
    const auto self = shared_from_this();
    const auto identifier = request.identifier;
    posted_[identifier];
    const auto answered = co_await capabilities(SessionBus::Start::ifActivatable);
    // Meanwhile it may have been taken back, or closed where it replaces another.
    const auto posted = posted_.find(identifier);
    if (posted == posted_.end() || posted->second.withdrawn || !answered) {
        if (posted != posted_.end() && posted->second.id == 0)
            posted_.erase(posted);
        if (!answered)
            throw std::runtime_error("no notification server answers");
        co_return;
    }
    const auto message = held(arguments(request, *answered, posted->second.id));
    const auto begin = [&](Completion<bool> done) {
        // The number is noted in the reply itself: what follows it on the bus already names it.
        bus_->call(server, "Notify", message.get(), "(u)", self,
            [self, identifier, done](GVariant* reply) {
                self->taken(identifier, reply);
                done(reply != nullptr);
            },
            {.limit = limit_});
    };
    const bool shown = co_await suspendUntil<bool>(begin);
    if (!shown)
        throw std::runtime_error("the notification server took nothing");
}

void FreedesktopNotifications::taken(const std::string& identifier, GVariant* reply) {
    std::uint32_t id = 0;
    if (reply)
        g_variant_get(reply, "(u)", &id);
    const auto posted = posted_.find(identifier);
    if (posted == posted_.end())
        return;
    if (posted->second.withdrawn && id != 0)
        bus_->tell(server, "CloseNotification", g_variant_new("(u)", id));
    if (posted->second.withdrawn || id == 0) {
        posted_.erase(posted);
    } else {
        posted->second.id = id;
    }
}

void FreedesktopNotifications::withdraw(const std::string& identifier) {
    const auto posted = posted_.find(identifier);
    if (posted == posted_.end())
        return;
    if (posted->second.id == 0) {
        posted->second.withdrawn = true; // closed as soon as it has its number
        return;
    }
    bus_->tell(server, "CloseNotification", g_variant_new("(u)", posted->second.id));
    posted_.erase(posted);
}

/// None for a server that offers no actions: some of those show a dialog instead when there are any.
GVariant* FreedesktopNotifications::actions(
    const NotificationRequest& request, const Capabilities& offered) const {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("as"));
    const auto category = categories_.find(request.category);
    if (offered.contains("actions") && category != categories_.end() && !category->second.actions.empty()) {
        const auto& all = category->second.actions;
        g_variant_builder_add(&builder, "s", bodyAction);
        g_variant_builder_add(&builder, "@s", busText(all.front().title));
        for (const auto& action : all) {
            g_variant_builder_add(&builder, "@s", busText(action.identifier));
            g_variant_builder_add(&builder, "@s", busText(action.title));
        }
    }
    return g_variant_builder_end(&builder);
}

GVariant* FreedesktopNotifications::arguments(
    const NotificationRequest& request, const Capabilities& offered, std::uint32_t replaces) const {
    auto summary = request.title;
    auto body = offered.contains("body-markup") ? markupEscaped(request.body) : request.body;
    if (!offered.contains("body")) { // nothing but the one line
        summary += ": " + request.body;
        body.clear();
    }
    GVariantDict hints;
    g_variant_dict_init(&hints, nullptr);
    g_variant_dict_insert(&hints, "urgency", "y", normalUrgency);
    g_variant_dict_insert(&hints, "desktop-entry", "s", applicationId);
    g_variant_dict_insert(&hints, "sound-name", "s", "message-new-instant");
    // Names of one's own begin with "x-".
    g_variant_dict_insert_value(&hints, "category", busText("x-" + request.category));
    return g_variant_new("(su@s@s@s@as@a{sv}i)", "kelvadrome", replaces, busText(applicationId),
        busText(summary), busText(body), actions(request, offered), g_variant_dict_end(&hints), -1);
}

} // namespace kelvadrome
