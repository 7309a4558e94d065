#include "Kelvadrome/model/Notifier.h"

#include "tests/model/World.h"

namespace kelvadrome::test {
namespace {

using Words = std::vector<std::string>;

class FakeCenter final : public NotificationCenter {
public:
    bool accepts = true;
    std::optional<bool> answer = true; // absent: an error
    std::function<void()> opened;
    std::vector<Category> categories;
    std::vector<NotificationRequest> requests;

    bool acceptsThisProcess() override { return accepts; }
    void setOpened(std::function<void()> call) override { opened = std::move(call); }
    void registerCategory(Category category) override { categories.push_back(std::move(category)); }
    Task<bool> requestAuthorization() override { co_return answer.value(); }
    Task<> add(NotificationRequest request) override {
        requests.push_back(std::move(request));
        co_return;
    }
};

class NotifierTest : public testing::Test {
protected:
    void setUp(bool enabled = true) {
        loop.run(notifier->setUp(enabled, [this](bool allowed) { reports.push_back(allowed); }));
        loop.run(notifier->postStop(0)); // never shows
    }
    void post(std::int64_t count) { loop.run(notifier->postStop(count)); }

    TestLoop loop;
    std::shared_ptr<FakeCenter> center = std::make_shared<FakeCenter>();
    std::shared_ptr<Notifier> notifier = std::make_shared<Notifier>(loop.executor(), center);
    std::vector<bool> reports;
};

TEST_F(NotifierTest, withoutAYesNothingIsShown) {
    setUp(false);
    center->accepts = false;
    setUp();
    EXPECT_TRUE(reports.empty() && center->categories.empty()) << "nobody was asked";
    center->accepts = true;
    for (const auto answer : {std::optional(false), std::optional<bool>()}) {
        center->answer = answer;
        setUp();
        EXPECT_FALSE(reports.back());
        post(1);
    }
    EXPECT_TRUE(center->requests.empty());
}

TEST_F(NotifierTest, anAllowedNotificationShowsAndItsPressArrivesOnTheMainExecutor) {
    setUp();
    EXPECT_EQ(reports, std::vector{true});
    post(2);
    EXPECT_EQ(center->requests.at(0).body, "2 stops need you. Open to review.");
    int opened = 0;
    notifier->onOpen = [&] { ++opened; };
    std::thread([&] { center->opened(); }).join();
    EXPECT_EQ(opened, 0);
    loop.until([&] { return opened == 1; }, "the press to arrive");
    notifier.reset();
    center->opened(); // after its end a press is nothing
    loop.drain();
    EXPECT_EQ(opened, 1);
}

TEST(StopNotifications, eachHighRiskStopIsNotifiedOfOnce) {
    World world;
    world.cards(
        {World::cardJSON("1", "stop", "high"), World::cardJSON("2", "stop", "high", R"(,"state":"held")"),
            World::cardJSON("3", "stop", "low"), World::cardJSON("4", "question", "high"),
            World::cardJSON("5", "stop", "high", R"(,"state":"closed")")});
    world.start();
    EXPECT_EQ(world.notifier->posted, std::vector<std::int64_t>{2});
    world.readCards({World::cardJSON("1", "stop", "high"), World::cardJSON("6", "stop", "high")});
    world.loop.drain();
    EXPECT_EQ(world.notifier->posted, (std::vector<std::int64_t>{2, 1}));
}

TEST(StopNotifications, goOutOnlyWhenTheSettingAndTheFlagAllowAndCountAsSeenAllTheSame) {
    for (const auto& [setting, flag] : {std::pair(true, true), {true, false}, {false, true}}) {
        World world;
        world.flags.notifications = flag;
        world.defaults->set("KDNotifyStops", setting);
        world.cards({World::cardJSON("1", "stop", "high")});
        world.start();
        EXPECT_EQ(world.state().notificationsAllowed, flag ? std::optional(true) : std::nullopt);
        world.defaults->remove("KDNotifyStops");
        world.refresh();
        world.loop.drain();
        EXPECT_EQ(world.notifier->posted.size(), setting && flag ? 1U : 0U) << "seen already";
    }
}

TEST(StopNotifications, aNotificationGoesWhenTheLastOfItsStopsIsOver) {
    World world;
    const auto stop = [](const char* id) { return World::cardJSON(id, "stop", "high"); };
    world.cards({stop("1"), stop("2")});
    world.start();
    world.readCards({stop("2"), stop("3")});
    world.until([&] { return world.notifier->posted.size() == 2; }, "the second notification");
    EXPECT_EQ(world.notifier->withdrawn, Words{}) << "2 is open still";
    world.readCards({World::cardJSON("2", "stop", "high", R"(,"state":"closed")"), stop("3")});
    EXPECT_EQ(world.notifier->withdrawn, Words{"1"});
    world.loop.run(world.model->stop());
    EXPECT_EQ(world.notifier->withdrawn, (Words{"1", "2"})) << "a press would reach nobody";
}

} // namespace
} // namespace kelvadrome::test
