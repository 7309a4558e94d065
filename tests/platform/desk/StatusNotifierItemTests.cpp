#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"

#include "tests/support/bus/FakeTrayWatcher.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;

class StatusNotifierItemTest : public PrivateBus {
protected:
    using Item = StatusNotifierItem;

    std::unique_ptr<FakeTrayWatcher> watcher(bool withHost) {
        return std::make_unique<FakeTrayWatcher>(connection(), withHost);
    }
    std::unique_ptr<Item> makeItem(Item::Presses presses = {}, Item::Icon icon = {}) {
        auto item = std::make_unique<Item>(bus, std::move(icon), std::move(presses));
        item->onHosted = [this](bool hosted) { told.push_back(hosted); };
        return item;
    }
    SessionBus::Peer itemPeer(const std::string& name, const char* interface = "org.kde.StatusNotifierItem") {
        return {name.c_str(), "/StatusNotifierItem", interface};
    }

    std::vector<bool> told;
};

TEST_F(StatusNotifierItemTest, aHostReadsTheItemAndItsPressesArrive) {
    std::vector<std::string> pressed;
    const auto note = [&](const char* what) {
        return [&pressed, what](Item::Press press) {
            pressed.push_back(fmt::format("{} {},{} {}", what, press.x, press.y, press.activationToken));
        };
    };
    const auto host = watcher(true);
    const auto item = makeItem({note("activate"), note("secondary"), note("menu")},
        {.themePath = "/icons", .pixmaps = {{1, 1, std::string("\x01\x02\x03\x04")}}});
    item->show({.label = "3", .tooltip = "3 <need> you", .status = Item::Status::needsAttention});
    waitFor([&] { return item->hosted(); }, "the host");
    const auto name = host->items.at(0);
    const std::pair<const char*, const char*> properties[] = {{"IconName", "<'com.kelvadrome.mac-symbolic'>"},
        {"IconThemePath", "<'/icons'>"}, {"IconPixmap", "<[(1, 1, [byte 0x01, 0x02, 0x03, 0x04])]>"},
        {"Status", "<'NeedsAttention'>"}, {"XAyatanaLabel", "<'3'>"},
        {"ToolTip", "<('', @a(iiay) [], 'kelvadrome', '3 &lt;need&gt; you')>"},
        {"Menu", "<objectpath '/StatusNotifierItem/Menu'>"}, {"ItemIsMenu", "<false>"}};
    for (const auto& [property, value] : properties) {
        const auto answer = ask(host->bus, itemPeer(name, "org.freedesktop.DBus.Properties"), "Get",
            g_variant_new("(ss)", "org.kde.StatusNotifierItem", property), "(v)");
        EXPECT_EQ(print(answer.get()), fmt::format("({},)", value)) << property;
    }

    ask(host->bus, itemPeer(name), "ProvideXdgActivationToken", g_variant_new("(s)", "token"), "()");
    for (const char* method : {"Activate", "SecondaryActivate", "ContextMenu"})
        EXPECT_TRUE(ask(host->bus, itemPeer(name), method, g_variant_new("(ii)", 7, -2), "()")) << method;
    EXPECT_THAT(pressed, ElementsAre("activate 7,-2 token", "secondary 7,-2 ", "menu 7,-2 "));
}

TEST_F(StatusNotifierItemTest, aPressMayEndTheItemOrFailAndTheHostIsAnsweredAllTheSame) {
    const auto host = watcher(true);
    std::unique_ptr<Item> item;
    item = makeItem({.activate = [&](Item::Press) { item.reset(); },
        .secondary = [](Item::Press) { throw std::runtime_error("a fault in the window"); }});
    waitFor([&] { return item->hosted(); }, "the host");
    const auto name = host->items.at(0);
    EXPECT_FALSE(ask(host->bus, itemPeer(name), "SecondaryActivate", g_variant_new("(ii)", 0, 0), "()"));
    EXPECT_TRUE(ask(host->bus, itemPeer(name), "Activate", g_variant_new("(ii)", 0, 0), "()"));
    settle(*bus, host->bus);
    const auto owned = ask(host->bus, busPeer, "NameHasOwner", g_variant_new("(s)", name.c_str()), "(b)");
    EXPECT_EQ(print(owned.get()), "(false,)");
}

TEST_F(StatusNotifierItemTest, aHostIsToldOfEachChangeOnce) {
    const auto host = watcher(true);
    const auto item = makeItem();
    waitFor([&] { return item->hosted(); }, "the host");
    std::vector<std::string> heard;
    std::vector<Subscription> listening;
    const auto name = host->items.at(0);
    for (const char* signal : {"NewTitle", "NewToolTip", "NewStatus", "XAyatanaNewLabel", "NewIcon"}) {
        for (const char* type : {"()", "(s)", "(ss)"})
            listening.push_back(host->bus.listen(itemPeer(name), signal, type,
                [&heard, signal](GVariant* arguments) { heard.push_back(signal + print(arguments)); }));
    }
    settle(host->bus, *bus);
    const auto show = [&](Item::State state) {
        heard.clear();
        item->show(std::move(state));
        settle(*bus, host->bus);
        return heard;
    };
    const Item::State two{
        .title = "Finish setup", .label = "2", .tooltip = "two", .status = Item::Status::passive};
    EXPECT_THAT(show(two),
        ElementsAre("NewTitle()", "NewToolTip()", "XAyatanaNewLabel('2', '')", "NewStatus('Passive',)"));
    EXPECT_THAT(show(two), ElementsAre());
}

TEST_F(StatusNotifierItemTest, watchersHostsAndTheBusComeAndGo) {
    const auto item = makeItem();
    settle(*bus, *bus);
    EXPECT_FALSE(item->hosted());

    auto first = watcher(false);
    waitFor([&] { return first->looks == 1; }, "the look for a host");
    first->setHosted(true, "StatusNotifierHostRegistered");
    waitFor([&] { return item->hosted(); }, "the host that came later");
    first->setHosted(true, "StatusNotifierHostUnregistered"); // one of two
    waitFor([&] { return first->looks == 3; }, "the second look");
    settle(*bus, *bus);
    EXPECT_TRUE(item->hosted());
    first->setHosted(false, "StatusNotifierHostUnregistered");
    waitFor([&] { return !item->hosted(); }, "the last host to go");
    first->setHosted(true, "StatusNotifierHostRegistered");
    waitFor([&] { return item->hosted(); }, "a host again");
    EXPECT_EQ(first->items.size(), 1U);
    first.reset();
    waitFor([&] { return !item->hosted(); }, "the watcher to go");

    auto second = watcher(true);
    second->refusing = true;
    waitFor([&] { return second->items.size() == 1; }, "the refused item");
    settle(*bus, *bus);
    EXPECT_FALSE(item->hosted());
    second->refusing = false;
    second->setHosted(true, "StatusNotifierHostRegistered");
    waitFor([&] { return item->hosted(); }, "the watcher that was ready later");
    EXPECT_EQ(second->items.size(), 2U);
    stop();
    waitFor([&] { return !item->hosted(); }, "the end of the bus");
    EXPECT_FALSE(bus->connected());
    item->show({.label = "1"});
    item->setMenu({{.id = 1, .label = "Open"}});
    EXPECT_THAT(told, ElementsAre(true, false, true, false, true, false));
}

} // namespace
} // namespace kelvadrome::test
