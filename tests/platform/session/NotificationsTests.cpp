#include "Kelvadrome/model/Notifier.h"
#include "Kelvadrome/platform/linux/session/FreedesktopNotifications.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/bus/FakeNotificationServer.h"

#include <gmock/gmock.h>

#include <fstream>

namespace kelvadrome::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class NotificationsTest : public PrivateBus {
protected:
    std::unique_ptr<FakeNotificationServer> server(
        std::vector<const char*> capabilities = {"actions", "body", "body-markup"}) {
        return std::make_unique<FakeNotificationServer>(connection(), std::move(capabilities));
    }
    std::shared_ptr<FreedesktopNotifications> make() {
        auto center = FreedesktopNotifications::make(bus);
        center->registerCategory(
            {Notifier::categoryIdentifier, {{Notifier::actionIdentifier, Notifier::actionTitle}}});
        center->setOpened([this] { said.emplace_back("opened"); });
        center->onActivationToken = [this](const std::string& token) { said.push_back(token); };
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
    const std::string withActions = "['default', 'Open kelvadrome', 'kelvadrome.open', 'Open kelvadrome']";
    for (const auto& [capabilities, words] : std::vector<std::pair<std::vector<const char*>, std::string>>{
             {{"actions", "body", "body-markup"}, "'kelvadrome', 'R&amp;D &lt;waits&gt;', " + withActions},
             {{"body"}, "'kelvadrome', 'R&D <waits>', []"},
             {{"actions"}, "'kelvadrome: R&D <waits>', '', " + withActions}}) {
        const auto shown = server(capabilities);
        const auto center = make();
        ASSERT_TRUE(run(center->add(stopping("a"))));
        EXPECT_THAT(
            shown->notified.at(0), HasSubstr("('kelvadrome', 0, 'com.kelvadrome.mac', " + words + ", {"));
        EXPECT_THAT(shown->notified[0], HasSubstr("'desktop-entry': <'com.kelvadrome.mac'>"));
    }
}

TEST_F(NotificationsTest, aPressOnTheBodyOrTheButtonOpensOurOwnOnly) {
    const auto shown = server();
    const auto center = make();
    run(center->add(stopping("a")));
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

    const auto fresh = FreedesktopNotifications::make(bus); // doesn't know the server yet
    const auto posted = shown->notified.size();
    spawn(loop.executor(), "post", fresh->add(stopping("e")));
    loop.drain();
    fresh->withdraw("e");
    run(fresh->add(stopping("f", "another")));
    EXPECT_EQ(shown->notified.size(), posted + 1) << "one that was taken back before the server was asked";
}

TEST_F(NotificationsTest, permissionIsWhetherAServerAnswersOrCouldBeStarted) {
    const auto center = make();
    EXPECT_FALSE(allowed(*center));
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

TEST_F(NotificationsTest, theNotifiersPermissionFollowsTheServersAndItsNotificationsReachTheUser) {
    const auto center = FreedesktopNotifications::make(bus);
    const auto notifier = std::make_shared<Notifier>(loop.executor(), center);
    notifier->onOpen = [this] { said.emplace_back("opened"); };
    run(notifier->setUp(true, [this](bool allowed) { said.emplace_back(allowed ? "allowed" : "refused"); }));
    auto first = server();
    waitFor([&] { return notifier->enabled(); }, "the first server to count");
    EXPECT_NE(run(notifier->postStop(1)).take(), "");
    first.reset();
    waitFor([&] { return !notifier->enabled(); }, "its end to count");
    EXPECT_EQ(run(notifier->postStop(1)).take(), "");
    const auto second = server({"body"}); // shows no buttons
    waitFor([&] { return notifier->enabled(); }, "the second server to count");
    second->invoke(1, "default"); // somebody else's first
    settle(second->bus, *bus);
    EXPECT_THAT(said, ElementsAre("refused", "allowed", "refused", "allowed"));

    const auto notification = run(notifier->postStop(2)).take();
    EXPECT_THAT(second->notified.at(0), Not(HasSubstr("default")));
    second->invoke(1, "default");
    waitFor([&] { return said.back() == "opened"; }, "the press");
    notifier->withdraw(notification);
    settle(*bus, second->bus);
    EXPECT_THAT(second->closed, ElementsAre(1U));
}

} // namespace
} // namespace kelvadrome::test
