#include "Kelvadrome/platform/linux/desk/BusMenu.h"

#include "KelvadromeKit/support/Text.h"

#include <TrayBus.h>
#include <algorithm>

namespace kelvadrome {

namespace {

constexpr std::int32_t root = 0;

struct Builder : GVariantBuilder {
    explicit Builder(const char* type) { g_variant_builder_init(this, G_VARIANT_TYPE(type)); }
    GVariant* end() { return g_variant_builder_end(this); }
};

/// Of the properties that a request names; none stand for all.
using Names = const char* const*;

std::vector<std::int32_t> idsIn(GVariant* list) {
    std::vector<std::int32_t> ids(g_variant_n_children(list));
    for (std::size_t i = 0; i < ids.size(); ++i)
        g_variant_get_child(list, i, "i", &ids[i]);
    return ids;
}

GVariant* toVariant(const std::variant<bool, std::int32_t, std::string>& value) {
    if (const auto* flag = std::get_if<bool>(&value))
        return g_variant_new_boolean(*flag);
    if (const auto* number = std::get_if<std::int32_t>(&value))
        return g_variant_new_int32(*number);
    return busText(std::get<std::string>(value));
}

template <class Properties>
GVariant* dictionary(const Properties& properties, Names names) {
    Builder builder("a{sv}");
    for (const auto& [name, value] : properties) {
        if (!names || !*names || g_strv_contains(names, name.c_str()))
            g_variant_builder_add(&builder, "{sv}", name.c_str(), toVariant(value));
    }
    return builder.end();
}

/// What a reader takes for granted where a row doesn't tell the property.
GVariant* standardValue(const std::string& name) {
    if (name == "type")
        return g_variant_new_string("standard");
    if (name == "enabled" || name == "visible")
        return g_variant_new_boolean(TRUE);
    if (name == "toggle-state")
        return g_variant_new_int32(-1);
    if (name == "label" || name == "icon-name" || name == "toggle-type" || name == "children-display")
        return g_variant_new_string("");
    throw SessionBus::Refusal("no such property");
}

} // namespace

BusMenu::BusMenu(std::shared_ptr<SessionBus> bus, std::string path)
    : bus_(std::move(bus)), path_(std::move(path)), skeleton_(kd_tray_menu_skeleton_new()) {
    auto* const menu = skeleton_.get();
    kd_tray_menu_set_version(menu, 3);
    kd_tray_menu_set_text_direction(menu, "ltr");
    kd_tray_menu_set_status(menu, "normal");
    const char* const noPaths[] = {nullptr};
    kd_tray_menu_set_icon_theme_path(menu, noPaths);
    answerReaders();
    served_ = bus_->serve(path_.c_str(), G_DBUS_INTERFACE_SKELETON(menu));
}

BusMenu::~BusMenu() = default;

/// Those that differ from what every reader takes for granted.
BusMenu::Properties BusMenu::properties(const TrayMenuEntry& entry) {
    if (entry.separator)
        return {{"type", std::string("separator")}};
    Properties properties{{"label", Text::replaceAll(entry.label, "_", "__")}}; // one marks an access key
    if (!entry.enabled)
        properties["enabled"] = false;
    if (entry.checkable) {
        properties["toggle-type"] = std::string("checkmark");
        properties["toggle-state"] = std::int32_t(entry.checked);
    }
    return properties;
}

void BusMenu::show(std::vector<TrayMenuEntry> entries) {
    const auto before = std::exchange(entries_, std::move(entries));
    announce(before);
}

/// Readers keep what they know of a row as long as its id stays: new rows come with the layout, changes of
/// old ones by themselves.
void BusMenu::announce(const std::vector<TrayMenuEntry>& before) {
    Builder changed("a(ia{sv})");
    Builder removed("a(ias)");
    for (const auto& entry : entries_) {
        const auto old = std::ranges::find(before, entry.id, &TrayMenuEntry::id);
        if (old == before.end())
            continue;
        auto is = properties(entry);
        Builder gone("as");
        for (const auto& [name, value] : properties(*old)) {
            const auto now = is.find(name);
            if (now == is.end()) {
                g_variant_builder_add(&gone, "s", name.c_str());
            } else if (now->second == value) {
                is.erase(now);
            }
        }
        const OwnedVariant names(g_variant_ref_sink(gone.end()));
        if (g_variant_n_children(names.get()) > 0)
            g_variant_builder_add(&removed, "(i@as)", entry.id, names.get());
        if (!is.empty())
            g_variant_builder_add(&changed, "(i@a{sv})", entry.id, dictionary(is, nullptr));
    }
    const OwnedVariant more(g_variant_ref_sink(changed.end()));
    const OwnedVariant less(g_variant_ref_sink(removed.end()));
    if (g_variant_n_children(more.get()) + g_variant_n_children(less.get()) > 0) {
        kd_tray_menu_emit_items_properties_updated(skeleton_.get(), more.get(), less.get());
    }
    if (!std::ranges::equal(before, entries_, {}, &TrayMenuEntry::id, &TrayMenuEntry::id)) {
        ++revision_;
        kd_tray_menu_emit_layout_updated(skeleton_.get(), revision_, root);
    }
}

void BusMenu::answerReaders() {
    const auto on = [this](const char* signal, auto method) {
        SessionBus::onCall(skeleton_.get(), signal, std::function(std::move(method)));
    };
    on("handle-get-layout",
        [this](int parent, int depth, Names names) { return layout(parent, depth, names); });
    on("handle-get-group-properties",
        [this](GVariant* ids, Names names) { return groupProperties(ids, names); });
    on("handle-get-property", [this](int id, const char* name) { return property(id, name); });
    on("handle-event", [this](int id, const char* event, GVariant*, unsigned) -> GVariant* {
        press(id, event);
        return nullptr;
    });
    on("handle-event-group", [this](GVariant* events) { return pressAll(events); });
    // The rows are always as they should be, so nothing has to be made ready.
    on("handle-about-to-show", [](int) { return g_variant_new("(b)", FALSE); });
    on("handle-about-to-show-group", [](GVariant*) { return g_variant_new_parsed("(@ai [], @ai [])"); });
}

std::optional<BusMenu::Properties> BusMenu::find(std::int32_t id) const {
    if (id == root)
        return Properties{{"children-display", std::string("submenu")}};
    const auto entry = std::ranges::find(entries_, id, &TrayMenuEntry::id);
    return entry == entries_.end() ? std::nullopt : std::optional(properties(*entry));
}

GVariant* BusMenu::layout(std::int32_t parent, std::int32_t depth, const char* const* names) const {
    const auto found = find(parent);
    if (!found)
        throw SessionBus::Refusal("no such row");
    Builder children("av");
    if (parent == root && depth != 0) {
        for (const auto& entry : entries_) {
            g_variant_builder_add(&children, "v",
                g_variant_new("(i@a{sv}av)", entry.id, dictionary(properties(entry), names), nullptr));
        }
    }
    return g_variant_new("(u(i@a{sv}@av))", revision_, parent, dictionary(*found, names), children.end());
}

GVariant* BusMenu::groupProperties(GVariant* ids, const char* const* names) const {
    auto wanted = idsIn(ids);
    if (wanted.empty()) {
        wanted.push_back(root);
        for (const auto& entry : entries_)
            wanted.push_back(entry.id);
    }
    Builder builder("a(ia{sv})");
    for (const auto id : wanted) {
        if (const auto found = find(id))
            g_variant_builder_add(&builder, "(i@a{sv})", id, dictionary(*found, names));
    }
    return g_variant_new("(@a(ia{sv}))", builder.end());
}

GVariant* BusMenu::property(std::int32_t id, const std::string& name) const {
    const auto found = find(id);
    if (!found)
        throw SessionBus::Refusal("no such row");
    const auto value = found->find(name);
    return g_variant_new("(v)", value == found->end() ? standardValue(name) : toVariant(value->second));
}

void BusMenu::press(std::int32_t id, const std::string& event) {
    if (!find(id))
        throw SessionBus::Refusal("no such row");
    const auto entry = std::ranges::find(entries_, id, &TrayMenuEntry::id);
    if (event != "clicked" || entry == entries_.end() || !entry->enabled || entry->separator)
        return;
    if (const auto pressed = entry->pressed) // a copy: it may show other rows
        pressed();
}

/// Gives the ids that aren't there; a refusal when none is.
GVariant* BusMenu::pressAll(GVariant* events) {
    Builder missing("ai");
    GVariantIter iterator;
    g_variant_iter_init(&iterator, events);
    std::int32_t id = 0;
    const char* event = nullptr;
    std::vector<std::pair<std::int32_t, std::string>> present;
    while (g_variant_iter_next(&iterator, "(i&svu)", &id, &event, nullptr, nullptr)) {
        if (find(id)) {
            present.emplace_back(id, event);
        } else {
            g_variant_builder_add(&missing, "i", id);
        }
    }
    const OwnedVariant answer(g_variant_ref_sink(g_variant_new("(@ai)", missing.end())));
    if (present.empty() && g_variant_n_children(events) > 0)
        throw SessionBus::Refusal("no such rows");
    const std::weak_ptr<void> menuExists = menuExists_;
    for (const auto& [id, event] : present) {
        if (menuExists.expired()) // a press ended the menu
            break;
        if (find(id)) // or took this row away
            press(id, event);
    }
    return g_variant_ref(answer.get());
}

} // namespace kelvadrome
