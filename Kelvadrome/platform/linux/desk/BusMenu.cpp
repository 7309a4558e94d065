#include "Kelvadrome/platform/linux/desk/BusMenu.h"

#include "KelvadromeKit/support/Text.h"

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr const char* interface = "com.canonical.dbusmenu";
constexpr const char* xml = R"xml(<node><interface name="com.canonical.dbusmenu">
<property name="Version" type="u" access="read"/>
<property name="TextDirection" type="s" access="read"/>
<property name="Status" type="s" access="read"/>
<property name="IconThemePath" type="as" access="read"/>
<method name="GetLayout"><arg type="i" direction="in"/><arg type="i" direction="in"/>
  <arg type="as" direction="in"/><arg type="u" direction="out"/><arg type="(ia{sv}av)" direction="out"/></method>
<method name="GetGroupProperties"><arg type="ai" direction="in"/><arg type="as" direction="in"/>
  <arg type="a(ia{sv})" direction="out"/></method>
<method name="GetProperty"><arg type="i" direction="in"/><arg type="s" direction="in"/>
  <arg type="v" direction="out"/></method>
<method name="Event"><arg type="i" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="in"/>
  <arg type="u" direction="in"/></method>
<method name="EventGroup"><arg type="a(isvu)" direction="in"/><arg type="ai" direction="out"/></method>
<method name="AboutToShow"><arg type="i" direction="in"/><arg type="b" direction="out"/></method>
<method name="AboutToShowGroup"><arg type="ai" direction="in"/><arg type="ai" direction="out"/>
  <arg type="ai" direction="out"/></method>
<signal name="ItemsPropertiesUpdated"><arg type="a(ia{sv})"/><arg type="a(ias)"/></signal>
<signal name="LayoutUpdated"><arg type="u"/><arg type="i"/></signal>
<signal name="ItemActivationRequested"><arg type="i"/><arg type="u"/></signal>
</interface></node>)xml";

constexpr std::int32_t root = 0;

struct Builder : GVariantBuilder {
    explicit Builder(const char* type) { g_variant_builder_init(this, G_VARIANT_TYPE(type)); }
    GVariant* end() { return g_variant_builder_end(this); }
};

/// What the words of a request stand for; none stand for all.
std::set<std::string> namesIn(GVariant* list) {
    std::set<std::string> names;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, list);
    const char* name = nullptr;
    while (g_variant_iter_next(&iterator, "&s", &name))
        names.insert(name);
    return names;
}

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
GVariant* dictionary(const Properties& properties, const std::set<std::string>& names) {
    Builder builder("a{sv}");
    for (const auto& [name, value] : properties) {
        if (names.empty() || names.contains(name))
            g_variant_builder_add(&builder, "{sv}", name.c_str(), toVariant(value));
    }
    return builder.end();
}

/// What a property is that isn't told.
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
    : bus_(std::move(bus)), path_(std::move(path)) {
    served_ = bus_->serve(path_.c_str(), xml,
        {.call = [this](const std::string& method, GVariant* arguments) { return answer(method, arguments); },
            .property = [](const std::string& name) -> GVariant* {
                if (name == "Version")
                    return g_variant_new_uint32(3);
                if (name == "IconThemePath")
                    return g_variant_new_strv(nullptr, 0);
                return g_variant_new_string(name == "Status" ? "normal" : "ltr");
            }});
}

BusMenu::~BusMenu() = default;

