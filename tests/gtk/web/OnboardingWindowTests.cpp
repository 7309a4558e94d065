#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "Kelvadrome/gtk/web/OnboardingWindow.h"

#include "tests/gtk/web/Stage.h"
#include "tests/model/World.h"
#include "tests/support/TemporaryFolder.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <gdk/x11/gdkx.h>
#include <gtkmm/label.h>

using namespace kelvadrome;
using namespace kelvadrome::test;

namespace {

class ScriptedPicker final : public FolderPicking {
public:
    std::optional<std::string> answer;
    std::vector<std::string> asked;

    Task<std::optional<std::string>> pick(std::string startingAt) override {
        asked.push_back(startingAt);
        co_return answer;
    }
};

/// The windows of a kind that are open.
std::vector<GtkWindow*> openWindows(GType kind) {
    std::vector<GtkWindow*> found;
    auto* all = gtk_window_get_toplevels();
    for (guint i = 0; i < g_list_model_get_n_items(all); ++i) {
        const auto window = adopt(static_cast<GtkWindow*>(g_list_model_get_item(all, i)));
        if (G_TYPE_CHECK_INSTANCE_TYPE(window.get(), kind) &&
            gtk_widget_get_visible(GTK_WIDGET(window.get())))
            found.push_back(window.get());
    }
    return found;
}

bool hasText(Gtk::Widget& root, const std::string& text) {
    return findWidget<Gtk::Label>(root, [&](Gtk::Label& label) { return label.get_text().raw() == text; }) !=
           nullptr;
}

class OnboardingWindowTest : public Stage {
protected:
    void SetUp() override {
        Stage::SetUp();
        if (IsSkipped())
            return;
        world.make();
        setup = OnboardingWindow::make({.executor = loop.executor(),
            .clock = clock,
            .openURL = {},
            .client = DaemonClient(UnixSocketTransport(server.socketPath(), pool)),
            .model = world.model,
            .home = "/home/me",
            .picker = picker});
        setup->onClosed = [this] { ++closed; };
        serve("/onboarding",
            "<script>const told = []; window.kelvadrome = {setTheme: name => told.push(name), "
            "folderChosen: path => { told.push(path) }}</script><p>Setup</p>");
        server.on("/v1/onboarding/folder", FakeReply::data("{\"anything\":1}"));
    }
    void TearDown() override {
        setup.reset();
        drain();
    }

    void present(bool firstRun = true) {
        setup->present(credentials(), firstRun, "dark");
        until([&] { return setup->web().loaded(); }, "the setup page");
    }
    /// The page says something, and it has been dealt with when `condition` holds.
    void say(const std::string& message, const std::function<bool()>& condition) {
        setup->web().runScript(post(message));
        until(condition, message);
    }
    bool pageWasTold(const std::string& text) {
        return run(setup->web().evaluate("told.includes('" + text + "')"));
    }
    AdwMessageDialog* sheet() {
        const auto sheets = openWindows(ADW_TYPE_MESSAGE_DIALOG);
        return sheets.size() == 1 ? ADW_MESSAGE_DIALOG(sheets.front()) : nullptr;
    }

    BackgroundPool pool;
    World world;
    std::shared_ptr<ScriptedPicker> picker = std::make_shared<ScriptedPicker>();
    std::shared_ptr<OnboardingWindow> setup;
    TemporaryFolder folder;
    int closed = 0;
};

} // namespace

TEST_F(OnboardingWindowTest, presentsItsPageAndFollowsTheSessionWhileItIsVisible) {
    EXPECT_FALSE(setup->visible());
    setup->renew(credentials("s2"));
    present();
    EXPECT_EQ(server.requests("/onboarding").size(), 1u);
    EXPECT_EQ(server.requests("/onboarding").front().query, "shell=native&first_run=1");
    EXPECT_EQ(server.requests("/onboarding").front().headers.at("cookie"), "kd_session=s1");
    EXPECT_TRUE(pageWasTold("dark"));
    EXPECT_EQ(setup->window().get_title(), "Set up kelvadrome");
    until([&] { return setup->web().widget().get_height() > 0; }, "the window's size");
    // The frame takes a few pixels where nothing composes the windows.
    EXPECT_NEAR(setup->web().widget().get_width(), 880, 12);
    EXPECT_NEAR(setup->web().widget().get_height(), 720, 12);
    int least = 0;
    gtk_widget_measure(GTK_WIDGET(setup->window().gobj()), GTK_ORIENTATION_HORIZONTAL, -1, &least, nullptr,
        nullptr, nullptr);
    EXPECT_GE(least, 720);

    setup->renew(credentials("s1")); // the one that it has
    setup->renew(credentials("s2"));
    until([&] { return server.requests("/onboarding").size() == 2; }, "the page with the new session");
    EXPECT_EQ(server.requests("/onboarding").back().headers.at("cookie"), "kd_session=s2");
    EXPECT_EQ(server.requests("/onboarding").back().query, "shell=native&first_run=1");
}

