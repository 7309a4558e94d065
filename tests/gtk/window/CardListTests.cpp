#include "Kelvadrome/gtk/parts/CardActions.h"
#include "Kelvadrome/gtk/parts/Theme.h"
#include "Kelvadrome/gtk/tray/TrayImage.h"
#include "Kelvadrome/gtk/window/CardList.h"

#include "tests/gtk/OnADisplay.h"
#include "tests/model/World.h"

#include <gtkmm/window.h>

namespace kelvadrome::test {
namespace {

using Kind = PanelAction::Kind;

/// What can be read of the widget that has the focus, or of the one around it: "[text]" for an entry.
std::string words(GtkWidget* widget) {
    for (; widget; widget = gtk_widget_get_parent(widget)) {
        if (GTK_IS_ENTRY(widget))
            return std::string("[") + gtk_editable_get_text(GTK_EDITABLE(widget)) + "]";
        if (GTK_IS_BUTTON(widget)) {
            auto* child = gtk_button_get_child(GTK_BUTTON(widget));
            if (GTK_IS_BOX(child))
                child = gtk_widget_get_last_child(child); // behind the number of its key
            if (GTK_IS_LABEL(child))
                return gtk_label_get_text(GTK_LABEL(child));
        }
        if (GTK_IS_LABEL(widget))
            return gtk_label_get_text(GTK_LABEL(widget));
    }
    return "nothing";
}

class CardListStage : public OnADisplay {
protected:
    void SetUp() override {
        OnADisplay::SetUp();
        if (IsSkipped())
            return;
        static const bool themed = (Theme::install(), true);
        ASSERT_TRUE(themed);
        desk = std::make_shared<CardDesk>(CardDesk{
            .perform = [this](const PanelAction& action, const Card&) { done.push_back(action.words); },
            .answer = [this](const Card& card,
                          std::string text) { done.push_back("answer " + card.id + " " + text); },
            .answerBatch =
                [this](const Card& card, const std::map<std::string, std::string>& answers) {
                    std::string line = "batch " + card.id;
                    for (const auto& [id, text] : answers)
                        line += " " + id + "=" + text;
                    done.push_back(line);
                },
            .reviewAnswer = [this](const Card& card,
                                std::string text) { done.push_back("review " + card.id + " " + text); }});
        list = std::make_unique<CardList>(desk, CardView::Form::open);
        window = std::make_unique<Gtk::Window>();
        window->set_child(*list);
        window->present();
    }

    static PanelCard card(const std::string& id) {
        return {.card = test::card(id),
            .agent = "Claude Code",
            .age = "now",
            .summary = "Question " + id,
            .actions = {{.kind = Kind::answer, .words = "Yes " + id, .answer = "Yes"},
                {.kind = Kind::snooze, .words = "Snooze " + id}}};
    }
    static HoldRow hold(const std::string& id, double left, bool committed = false) {
        HoldRow row{.card = test::card(id), .agent = "Claude Code", .label = "mine", .committed = committed};
        row.words = committed ? "mine. Sent to Claude Code" : "Sending in a moment. Undo.";
        row.left = left;
        row.duration = 2;
        if (!committed)
            row.undo = PanelAction{.kind = Kind::undo, .words = "Undo"};
        return row;
    }
    std::string focused() { return words(gtk_window_get_focus(GTK_WINDOW(window->gobj()))); }
    void tab() { window->child_focus(Gtk::DirectionType::TAB_FORWARD); }
    /// Tab until it is so; the widget that has the focus then.
    GtkWidget* tabUntil(const std::function<bool()>& reached) {
        for (int i = 0; i < 200 && !reached(); ++i)
            tab();
        EXPECT_TRUE(reached()) << "the focus is on " << focused();
        return gtk_window_get_focus(GTK_WINDOW(window->gobj()));
    }
    void press(const std::string& button) {
        g_signal_emit_by_name(tabUntil([&] { return focused() == button; }), "clicked");
    }
    /// All that the Tab key comes by.
    std::set<std::string> stops() {
        std::set<std::string> all;
        for (int i = 0; i < 12; ++i) {
            tab();
            all.insert(focused());
        }
        return all;
    }
    /// Whether a label that shows has these words.
    bool reads(const std::string& wanted) {
        return findWidget(GTK_WIDGET(window->gobj()), [&](GtkWidget* widget) {
            return GTK_IS_LABEL(widget) && gtk_widget_is_visible(widget) &&
                   wanted == gtk_label_get_text(GTK_LABEL(widget));
        });
    }
    void type(const std::string& text) {
        auto* const entry = tabUntil([&] { return focused().starts_with("["); });
        ASSERT_TRUE(GTK_IS_EDITABLE(entry));
        int end = -1;
        gtk_editable_insert_text(GTK_EDITABLE(entry), text.c_str(), -1, &end);
    }

