#include "Kelvadrome/platform/linux/desk/PortalHotkey.h"

#include "KelvadromeKit/support/Text.h"

#include <string_view>
#include <utility>
#include <vector>

namespace kelvadrome {

namespace {

constexpr const char* shortcuts = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* shortcutId = "command-bar";
static_assert(HotkeyStatus::noPortal == PortalAnswer::noPortal);
static_assert(HotkeyStatus::silentPortal == PortalAnswer::silent);

/// As the portals write keys: "CTRL+ALT+b". The keys' names are those of X.
std::string trigger(const HotkeySpec& spec) {
    constexpr std::pair<std::uint32_t, std::string_view> names[] = {{HotkeySpec::controlKey, "CTRL+"},
        {HotkeySpec::optionKey, "ALT+"}, {HotkeySpec::shiftKey, "SHIFT+"}, {HotkeySpec::cmdKey, "LOGO+"}};
    std::string text;
    for (const auto& [bit, name] : names) {
        if (spec.modifiers & bit)
            text += name;
    }
    return text + (spec.key.size() == 1 || spec.key == "Space" ? Text::lowercased(spec.key) : spec.key);
}

GVariant* shortcutList(const HotkeySpec& spec) {
    GVariantBuilder about;
    g_variant_builder_init(&about, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&about, "{sv}", "description", g_variant_new_string("Ask kelvadrome"));
    g_variant_builder_add(&about, "{sv}", "preferred_trigger", g_variant_new_string(trigger(spec).c_str()));
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("a(sa{sv})"));
    g_variant_builder_add(&list, "(sa{sv})", shortcutId, &about);
    return g_variant_builder_end(&list);
}

/// A user may take the key out of the list that the portal shows.
bool isBound(const PortalAnswer& answer) {
    const OwnedVariant list(
        g_variant_lookup_value(answer.results.get(), "shortcuts", G_VARIANT_TYPE("a(sa{sv})")));
    if (!list)
        return true; // not every portal says
    for (gsize i = 0; i < g_variant_n_children(list.get()); ++i) {
        const OwnedVariant shortcut(g_variant_get_child_value(list.get(), i));
        const OwnedVariant id(g_variant_get_child_value(shortcut.get(), 0));
        if (std::string_view(g_variant_get_string(id.get(), nullptr)) == shortcutId)
            return true;
    }
    return false;
}

} // namespace

/// One at the portal, closed with this.
struct PortalHotkey::Session {
    Session(std::shared_ptr<SessionBus> on, std::string handle)
        : bus(std::move(on)), path(std::move(handle)) {}
    ~Session() {
        if (!ended)
            bus->tell(peer(), "Close", nullptr);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    SessionBus::Peer peer() const {
        return {PortalRequest::service, path.c_str(), PortalRequest::sessionInterface};
    }

    const std::shared_ptr<SessionBus> bus;
    const std::string path;
    std::optional<std::int32_t> ended; // at the portal: why
    std::vector<Subscription> heard;
};

struct PortalHotkey::State : std::enable_shared_from_this<State> {
    State(std::shared_ptr<SessionBus> on, std::shared_ptr<Clock> time, PortalHotkey& of)
        : bus(std::move(on)), clock(std::move(time)), owner(&of) {}

    void watchPortal() {
        portal = bus->watch(PortalRequest::service, [weak = weak_from_this()](const std::string& name) {
            const auto self = weak.lock();
            if (self && name.empty())
                self->gone();
            else if (self)
                self->appeared();
        });
    }
    void gone() {
        if (!std::exchange(there, false))
            return; // what is told first: our own call may start it
        // A user who refused isn't asked again for that.
        again = turn > 0 && stands != HotkeyOutcome::failed(HotkeyStatus::refusedByUser);
        if (const auto its = newest.lock())
            over(*its, HotkeyStatus::noPortal);
    }
    void appeared() {
        there = true;
        if (std::exchange(again, false) && owner)
            tell(owner->onReturn);
    }

    Task<PortalAnswer> ask(
        const char* method, double limit, std::function<GVariant*(GVariantBuilder*)> arguments) {
        return PortalRequest::ask(bus, clock, {shortcuts, method, std::move(arguments), limit});
    }

    /// Gives up what is registered or about to be.
    void drop() {
        ++turn;
        spec.reset();
        session.reset();
        press(false);
    }

    void press(bool pressed) {
        if (std::exchange(held, pressed) != pressed && owner)
            tell(pressed ? owner->onPress : owner->onRelease);
    }

    /// The session has ended at the portal.
    void over(Session& which, std::int32_t status) {
        which.ended = status;
        if (session.get() != &which)
            return;
        drop();
        stands = HotkeyOutcome::failed(status);
        if (owner)
            tell(owner->onChange, *stands);
    }

