#include "Kelvadrome/platform/linux/desk/BusMenu.h"

#include "tests/support/bus/PrivateBus.h"

#include <fmt/ranges.h>
#include <gmock/gmock.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;

class BusMenuTest : public PrivateBus {
protected:
    std::string read(const char* method, GVariant* arguments, const char* type) {
        const auto answer = ask(*reader_, peer, method, arguments, type);
        return answer ? print(answer.get()) : "refused";
    }
    std::string click(std::int32_t id, const char* event = "clicked") {
        return read("Event", g_variant_new("(isvu)", id, event, g_variant_new_string(""), 0U), "()");
    }
    std::string clickAll(const std::vector<std::int32_t>& ids) {
        const auto events = fmt::format(
            "([({}, 'clicked', <''>, uint32 0)],)", fmt::join(ids, ", 'clicked', <''>, uint32 0), ("));
        return read("EventGroup", g_variant_new_parsed(events.c_str()), "(ai)");
    }
    /// What the reader is told of while these rows are put in the others' place.
    std::vector<std::string> tellingOf(std::vector<TrayMenuEntry> entries) {
        std::vector<std::string> heard;
        const auto note = [&heard](GVariant* arguments) { heard.push_back(print(arguments)); };
        const auto properties = reader_->listen(peer, "ItemsPropertiesUpdated", "(a(ia{sv})a(ias))", note);
        const auto layout = reader_->listen(peer, "LayoutUpdated", "(ui)", note);
        settle(*reader_, *bus);
        menu->show(std::move(entries));
        settle(*bus, *reader_);
        return heard;
    }

    std::unique_ptr<BusMenu> menu = std::make_unique<BusMenu>(bus, "/Menu");

private:
    const std::string name_ = bus->name();
    const SessionBus::Peer peer{name_.c_str(), "/Menu", "com.canonical.dbusmenu"};
    std::shared_ptr<SessionBus> reader_ = connect();
};

TEST_F(BusMenuTest, aReaderGetsTheRows) {
    menu->show({{.id = 1, .label = "Open my_inbox"}, {.id = 2, .separator = true},
        {.id = 3, .label = "Agent Strip", .enabled = false, .checkable = true, .checked = true}});
    const std::string rows = "<(1, {'label': <'Open my__inbox'>}, @av [])>, "
                             "<(2, {'type': <'separator'>}, @av [])>, "
                             "<(3, {'enabled': <false>, 'label': <'Agent Strip'>, 'toggle-state': <1>, "
                             "'toggle-type': <'checkmark'>}, @av [])>";
    const auto layout = [&](const char* arguments) {
        return read("GetLayout", g_variant_new_parsed(arguments), "(u(ia{sv}av))");
    };
    EXPECT_EQ(layout("(0, -1, @as [])"), "(2, (0, {'children-display': <'submenu'>}, [" + rows + "]))");
    EXPECT_EQ(layout("(0, 0, ['type'])"), "(2, (0, {}, []))");
    EXPECT_EQ(layout("(9, -1, @as [])"), "refused");

    EXPECT_EQ(read("GetGroupProperties", g_variant_new_parsed("([3, 9], ['label'])"), "(a(ia{sv}))"),
        "([(3, {'label': <'Agent Strip'>})],)");
    const auto property = [&](std::int32_t id, const char* name) {
        return read("GetProperty", g_variant_new("(is)", id, name), "(v)");
    };
    EXPECT_EQ(property(3, "enabled"), "(<false>,)");
    EXPECT_EQ(property(1, "enabled"), "(<true>,)"); // untold, so as everybody takes for granted
    EXPECT_EQ(property(1, "colour"), "refused");
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

    EXPECT_EQ(clickAll({4, 9}), "([9],)");
    EXPECT_EQ(clickAll({9}), "refused");
    EXPECT_THAT(pressed, ElementsAre(1, 4, 4));
}

TEST_F(BusMenuTest, aPressMayChangeTheRowsOrEndTheMenu) {
    menu->show({{.id = 1, .pressed = [this] { menu->show({{.id = 2}}); }},
        {.id = 3, .pressed = [] { ADD_FAILURE() << "a row that was gone"; }}});
    EXPECT_EQ(clickAll({1, 3, 2}), "([2],)"); // it wasn't there when the presses came
    menu->show({{.id = 2, .pressed = [this] { menu.reset(); }},
        {.id = 4, .pressed = [] { ADD_FAILURE() << "a row of a menu that was gone"; }}});
    EXPECT_EQ(clickAll({2, 4}), "([],)");
    EXPECT_EQ(click(2), "refused");
}

TEST_F(BusMenuTest, aReaderIsToldOfWhatChanged) {
    const TrayMenuEntry open{.id = 1, .label = "Open"};
    const TrayMenuEntry strip{.id = 2, .label = "Strip", .checkable = true};
    EXPECT_THAT(tellingOf({open, strip}), ElementsAre("(2, 0)"));
    EXPECT_THAT(tellingOf({open, strip}), ElementsAre());
    auto checked = strip;
    checked.checked = true;
    EXPECT_THAT(tellingOf({open, checked}), ElementsAre("([(2, {'toggle-state': <1>})], [])"));
    EXPECT_THAT(tellingOf({open, {.id = 2, .label = "Plain"}}),
        ElementsAre("([(2, {'label': <'Plain'>})], [(2, ['toggle-state', 'toggle-type'])])"));
    EXPECT_THAT(tellingOf({{.id = 2, .label = "Plain"}, open}), ElementsAre("(3, 0)"));
}

} // namespace
} // namespace kelvadrome::test
