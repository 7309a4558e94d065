#include "Kelvadrome/platform/linux/BusMenu.h"

#include "tests/platform/session/PrivateBus.h"

#include <gmock/gmock.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;

class BusMenuTest : public PrivateBus {
protected:
    BusMenuTest() : name_(bus->name()), reader_(connect()), menu(std::make_unique<BusMenu>(bus, "/Menu")) {}

    std::string read(const char* method, GVariant* arguments, const char* type) {
        const auto answer = ask(*reader_, peer(), method, arguments, type);
        return answer ? print(answer.get()) : "refused";
    }
    std::string click(std::int32_t id, const char* event = "clicked") {
        return read("Event", g_variant_new("(isvu)", id, event, g_variant_new_string(""), 0U), "()");
    }
    std::string readProperty(std::int32_t id, const char* property) {
        return read("GetProperty", g_variant_new("(is)", id, property), "(v)");
    }
    /// What the reader is told of while these rows are put in the others' place.
    std::vector<std::string> tellingOf(std::vector<BusMenuEntry> entries) {
        std::vector<std::string> heard;
        const auto note = [&heard](GVariant* arguments) { heard.push_back(print(arguments)); };
        const auto properties = reader_->listen(peer(), "ItemsPropertiesUpdated", "(a(ia{sv})a(ias))", note);
        const auto layout = reader_->listen(peer(), "LayoutUpdated", "(ui)", note);
        settle(*reader_, *bus);
        menu->show(std::move(entries));
        settle(*bus, *reader_);
        return heard;
    }
    SessionBus::Peer peer() const { return {name_.c_str(), "/Menu", "com.canonical.dbusmenu"}; }

private:
    const std::string name_;
    std::shared_ptr<SessionBus> reader_;

protected:
    std::unique_ptr<BusMenu> menu;
};

TEST_F(BusMenuTest, aReaderGetsTheRows) {
    menu->show({{.id = 1, .label = "Open my_inbox"}, {.id = 2, .separator = true},
        {.id = 3, .label = "Agent Strip", .enabled = false, .checkable = true, .checked = true}});
    const std::string rows = "<(1, {'label': <'Open my__inbox'>}, @av [])>, "
                             "<(2, {'type': <'separator'>}, @av [])>, "
                             "<(3, {'enabled': <false>, 'label': <'Agent Strip'>, 'toggle-state': <1>, "
                             "'toggle-type': <'checkmark'>}, @av [])>";
    const auto layout = [&](std::int32_t parent, std::int32_t depth, std::vector<const char*> names) {
        names.push_back(nullptr);
        return read("GetLayout", g_variant_new("(ii^as)", parent, depth, names.data()), "(u(ia{sv}av))");
    };
    const std::string root = "(2, (0, {'children-display': <'submenu'>}, ";
    EXPECT_EQ(layout(0, -1, {}), root + "[" + rows + "]))");
    EXPECT_EQ(layout(0, 0, {}), root + "[]))");
    EXPECT_EQ(layout(1, -1, {"type"}), "(2, (1, {}, []))");
    EXPECT_EQ(layout(9, -1, {}), "refused");

    const std::int32_t wanted[] = {3, 9};
    const char* const names[] = {"label", nullptr};
    EXPECT_EQ(
        read("GetGroupProperties",
            g_variant_new("(@ai^as)", g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, wanted, 2, 4), names),
            "(a(ia{sv}))"),
        "([(3, {'label': <'Agent Strip'>})],)");
    EXPECT_EQ(readProperty(3, "enabled"), "(<false>,)");
    EXPECT_EQ(readProperty(1, "enabled"), "(<true>,)"); // untold, so as everybody takes for granted
    EXPECT_EQ(readProperty(1, "colour"), "refused");
    EXPECT_EQ(read("AboutToShow", g_variant_new("(i)", 0), "(b)"), "(false,)");
}

TEST_F(BusMenuTest, aPressReachesItsRowOnly) {
    std::vector<int> pressed;
    const auto note = [&](int id) { return [&pressed, id] { pressed.push_back(id); }; };
    menu->show({{.id = 1, .label = "Open", .pressed = note(1)},
        {.id = 2, .label = "Later", .enabled = false, .pressed = note(2)},
        {.id = 3, .separator = true, .pressed = note(3)}, {.id = 4, .label = "Quit", .pressed = note(4)}});
    for (const int id : {1, 2, 3, 4, 0})
        EXPECT_EQ(click(id), "()");
    EXPECT_EQ(click(1, "hovered"), "()");
    EXPECT_EQ(click(9), "refused");
    EXPECT_THAT(pressed, ElementsAre(1, 4));

    const auto group = [&](const char* events) {
        return read("EventGroup", g_variant_new_parsed(events), "(ai)");
    };
    EXPECT_EQ(group("([(4, 'clicked', <''>, uint32 0), (9, 'clicked', <''>, 0)],)"), "([9],)");
    EXPECT_EQ(group("([(9, 'clicked', <''>, uint32 0)],)"), "refused");
    EXPECT_THAT(pressed, ElementsAre(1, 4, 4));
}

TEST_F(BusMenuTest, aPressMayChangeTheRowsOrEndTheMenu) {
    menu->show({{.id = 1, .pressed = [this] { menu->show({{.id = 2}}); }},
        {.id = 3, .pressed = [] { ADD_FAILURE() << "a row that was gone"; }}});
    EXPECT_EQ(read("EventGroup",
                  g_variant_new_parsed("([(1, 'clicked', <''>, uint32 0), (3, 'clicked', <''>, 0), "
                                       "(2, 'clicked', <''>, 0)],)"),
                  "(ai)"),
        "([2],)"); // it wasn't there when the presses came
    menu->show({{.id = 2, .pressed = [this] { menu.reset(); }},
        {.id = 4, .pressed = [] { ADD_FAILURE() << "a row of a menu that was gone"; }}});
    EXPECT_EQ(
        read("EventGroup",
            g_variant_new_parsed("([(2, 'clicked', <''>, uint32 0), (4, 'clicked', <''>, 0)],)"), "(ai)"),
        "([],)");
    EXPECT_EQ(menu, nullptr);
    EXPECT_EQ(click(2), "refused");
}

TEST_F(BusMenuTest, aReaderIsToldOfWhatChanged) {
    const BusMenuEntry open{.id = 1, .label = "Open"};
    const BusMenuEntry strip{.id = 2, .label = "Strip", .checkable = true};
    EXPECT_THAT(tellingOf({open, strip}), ElementsAre("(2, 0)"));
    EXPECT_THAT(tellingOf({open, strip}), ElementsAre());
    auto checked = strip;
    checked.checked = true;
    EXPECT_THAT(tellingOf({open, checked}), ElementsAre("([(2, {'toggle-state': <1>})], [])"));
    EXPECT_THAT(tellingOf({open, {.id = 2, .label = "Plain"}}),
        ElementsAre("([(2, {'label': <'Plain'>})], [(2, ['toggle-state', 'toggle-type'])])"));
    EXPECT_EQ(menu->revision(), 2U);
    EXPECT_THAT(tellingOf({{.id = 2, .label = "Plain"}, open}), ElementsAre("(3, 0)"));
    EXPECT_THAT(tellingOf({open}), ElementsAre("(4, 0)"));
}

} // namespace
} // namespace kelvadrome::test
