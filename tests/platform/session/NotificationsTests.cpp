#include "Kelvadrome/platform/linux/FreedesktopNotifications.h"

#include "tests/platform/session/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr const char* serverName = "org.freedesktop.Notifications";
constexpr const char* serverPath = "/org/freedesktop/Notifications";

struct FakeServer : FakePeer {
    FakeServer(OwnedObject<GDBusConnection> connection, std::vector<const char*> capabilities)
        : FakePeer(std::move(connection), serverName), capabilities_(std::move(capabilities)) {
        served = bus.serve(serverPath,
            "<node><interface name='org.freedesktop.Notifications'><method name='GetCapabilities'>"
            "<arg type='as' direction='out'/></method><method name='CloseNotification'>"
            "<arg type='u' direction='in'/></method><method name='Notify'><arg type='s' direction='in'/>"
            "<arg type='u' direction='in'/><arg type='s' direction='in'/><arg type='s' direction='in'/>"
            "<arg type='s' direction='in'/><arg type='as' direction='in'/><arg type='a{sv}' direction='in'/>"
            "<arg type='i' direction='in'/><arg type='u' direction='out'/></method></interface></node>",
            {.call = [this](const std::string& method, GVariant* arguments) {
                return answer(method, arguments);
            }});
    }
    void invoke(std::uint32_t id, const char* action, const char* token = nullptr) {
        if (token)
            bus.emit(serverPath, serverName, "ActivationToken", g_variant_new("(us)", id, token));
        bus.emit(serverPath, serverName, "ActionInvoked", g_variant_new("(us)", id, action));
    }
    void close(std::uint32_t id) {
        bus.emit(serverPath, serverName, "NotificationClosed", g_variant_new("(uu)", id, 2U));
    }

    std::vector<std::string> notified; // what each Notify said, as text
    std::vector<std::uint32_t> replaced;
    std::vector<std::uint32_t> closed;
    std::function<void()> beforeReply;

private:
    GVariant* answer(const std::string& method, GVariant* arguments) {
        if (method == "GetCapabilities")
            return g_variant_new(
                "(@as)", g_variant_new_strv(capabilities_.data(), gssize(capabilities_.size())));
        if (method == "CloseNotification") {
            g_variant_get(arguments, "(u)", &closed.emplace_back());
            return nullptr;
        }
        const OwnedText text(g_variant_print(arguments, FALSE));
        notified.emplace_back(text.get());
        g_variant_get_child(arguments, 1, "u", &replaced.emplace_back());
        if (beforeReply)
            beforeReply();
        return g_variant_new("(u)", replaced.back() != 0 ? replaced.back() : ++count_);
    }

    std::vector<const char*> capabilities_;
    std::uint32_t count_ = 0;
};

class NotificationsTest : public PrivateBus {
protected:
    std::unique_ptr<FakeServer> server(
        std::vector<const char*> capabilities = {"actions", "body", "body-markup"}) {
        return std::make_unique<FakeServer>(connection(), std::move(capabilities));
    }
    std::shared_ptr<FreedesktopNotifications> make() {
        auto center = FreedesktopNotifications::make(bus);
        center->registerCategory(
            {Notifier::categoryIdentifier, {{Notifier::actionIdentifier, Notifier::actionTitle}}});
        center->setOpened([this] { said.emplace_back("opened"); });
        center->onActivationToken = [this](const std::string& token) { said.push_back(token); };
        center->setAuthorizationChanged([this] { said.emplace_back("another server"); });
        settle(*bus, *bus);
        return center;
    }
    static NotificationRequest stopping(const std::string& identifier, const std::string& thread = "stops") {
        return {identifier, "kelvadrome", "R&D <waits>", Notifier::categoryIdentifier, thread};
    }
    bool allowed(FreedesktopNotifications& center) {
        auto answer = run(center.requestAuthorization());
        return answer.take();
    }

    std::vector<std::string> said;
};

TEST_F(NotificationsTest, aNotificationIsWhatTheServerCanShow) {
    struct Case {
        std::vector<const char*> capabilities;
        std::string words;
    };
    const std::string withActions = "['default', 'Open kelvadrome', 'kelvadrome.open', 'Open kelvadrome']";
    for (const auto& [capabilities, words] :
        std::vector<Case>{{{"actions", "body", "body-markup", "sound"},
                              "'kelvadrome', 'R&amp;D &lt;waits&gt;', " + withActions},
            {{"body"}, "'kelvadrome', 'R&D <waits>', []"},
            {{"actions"}, "'kelvadrome: R&D <waits>', '', " + withActions}}) {
        const auto shown = server(capabilities);
        const auto center = make();
        ASSERT_TRUE(run(center->add(stopping("a"))));
        ASSERT_EQ(shown->notified.size(), 1U);
        EXPECT_THAT(
            shown->notified[0], HasSubstr("('kelvadrome', 0, 'com.kelvadrome.mac', " + words + ", {"));
        for (const char* hint : {"'urgency': <byte 0x01>", "'desktop-entry': <'com.kelvadrome.mac'>",
                 "'sound-name': <'message-new-instant'>", "'category': <'x-kelvadrome.stop'>", "}, -1)"})
            EXPECT_THAT(shown->notified[0], HasSubstr(hint));
    }
}

TEST_F(NotificationsTest, aPressOnTheBodyOrTheButtonOpensOurOwnOnly) {
    const auto shown = server();
    const auto center = make();
    run(center->add(stopping("a")));
    said.clear();
    shown->invoke(7, "default", "another's");
    shown->invoke(1, "another.action");
    shown->invoke(1, "default", "token");
    shown->invoke(1, "kelvadrome.open");
    shown->close(1);
    shown->invoke(1, "default");
    settle(shown->bus, *bus);
    EXPECT_THAT(said, ElementsAre("token", "opened", "opened"));
}