    /// From now on the portal's words about this session are heard.
    void listen(Session& to) {
        const auto closed = [weak = weak_from_this(), which = &to](GVariant*) {
            if (const auto self = weak.lock())
                self->over(*which, HotkeyStatus::takenBack);
        };
        to.heard.push_back(bus->listen(to.peer(), "Closed", "r", closed)); // details came in a later version
        for (const bool pressed : {true, false}) {
            const auto heard = [weak = weak_from_this(), which = &to, pressed](GVariant* arguments) {
                const char *handle = nullptr, *id = nullptr;
                g_variant_get_child(arguments, 0, "&o", &handle);
                g_variant_get_child(arguments, 1, "&s", &id);
                const auto self = weak.lock();
                if (!self || self->session.get() != which || which->path != handle ||
                    std::string_view(id) != shortcutId)
                    return;
                if (pressed)
                    self->useToken(arguments);
                self->press(pressed);
            };
            to.heard.push_back(bus->listen({PortalRequest::service, PortalRequest::path, shortcuts},
                pressed ? "Activated" : "Deactivated", "(osta{sv})", heard));
        }
    }

    /// Of `Activated`; newer portals give one.
    void useToken(GVariant* arguments) {
        const OwnedVariant details(g_variant_get_child_value(arguments, 3));
        const char* token = "";
        g_variant_lookup(details.get(), "activation_token", "&s", &token);
        if (*token && !held && owner)
            tell(owner->onActivationToken, token);
    }

    const std::shared_ptr<SessionBus> bus;
    const std::shared_ptr<Clock> clock;
    PortalHotkey* owner; // null once it is gone
    Subscription portal;
    std::shared_ptr<Session> session; // of the key that is registered
    std::weak_ptr<Session> newest;    // that one, or one of a registration that goes on
    std::optional<HotkeySpec> spec;
    std::optional<HotkeyOutcome> stands; // absent before the first registration, and during one
    bool held = false;
    bool there = false;     // the portal is
    bool again = false;     // a portal that appears now is worth asking
    std::uint64_t turn = 0; // counts registrations, so that an older one knows itself
};

PortalHotkey::PortalHotkey(std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock)
    : state_(std::make_shared<State>(std::move(bus), std::move(clock), *this)) {
    state_->watchPortal();
}

PortalHotkey::~PortalHotkey() {
    state_->owner = nullptr;
    state_->drop();
}

Task<HotkeyOutcome> PortalHotkey::registerKey(HotkeySpec spec) {
    return take(state_, std::move(spec));
}

Task<HotkeyOutcome> PortalHotkey::take(std::shared_ptr<State> state, HotkeySpec spec) {
    state->drop();
    state->stands.reset();
    state->again = false; // a portal that our call starts is no reason to call it once more
    const auto turn = state->turn;
    auto binding = bind(state, std::move(spec));
    const auto outcome = co_await std::move(binding);
    if (turn != state->turn)
        co_return outcome;
    state->stands = outcome;
    state->again = state->again || outcome == HotkeyOutcome::failed(HotkeyStatus::noPortal);
    co_return outcome;
}

Task<HotkeyOutcome> PortalHotkey::bind(std::shared_ptr<State> state, HotkeySpec spec) {
    const auto turn = state->turn;
    auto creating = state->ask("CreateSession", portalLimit, [](GVariantBuilder* options) {
        g_variant_builder_add(
            options, "{sv}", "session_handle_token", g_variant_new_string(PortalRequest::token().c_str()));
        return g_variant_new("(a{sv})", options);
    });
    const auto created = co_await std::move(creating);
    const auto handle = created.text("session_handle");
    if (created.status != 0 || !handle || !g_variant_is_object_path(handle->c_str()))
        co_return HotkeyOutcome::failed(created.status != 0 ? created.status : HotkeyStatus::noPortal);
    const auto session = std::make_shared<Session>(state->bus, *handle);
    if (turn != state->turn)
        co_return HotkeyOutcome::failed(HotkeyStatus::replaced);
    state->newest = session;
    state->listen(*session);

    auto binding = state->ask("BindShortcuts", userLimit, [session, spec](GVariantBuilder* options) {
        return g_variant_new("(o@a(sa{sv})sa{sv})", session->path.c_str(), shortcutList(spec), "", options);
    });
    const auto bound = co_await std::move(binding);
    if (bound.status != 0)
        co_return HotkeyOutcome::failed(bound.status);
    if (turn != state->turn)
        co_return HotkeyOutcome::failed(HotkeyStatus::replaced);
    if (session->ended)
        co_return HotkeyOutcome::failed(*session->ended);
    if (!isBound(bound))
        co_return HotkeyOutcome::failed(HotkeyStatus::refusedByUser);
    state->session = session;
    state->spec = std::move(spec);
    co_return HotkeyOutcome::registered();
}

std::optional<HotkeySpec> PortalHotkey::current() const {
    return state_->spec;
}

} // namespace kelvadrome
