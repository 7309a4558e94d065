#include "Kelvadrome/platform/linux/desk/PortalHotkey.h"

#include "KelvadromeKit/support/Text.h"

#include <string_view>

namespace kelvadrome {

namespace {

constexpr const char* shortcuts = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* shortcutId = "command-bar";

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
        if (open)
            bus->tell(peer(), "Close", nullptr);
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    SessionBus::Peer peer() const {
        return {PortalRequest::service, path.c_str(), PortalRequest::sessionInterface};
    }

    const std::shared_ptr<SessionBus> bus;
    const std::string path;
    bool open = true;
    std::vector<Subscription> heard;
};

struct PortalHotkey::State : std::enable_shared_from_this<State> {
    State(std::shared_ptr<SessionBus> on, std::shared_ptr<Clock> time, std::function<void(bool)> told)
        : bus(std::move(on)), clock(std::move(time)), tell(std::move(told)) {}

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
        if (std::exchange(held, pressed) != pressed && !ended)
            tell(pressed);
    }

    /// From now on the portal's words about this session are heard.
    void listen(Session& to) {
        const auto over = [weak = weak_from_this(), which = &to] {
            const auto self = weak.lock();
            if (!self)
                return;
            which->open = false;
            if (self->session.get() == which)
                self->drop();
        };
        // Its details came in a later version.
        to.heard.push_back(bus->listen(to.peer(), "Closed", "r", [over](GVariant*) { over(); }));
        to.heard.push_back(bus->watch(PortalRequest::service, [over](const std::string& owner) {
            if (owner.empty())
                over();
        }));
        for (const bool pressed : {true, false}) {
            const auto heard = [weak = weak_from_this(), which = &to, pressed](GVariant* arguments) {
                const char *handle = nullptr, *id = nullptr;
                g_variant_get_child(arguments, 0, "&o", &handle);
                g_variant_get_child(arguments, 1, "&s", &id);
                const auto self = weak.lock();
                if (self && self->session.get() == which && which->path == handle &&
                    std::string_view(id) == shortcutId)
                    self->press(pressed);
            };
            to.heard.push_back(bus->listen({PortalRequest::service, PortalRequest::path, shortcuts},
                pressed ? "Activated" : "Deactivated", "(osta{sv})", heard));
        }
    }

    const std::shared_ptr<SessionBus> bus;
    const std::shared_ptr<Clock> clock;
    const std::function<void(bool pressed)> tell;
    std::shared_ptr<Session> session;
    std::optional<HotkeySpec> spec;
    bool held = false;
    bool ended = false;     // the object is gone
    std::uint64_t turn = 0; // counts registrations, so that an older one knows itself
};

PortalHotkey::PortalHotkey(std::shared_ptr<SessionBus> bus, std::shared_ptr<Clock> clock)
    : state_(std::make_shared<State>(
          std::move(bus), std::move(clock), [this](bool pressed) { tell(pressed); })) {}

PortalHotkey::~PortalHotkey() {
    state_->ended = true;
    state_->drop();
}

Task<HotkeyOutcome> PortalHotkey::registerKey(HotkeySpec spec) {
    return bind(state_, std::move(spec));
}

Task<HotkeyOutcome> PortalHotkey::bind(std::shared_ptr<State> state, HotkeySpec spec) {
    state->drop();
    const auto turn = state->turn;
    auto creating = state->ask("CreateSession", portalLimit, [](GVariantBuilder* options) {
        g_variant_builder_add(
            options, "{sv}", "session_handle_token", g_variant_new_string(PortalRequest::token().c_str()));
        return g_variant_new("(a{sv})", options);
    });
    const auto created = co_await std::move(creating);
    const auto handle = created.text("session_handle");
    if (created.status != 0 || !handle || !g_variant_is_object_path(handle->c_str()))
        co_return HotkeyOutcome::failed(created.status != 0 ? created.status : PortalAnswer::noPortal);
    const auto session = std::make_shared<Session>(state->bus, *handle);
    if (turn != state->turn)
        co_return HotkeyOutcome::failed(replaced);
    state->listen(*session);

    auto binding = state->ask("BindShortcuts", userLimit, [session, spec](GVariantBuilder* options) {
        return g_variant_new("(o@a(sa{sv})sa{sv})", session->path.c_str(), shortcutList(spec), "", options);
    });
    const auto bound = co_await std::move(binding);
    if (bound.status != 0)
        co_return HotkeyOutcome::failed(bound.status);
    if (turn != state->turn)
        co_return HotkeyOutcome::failed(replaced);
    if (!session->open)
        co_return HotkeyOutcome::failed(PortalAnswer::noPortal);
    if (!isBound(bound))
        co_return HotkeyOutcome::failed(1); // as for a user who refused
    state->session = session;
    state->spec = std::move(spec);
    co_return HotkeyOutcome::registered();
}

std::optional<HotkeySpec> PortalHotkey::current() const {
    return state_->spec;
}

void PortalHotkey::tell(bool pressed) {
    const auto call = pressed ? onPress : onRelease;
    if (call)
        call();
}

} // namespace kelvadrome