TEST_F(OnboardingWindowTest, aQuietOneAsksForNoFocus) {
    setup->presentQuietly(credentials(), false, "system");
    until([&] { return gtk_widget_get_mapped(GTK_WIDGET(setup->window().gobj())); }, "the window");
    until([&] { return server.requests("/onboarding").size() == 1; }, "the page");
    EXPECT_EQ(server.requests("/onboarding").front().query, "shell=native&first_run=0");
    auto* surface = gtk_native_get_surface(GTK_NATIVE(setup->window().gobj()));
    auto* display = gdk_x11_display_get_xdisplay(gdk_surface_get_display(surface));
    Atom type = 0;
    int format = 0;
    unsigned long count = 0, rest = 0;
    unsigned char* value = nullptr;
    XGetWindowProperty(display, gdk_x11_surface_get_xid(surface),
        XInternAtom(display, "_NET_WM_USER_TIME", False), 0, 1, False, XA_CARDINAL, &type, &format, &count,
        &rest, &value);
    ASSERT_EQ(count, 1u);
    EXPECT_EQ(*reinterpret_cast<unsigned long*>(value), 0u);
    XFree(value);
}

TEST_F(OnboardingWindowTest, aChosenFolderGoesToThePageOrElseToTheDaemon) {
    present();
    say("{type: 'onboarding', step: 3, primary_enabled: true}",
        [&] { return setup->coordinator().primaryEnabled(); });
    EXPECT_EQ(setup->coordinator().step(), "3");

    picker->answer = folder.path();
    const std::string choose = "{type: 'action', action: 'chooseFolder'}";
    say(choose, [&] { return setup->coordinator().lastFolder().has_value(); });
    EXPECT_EQ(picker->asked, std::vector<std::string>{"/home/me"});
    until([&] { return pageWasTold(folder.path()); }, "the page to be told");
    EXPECT_TRUE(server.requests("/v1/onboarding/folder").empty());

    picker->answer = folder / "none";
    say(choose, [&] { return hasText(setup->window(), "That folder is not available."); });

    // A page that knows nothing of folders is loaded again when the daemon has taken the folder.
    setup->web().runScript("delete window.kelvadrome.folderChosen");
    picker->answer = folder.path();
    say(choose, [&] { return server.requests("/onboarding").size() == 2; });
    ASSERT_EQ(server.requests("/v1/onboarding/folder").size(), 1u);
    EXPECT_EQ(server.requests("/v1/onboarding/folder").front().body,
        "{\"path\":\"" + folder.path().string() + "\"}");
}

TEST_F(OnboardingWindowTest, otherActionsAreTheShells) {
    present();
    say("{type: 'action', action: 'delegate', command: 'kd x'}",
        [&] { return world.screen->calls.has("copyText kd x"); });
    setup->web().runScript(post("{type: 'mode', mode: 'expert'}"));
    say("{type: 'action', action: 'delegate', command: 'q y'}",
        [&] { return world.screen->calls.has("copyText q y"); });
    EXPECT_EQ(world.state().interfaceMode, InterfaceMode::simple);
}

TEST_F(OnboardingWindowTest, closingAsksOnceWhileSetupIsNotFinished) {
    present();
    setup->window().close();
    until([&] { return sheet() != nullptr; }, "the sheet");
    setup->window().close();
    drain();
    ASSERT_NE(sheet(), nullptr); // and no second one

    gtk_window_close(GTK_WINDOW(sheet())); // as Escape does
    until([&] { return openWindows(ADW_TYPE_MESSAGE_DIALOG).empty(); }, "the sheet to go");
    drain();
    EXPECT_TRUE(setup->visible());

    setup->window().close();
    until([&] { return sheet() != nullptr; }, "the second sheet");
    auto* later = findWidget<Gtk::Button>(*Glib::wrap(GTK_WIDGET(sheet())),
        [](Gtk::Button& button) { return button.get_label() == "Finish later"; });
    ASSERT_NE(later, nullptr);
    g_signal_emit_by_name(later->gobj(), "clicked");
    until([&] { return closed == 1; }, "the window to close");
    EXPECT_FALSE(setup->visible());
    EXPECT_FALSE(setup->coordinator().finished());

    present(false);
    EXPECT_TRUE(setup->visible());
    EXPECT_EQ(server.requests("/onboarding").back().query, "shell=native&first_run=0");
}

TEST_F(OnboardingWindowTest, theWindowClosesItselfWhenSetupIsDone) {
    present();
    setup->window().close();
    until([&] { return sheet() != nullptr; }, "the sheet");
    say("{type: 'onboarding_done'}", [&] { return closed == 1; });
    EXPECT_FALSE(setup->visible());
    until([&] { return openWindows(ADW_TYPE_MESSAGE_DIALOG).empty(); }, "the sheet to go too");
    EXPECT_TRUE(world.screen->calls.has("openMainWindow"));
    // Opened once more, it is not done before its page says so.
    present(false);
    EXPECT_FALSE(setup->coordinator().finished());
    setup->window().close();
    until([&] { return sheet() != nullptr; }, "the sheet of the page that came later");
}