TEST_F(NotificationsTest, whatIsOverIsTakenBackAndWhatIsUnderWayDoesNotStay) {
    const auto shown = server();
    const auto center = make();
    for (const char* identifier : {"a", "b"})
        run(center->add(stopping(identifier)));
    run(center->add(stopping("c", "another")));
    run(center->add(stopping("b"))); // again: in its own place
    EXPECT_THAT(shown->replaced, ElementsAre(0U, 0U, 0U, 2U));
    center->withdraw("a");
    center->withdraw("a");
    center->withdraw("b");
    settle(*bus, shown->bus);
    EXPECT_THAT(shown->closed, ElementsAre(1U, 2U));

    shown->beforeReply = [&] { center->withdraw("d"); };
    run(center->add(stopping("d")));
    settle(*bus, shown->bus);
    EXPECT_THAT(shown->closed, ElementsAre(1U, 2U, 4U));
    const auto posted = shown->notified.size();
    center->withdraw("d");
    settle(*bus, shown->bus);
    EXPECT_EQ(shown->closed.size(), 3U);
    EXPECT_EQ(shown->notified.size(), posted);
}

TEST_F(NotificationsTest, oneThatIsTakenBackBeforeTheServerIsAskedNeverShows) {
    const auto shown = server();
    const auto center = FreedesktopNotifications::make(bus); // doesn't know the server yet
    spawn(loop.executor(), "post", center->add(stopping("a")));
    loop.drain();
    center->withdraw("a");
    run(center->add(stopping("b", "another")));
    EXPECT_EQ(shown->notified.size(), 1U);
}

TEST_F(NotificationsTest, permissionIsWhetherAServerAnswersOrCouldBeStarted) {
    const auto center = make();
    EXPECT_TRUE(center->acceptsThisProcess());
    EXPECT_FALSE(allowed(*center));
    {
        const auto shown = server({});
        EXPECT_TRUE(allowed(*center));
    }
    const TemporaryFolder services;
    std::ofstream(services / "notifications.service")
        << "[D-BUS Service]\nName=org.freedesktop.Notifications\nExec=/bin/false\n";
    start(services.path());
    const auto startable = make();
    const auto hasty = FreedesktopNotifications::make(bus, 200);
    {
TEST_F(NotificationsTest, permissionFollowsTheServersThatComeAndGoAndIsToldOncePerChange) {
    const auto center = FreedesktopNotifications::make(bus);
    const auto notifier = std::make_shared<Notifier>(loop.executor(), center);
    run(notifier->setUp(true, [this](bool allowed) { said.emplace_back(allowed ? "allowed" : "refused"); }));
    EXPECT_EQ(run(notifier->postStop(1)).take(), "");
    auto first = server();
    waitFor([&] { return notifier->enabled(); }, "the first server to count");
    EXPECT_NE(run(notifier->postStop(1)).take(), "");
    first.reset();
    waitFor([&] { return !notifier->enabled(); }, "its end to count");
    const auto second = server();
    waitFor([&] { return notifier->enabled(); }, "the second server to count");
    EXPECT_THAT(said, ElementsAre("refused", "allowed", "refused", "allowed"));
}

        const auto stuck = server();
        stuck->hang();
        EXPECT_FALSE(allowed(*hasty));
        EXPECT_FALSE(run(hasty->add(stopping("a"))));
    }
    EXPECT_TRUE(allowed(*startable));
    EXPECT_FALSE(run(startable->add(stopping("a")))); // but this one can't be
    stop();
    waitFor([&] { return !startable->acceptsThisProcess(); }, "the end of the bus");
    EXPECT_FALSE(allowed(*startable));
}

TEST_F(NotificationsTest, aServerThatVanishesTakesItsNotificationsAndTheNextOneIsAskedAnew) {
    auto first = server();
    const auto center = make();
    ASSERT_TRUE(run(center->add(stopping("a"))));
    EXPECT_THAT(said, ElementsAre("another server"));
    first.reset();
    waitFor([&] { return said.size() == 2; }, "the server to vanish");
    EXPECT_FALSE(run(center->add(stopping("b"))));

    const auto second = server({"body"}); // shows no buttons
    waitFor([&] { return said.size() == 3; }, "the next server");
    second->invoke(1, "default"); // somebody else's first
    settle(second->bus, *bus);
    EXPECT_THAT(said, testing::Each("another server"));
    ASSERT_TRUE(run(center->add(stopping("c"))));
    EXPECT_THAT(second->notified.at(0), Not(HasSubstr("default")));
    second->invoke(1, "default");
    settle(second->bus, *bus);
    EXPECT_EQ(said.back(), "opened");
}

TEST_F(NotificationsTest, theNotifierReachesItsUserThroughIt) {
    const auto shown = server();
    const auto center = FreedesktopNotifications::make(bus);
    const auto notifier = std::make_shared<Notifier>(loop.executor(), center);
    int opened = 0;
    notifier->onOpen = [&] { ++opened; };
    run(notifier->setUp(true, [this](bool allowed) { said.emplace_back(allowed ? "allowed" : "refused"); }));
    EXPECT_THAT(said, ElementsAre("allowed"));
    run(notifier->postStop(2));
    ASSERT_EQ(shown->notified.size(), 1U);
    shown->invoke(1, "default");
    waitFor([&] { return opened == 1; }, "the press");
    notifier->withdraw(notification);
    settle(*bus, shown->bus);
    EXPECT_THAT(shown->closed, ElementsAre(1U));
}

} // namespace
} // namespace kelvadrome::test