/// Those that differ from what every reader takes for granted.
BusMenu::Properties BusMenu::properties(const BusMenuEntry& entry) {
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

void BusMenu::show(std::vector<BusMenuEntry> entries) {
    const auto before = std::exchange(entries_, std::move(entries));
    announce(before);
}

/// Readers keep what they know of a row as long as its id stays: new rows come with the layout, changes of
/// old ones by themselves.
void BusMenu::announce(const std::vector<BusMenuEntry>& before) {
    Builder changed("a(ia{sv})");
    Builder removed("a(ias)");
    for (const auto& entry : entries_) {
        const auto old = std::ranges::find(before, entry.id, &BusMenuEntry::id);
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
            g_variant_builder_add(&changed, "(i@a{sv})", entry.id, dictionary(is, {}));
    }
    const OwnedVariant more(g_variant_ref_sink(changed.end()));
    const OwnedVariant less(g_variant_ref_sink(removed.end()));
    if (g_variant_n_children(more.get()) + g_variant_n_children(less.get()) > 0) {
        bus_->emit(path_.c_str(), interface, "ItemsPropertiesUpdated",
            g_variant_new("(@a(ia{sv})@a(ias))", more.get(), less.get()));
    }
    if (!std::ranges::equal(before, entries_, {}, &BusMenuEntry::id, &BusMenuEntry::id)) {
        ++revision_;
        bus_->emit(path_.c_str(), interface, "LayoutUpdated", g_variant_new("(ui)", revision_, root));
    }
}

GVariant* BusMenu::answer(const std::string& method, GVariant* arguments) {
    std::int32_t id = 0;
    if (method == "GetLayout") {
        std::int32_t depth = 0;
        GVariant* raw = nullptr;
        g_variant_get(arguments, "(ii@as)", &id, &depth, &raw);
        const OwnedVariant names(raw);
        return layout(id, depth, raw);
    }
    if (method == "GetGroupProperties") {
        const OwnedVariant ids(g_variant_get_child_value(arguments, 0));
        const OwnedVariant names(g_variant_get_child_value(arguments, 1));
        return groupProperties(ids.get(), names.get());
    }
    if (method == "GetProperty") {
        const char* name = nullptr;
        g_variant_get(arguments, "(i&s)", &id, &name);
        return property(id, name);
    }
    if (method == "Event") {
        const char* event = nullptr;
        g_variant_get(arguments, "(i&svu)", &id, &event, nullptr, nullptr);
        press(id, event);
        return nullptr;
    }
    if (method == "EventGroup") {
        const OwnedVariant events(g_variant_get_child_value(arguments, 0));
        return pressAll(events.get());
    }
    // The rows are always as they should be, so nothing has to be made ready.
    if (method == "AboutToShow")
        return g_variant_new("(b)", FALSE);
    return g_variant_new("(@ai@ai)", g_variant_new_array(G_VARIANT_TYPE_INT32, nullptr, 0),
        g_variant_new_array(G_VARIANT_TYPE_INT32, nullptr, 0));
}

std::optional<BusMenu::Properties> BusMenu::find(std::int32_t id) const {
    if (id == root)
        return Properties{{"children-display", std::string("submenu")}};
    const auto entry = std::ranges::find(entries_, id, &BusMenuEntry::id);
    return entry == entries_.end() ? std::nullopt : std::optional(properties(*entry));
}

GVariant* BusMenu::layout(std::int32_t parent, std::int32_t depth, GVariant* names) const {
    const auto found = find(parent);
    if (!found)
        throw SessionBus::Refusal("no such row");
    const auto wanted = namesIn(names);
    Builder children("av");
    if (parent == root && depth != 0) {
        for (const auto& entry : entries_) {
            g_variant_builder_add(&children, "v",
                g_variant_new("(i@a{sv}av)", entry.id, dictionary(properties(entry), wanted), nullptr));
        }
    }
    return g_variant_new("(u(i@a{sv}@av))", revision_, parent, dictionary(*found, wanted), children.end());
}

GVariant* BusMenu::groupProperties(GVariant* ids, GVariant* names) const {
    auto wanted = idsIn(ids);
    if (wanted.empty()) {
        wanted.push_back(root);
        for (const auto& entry : entries_)
            wanted.push_back(entry.id);
    }
    const auto named = namesIn(names);
    Builder builder("a(ia{sv})");
    for (const auto id : wanted) {
        if (const auto found = find(id))
            g_variant_builder_add(&builder, "(i@a{sv})", id, dictionary(*found, named));
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
    const auto entry = std::ranges::find(entries_, id, &BusMenuEntry::id);
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
    const std::weak_ptr<void> life = life_;
    for (const auto& [id, event] : present) {
        if (life.expired()) // a press ended the menu
            break;
        if (find(id)) // or took this row away
            press(id, event);
    }
    return g_variant_ref(answer.get());
}

} // namespace kelvadrome