    std::vector<std::string> done;
    std::shared_ptr<CardDesk> desk;
    std::unique_ptr<Gtk::Window> window;
    std::unique_ptr<CardList> list;
};

TEST_F(CardListStage, whatIsTypedSurvivesEveryChangeUntilItIsSent) {
    list->show({card("a"), card("b")});
    type("mi");
    auto changed = card("a");
    changed.age = "1 min";
    list->show({card("c"), card("b"), changed});
    EXPECT_EQ(focused(), "[mi]") << "a new order";
    changed.card.version = 9;
    changed.card.body = "More to read";
    list->show({card("b"), changed});
    EXPECT_EQ(focused(), "[mi]") << "another text of the same card";
    type("ne");
    press("Send");
    EXPECT_EQ(done, std::vector<std::string>{"answer a mine"});

    list->show({hold("a", 2), card("b")});
    list->show({card("b")}); // a card that more urgent ones drove out
    list->show({card("a")});
    type("!");
    EXPECT_EQ(focused(), "[mine!]") << "undone, or refused";
    list->show({hold("a", 0, true)});
    list->show({card("a")});
    type("new");
    EXPECT_EQ(focused(), "[new]") << "it was sent";
}

TEST(CardDesk, aDraftGoesWithItsCard) {
    World world;
    world.cards({World::cardJSON("a"), World::cardJSON("b")});
    world.make();
    const auto desk = makeCardDesk(world.model, {});
    world.refresh();
    desk->drafts = {{"a", {{"", "mine"}}}, {"b", {{"lang", "Rust"}}}};
    world.cards({World::cardJSON("a")});
    world.refresh();
    world.loop.until([&] { return !desk->drafts.contains("b"); }, "the draft of the card that went to go");
    EXPECT_TRUE(desk->drafts.contains("a"));
}

TEST_F(CardListStage, theFocusNeverGoesToAnAnswerThatTheNextPressWasNotMeantFor) {
    list->show({card("a"), card("b"), card("c")});
    press("Yes b");
    list->show({card("a"), hold("b", 2), card("c")});
    EXPECT_EQ(focused(), "Undo");
    list->show({card("a"), hold("b", 1), card("c")});
    EXPECT_EQ(focused(), "Undo") << "a step of the countdown";
    list->show({card("a"), card("b"), card("c")});
    EXPECT_EQ(focused(), "Question b") << "undone";
    list->show({card("a"), hold("b", 0, true), card("c")});
    EXPECT_EQ(focused(), "mine. Sent to Claude Code");
    list->show({card("a"), card("c")});
    EXPECT_EQ(focused(), "Question c");
    list->show({card("a")});
    EXPECT_EQ(focused(), "Question a");
    EXPECT_EQ(done, std::vector<std::string>{"Yes b"}) << "one press";

    press("Snooze a");
    auto more = card("a");
    more.card.options = {"Snooze a"};
    list->show({more});
    std::optional<Kind> pressed;
    desk->perform = [&](const PanelAction& action, const Card&) { pressed = action.kind; };
    press("Snooze a");
    EXPECT_EQ(pressed, Kind::snooze) << "not the option that bears the same words";
}

TEST_F(CardListStage, whatHasJustMovedTakesNoPressOfThePointer) {
    list->show({card("a"), card("b")});
    list->show({card("a"), card("b"), card("c")});
    EXPECT_TRUE(list->get_can_target()) << "one below moves nothing";
    list->show({hold("a", 2), card("b"), card("c")});
    EXPECT_FALSE(list->get_can_target());
    TestLoop().until(
        [&] {
            g_main_context_iteration(nullptr, FALSE);
            return list->get_can_target();
        },
        "the rows to take presses again");
}

TEST_F(CardListStage, aBatchIsSentWholeAndAHighRiskOffersNoAnswer) {
    auto batch = card("a");
    batch.card.kind = "batch";
    batch.card.rows = {{"lang", "Which?", "Rust", ""}, {"ci", "Which CI?", std::nullopt, ""}};
    batch.actions.erase(batch.actions.begin());
    list->show({batch});
    press("Send answers");
    EXPECT_TRUE(done.empty());
    EXPECT_EQ(focused(), "[]") << "the question without an answer";
    type("ours");
    press("Send answers");
    EXPECT_EQ(done, std::vector<std::string>{"batch a ci=ours lang=Rust"});

    auto risky = card("b");
    risky.highRisk = true;
    risky.card.risk = "high";
    risky.card.options = {"Approve"};
    risky.actions.front() = {.kind = Kind::review, .words = "Review in kelvadrome"};
    list->show({risky});
    press("Approve…");
    EXPECT_EQ(done.back(), "review b Approve") << "not sent";
}

TEST_F(CardListStage, theKeysOfThePageWorkOnTheCardThatHasTheFocus) {
    auto asked = card("a");
    asked.card.options = {"Yes", "No"};
    asked.actions.push_back({.kind = Kind::dismiss, .words = "Dismiss…"});
    list->show({asked});
    // As a key press does: from the widget that has the focus outwards, until one takes it.
    const auto type = [&](guint key) {
        gboolean taken = FALSE;
        auto* widget = gtk_window_get_focus(GTK_WINDOW(window->gobj()));
        for (; widget && !taken; widget = gtk_widget_get_parent(widget)) {
            auto* const controllers = gtk_widget_observe_controllers(widget);
            for (guint i = 0; i < g_list_model_get_n_items(controllers) && !taken; ++i) {
                auto* const one = g_list_model_get_item(controllers, i);
                // A button has one of its own, for the keys that press it.
                if (GTK_IS_EVENT_CONTROLLER_KEY(one) && !GTK_IS_SHORTCUT_CONTROLLER(one))
                    g_signal_emit_by_name(one, "key-pressed", key, 0U, GdkModifierType(0), &taken);
                g_object_unref(one);
            }
            g_object_unref(controllers);
        }
    };
    list->focusFirst();
    for (const auto& [key, result] : std::vector<std::pair<guint, std::string>>{
             {GDK_KEY_2, "No"}, {GDK_KEY_a, "Yes a"}, {GDK_KEY_z, "Snooze a"}}) {
        type(key);
        ASSERT_FALSE(done.empty()) << result;
        EXPECT_EQ(done.back(), result);
    }
    const auto before = done;
    type(GDK_KEY_x);
    EXPECT_EQ(focused(), "Keep") << "it asks first";
    press("Dismiss");
    EXPECT_EQ(done.back(), "Dismiss");
    list->focusFirst();
    type(GDK_KEY_t);
    EXPECT_EQ(focused(), "[]");
    done = before;
    type(GDK_KEY_1);
    EXPECT_EQ(done, before) << "it is typed, not pressed";
}

TEST_F(CardListStage, aCardWhoseAnswerIsUnderWayOrImpossibleOffersNone) {
    auto away = card("a");
    away.card.options = {"Yes", "No"};
    list->show({away});
    press("No");
    away.way = "An answer is on hold for Claude Code.";
    away.actions = {{.kind = Kind::undo, .words = "Undo"}};
    list->show({away});
    EXPECT_EQ(focused(), "Question a");
    EXPECT_EQ(stops(), (std::set<std::string>{"Question a", "Undo"}));
    auto never = card("a");
    never.answerable = false;
    never.card.options = {"Yes", "No"};
    never.card.deliveryNote = "The agent runs behind script.";
    never.actions = {{.kind = Kind::review, .words = "Review in kelvadrome"}};
    list->show({never});
    EXPECT_EQ(stops(), (std::set<std::string>{"Question a", "Review in kelvadrome"}));
    EXPECT_TRUE(reads("The agent runs behind script."));
}

TEST_F(CardListStage, aFoldedCardIsReadBeforeItIsAnswered) {
    CardList folded(desk, CardView::Form::folded);
    window->set_child(folded);
    auto asked = card("a");
    asked.card.body = "rm -rf build\n" + std::string(900, 'x');
    asked.opening = {"rm -rf build", true};
    folded.show({asked});
    EXPECT_TRUE(reads("rm -rf build …"));
    auto* const expander =
        tabUntil([this] { return GTK_IS_EXPANDER(gtk_window_get_focus(GTK_WINDOW(window->gobj()))); });
    gtk_expander_set_expanded(GTK_EXPANDER(expander), TRUE);
    EXPECT_FALSE(reads("rm -rf build …")) << "all of it stands there now";
    EXPECT_TRUE(reads(asked.card.body));
    window->unset_child();
}

TEST_F(CardListStage, aNarrowColumnCutsNoAnswerOff) {
    auto asked = card("a");
    asked.card.options = {"PostgreSQL", "SQLite", "Keep the old one", "None of these"};
    list->show({asked});
    auto* const column = GTK_WIDGET(list->gobj());
    GtkAllocation narrow{0, 0, 300, 0};
    gtk_widget_measure(
        column, GTK_ORIENTATION_VERTICAL, narrow.width, nullptr, &narrow.height, nullptr, nullptr);
    gtk_widget_size_allocate(column, &narrow, -1);
    auto* const cut = findWidget(column, [](GtkWidget* widget) {
        int natural = 0;
        gtk_widget_measure(widget, GTK_ORIENTATION_HORIZONTAL, -1, nullptr, &natural, nullptr, nullptr);
        return GTK_IS_BUTTON(widget) && gtk_widget_get_allocated_width(widget) < natural;
    });
    EXPECT_FALSE(cut) << words(cut) << " is narrower than its words";
}

TEST_F(CardListStage, aThousandCardsAreReachedStepByStep) {
    std::vector<PanelRow> rows;
    for (int i = 0; i < 1000; ++i)
        rows.emplace_back(card(std::to_string(i)));
    list->show(rows);
    press("Show more (970)");
    EXPECT_EQ(focused(), "Question 30");
}

TEST(TrayImage, aCountIsDrawnOverTheMark) {
    const auto plain = trayImages(0), one = trayImages(1), nine = trayImages(9), many = trayImages(10);
    ASSERT_EQ(plain.size(), one.size());
    EXPECT_TRUE(plain != one && one != nine && nine != many);
    EXPECT_EQ(many, trayImages(500));
    EXPECT_EQ(plain[0].bytes.size(), std::size_t(plain[0].width) * std::size_t(plain[0].height) * 4);
}

} // namespace
} // namespace kelvadrome::test
