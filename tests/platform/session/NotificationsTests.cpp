#include "Kelvadrome/platform/linux/FreedesktopNotifications.h"

#include "tests/platform/session/FakeNotificationServer.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

using FakeServer = FakeNotificationServer;

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
    const auto notification = run(notifier->postStop(2)).take();
    ASSERT_EQ(shown->notified.size(), 1U);
    shown->invoke(1, "default");
    waitFor([&] { return opened == 1; }, "the press");
    notifier->withdraw(notification);
    settle(*bus, shown->bus);
    EXPECT_THAT(shown->closed, ElementsAre(1U));
}

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

} // namespace
} // namespace kelvadrome::test
