#include "Kelvadrome/gtk/DesktopBar.h"
#include "Kelvadrome/gtk/DesktopPasteboard.h"
#include "Kelvadrome/gtk/DesktopScreen.h"
#include "Kelvadrome/gtk/DesktopVoice.h"
#include "Kelvadrome/gtk/MainLoop.h"
#include "Kelvadrome/gtk/panel/PanelWindow.h"
#include "Kelvadrome/gtk/parts/Theme.h"
#include "Kelvadrome/gtk/parts/WindowHints.h"
#include "Kelvadrome/gtk/settings/SettingsWindow.h"
#include "Kelvadrome/gtk/tray/TrayIcon.h"
#include "Kelvadrome/gtk/web/OnboardingWindow.h"
#include "Kelvadrome/gtk/web/WebPane.h"
#include "Kelvadrome/gtk/window/Help.h"
#include "Kelvadrome/gtk/window/Menu.h"
#include "Kelvadrome/hub/LocalHub.h"
#include "Kelvadrome/model/AppLifecycle.h"
#include "Kelvadrome/model/NativeActions.h"
#include "Kelvadrome/model/Notifier.h"
#include "Kelvadrome/platform/linux/core/PageTunnel.h"
#include "Kelvadrome/platform/linux/core/Resources.h"
#include "Kelvadrome/platform/linux/desk/DesktopApps.h"
#include "Kelvadrome/platform/linux/desk/StatusNotifierItem.h"
#include "Kelvadrome/platform/linux/session/FileReveal.h"
#include "Kelvadrome/platform/linux/session/FreedesktopNotifications.h"
#include "Kelvadrome/platform/linux/session/LauncherBadge.h"
#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/support/Text.h"

#include <glib-unix.h>

#include <adwaita.h>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <gtkmm/application.h>

namespace kelvadrome {

namespace {

constexpr const char* applicationId = "com.kelvadrome.mac";
constexpr double drainLimit = 0.2; // seconds for what was cancelled to end
// Seconds after the start at which the debug switches act.
constexpr double windowSizePause = 1.0;
constexpr double settingsPause = 2.0;
constexpr double panelPause = 5.0;

Task<> actAfter(std::shared_ptr<Clock> clock, double seconds, std::function<void()> act) {
    co_await clock->sleep(seconds);
    act();
}

/// Everything of one run, in the order in which it is made; it ends in the reverse one.
class DesktopApplication {
public:
    explicit DesktopApplication(const std::vector<std::string>& arguments)
        : arguments_(arguments), wantsBar_(std::ranges::count(arguments, "--bar") > 0),
          hub_(
              arguments, loop_.executor(), pool_,
              [this](std::string title, std::string text, std::string button) {
                  return screen_->criticalAlert(std::move(title), std::move(text), std::move(button));
              },
              apps_) {
        application_ = Gtk::Application::create(instanceId(), Gio::Application::Flags::HANDLES_OPEN);
        application_->signal_startup().connect([this] { startUp(); });
        application_->signal_activate().connect([this] { activated(); });
        application_->signal_open().connect(
            [this](const Gio::Application::type_vec_files& files, const Glib::ustring&) { opened(files); });
    }

    int run() {
        // Where this program runs already, that one's bar is meant.
        if (wantsBar_ && application_->register_application() && application_->is_remote()) {
            application_->activate_action("toggle-bar");
            application_->get_dbus_connection()->flush_sync();
            return 0;
        }
        std::vector<char*> words{arguments_.front().data()};
        for (auto& argument : arguments_) {
            if (Text::lowercasedASCII(argument).starts_with("kelvadrome:"))
                words.push_back(argument.data());
        }
        const int status = application_->run(static_cast<int>(words.size()), words.data());
        if (model_)
            loop_.runUntil([] { return false; }, drainLimit);
        return status;
    }

private:
    /// One instance a home: a run on another one is not this one's business.
    std::string instanceId() const {
        return hub_.env.isStandard() ? applicationId
                                     : applicationId + ("." + PageKey::account(hub_.env.home));
    }

    void startUp() {
        adw_init();
        Theme::install();
        findIcons();
        application_->hold(); // closing the last window ends nothing
        makeModel();
        makeWindows();
        model_->applyAppearance();
        model_->start();
        window_->show(model_->state());
        followDebugSwitches();
        for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
            g_unix_signal_add(
                signal,
                [](gpointer self) -> gboolean {
                    static_cast<DesktopApplication*>(self)->quit();
                    return G_SOURCE_CONTINUE;
                },
                this);
        }
    }

    /// The application's own, wherever it was built or installed.
    static void findIcons() {
        auto* const theme = gtk_icon_theme_get_for_display(gdk_display_get_default());
        if (const auto folder = iconDirectory(executablePath()))
            gtk_icon_theme_add_search_path(theme, folder->c_str());
        gtk_window_set_default_icon_name(applicationId);
    }

    PageRoute pageRoute() {
        return {.proxy = tunnel_.url(), .admit = [this](std::int64_t port) {
                    const auto lead = [this, port] { return tunnel_.lead(port); };
                    return pool_.run(lead);
                }};
    }

    void makeModel() {
        page_ = WebPane::make({.executor = hub_.executor,
            .clock = hub_.clock,
            .openURL = [screen = screen_](std::string url) { screen->openURL(std::move(url)); },
            .route = pageRoute()});
        auto parts = hub_.modelDependencies();
        parts.web = page_;
        parts.screen = screen_;
        parts.voice = voice_;
        const auto notifications = FreedesktopNotifications::make(bus_);
        notifications->onActivationToken = WindowHints::useActivationToken;
        const auto notifier = std::make_shared<Notifier>(hub_.executor, notifications);
        parts.notifier = notifier;
        model_ = AppModel::make(std::move(parts));
        const std::weak_ptr<AppModel> weak = model_;
        notifier->onOpen = [weak] {
            if (const auto model = weak.lock())
                model->openFirstNeedingYou();
        };
        page_->onMessage = [weak](const std::string& type, const JSONObject& body) {
            if (const auto model = weak.lock())
                NativeActions::handle(type, body, *model);
        };
        lifecycle_ = std::make_unique<AppLifecycle>(
            model_, hub_.client, [screen = screen_](AppLifecycle::QuitQuestion question) {
                return screen->confirm(std::move(question.text), std::move(question.detail),
                    std::move(question.quit), std::move(question.keepRunning));
            });
    }

    void makeWindows() {
        panel_ = std::make_unique<PanelWindow>(model_, hub_.clock,
            PanelView::Effects{.openLoginItems = [this] { openSettings(SettingsTab::general); },
                .openSettings = [this] { openSettings(std::nullopt); },
                .done = {}});
        strip_ = std::make_unique<AgentStripWindow>(
            AgentStripWindow::Presses{.open = [this] { model_->openFirstNeedingYou(); },
                .agent = [this](const std::string& id) { model_->openAgent(id); },
                .hide = [this] { model_->setAgentStrip(false); },
                .tell = [this] { return agentLines(model_->state()); }});
        bar_ = std::make_unique<DesktopBar>(
            hub_, bus_, model_, voice_, [this](Gtk::Window& window) { adopt(window); });
        makeSettings();
        // The last, since it is nearly always open: GTK 4.8 crashes when a screen reader asks for a window
        // that has just gone while the last one made is hidden.
        window_ = std::make_unique<MainWindow>(model_, hub_.clock,
            ContentPane::Page{page_->widget(), [page = page_] { return page->trouble(); },
                [page = page_] { return page->stands() || page->loaded(); }},
            hub_.defaults);
        page_->setTroubleChanged([this] { window_->show(model_->state()); });
        Help::addShortcuts(*window_);
        adopt(*panel_);
        adopt(*strip_);
        addOrdinaryWindow(settings_->window());
        addOrdinaryWindow(*window_);
        screen_->attach(window_.get(), strip_.get(), setupHooks());
        const auto makeItem = [this](std::vector<TrayItem::Pixmap> pixmaps, TrayItem::Presses presses) {
            StatusNotifierItem::Icon icon{.themePath = iconDirectory(executablePath()).value_or("")};
            icon.pixmaps = std::move(pixmaps);
            return std::make_unique<StatusNotifierItem>(bus_, std::move(icon), std::move(presses));
        };
        tray_ = std::make_unique<TrayIcon>(makeItem, model_,
            TrayIcon::Presses{.panel = [this](auto place) { panel_->toggle(place); },
                .settings = [this] { openSettings(std::nullopt); },
                .quit = [this] { quit(); }});
        menu_ = std::make_unique<Menu>(*application_, model_);
        addAction("panel", "<Control>p", [this] { panel_->toggle(std::nullopt); });
        addAction("toggle-bar", "", [this] { bar_->toggle(); });
        addAction("search", "<Control>f", [this] { window_->focusSearch(); });
        addAction("settings", "<Control>comma", [this] { openSettings(std::nullopt); });
        addAction("about", "", [this] { Help::showAbout(*window_, KELVADROME_VERSION); });
        addAction("quit", "<Control>q", [this] { quit(); });
        watching_ = model_->observe([this] { changed(); });
    }

    /// One that has a place in the dock and in the window list.
    void addOrdinaryWindow(Gtk::Window& window) {
        adopt(window);
        window.signal_map().connect([this, &window] {
            if (!AppLifecycle::showsInDock(*hub_.defaults))
                WindowHints::skipTaskbar(window, true);
        });
    }

    /// Made when setup is first asked for: it costs a web process.
    OnboardingWindow& setup() {
        if (setup_)
            return *setup_;
        setup_ = OnboardingWindow::make({.executor = hub_.executor,
            .clock = hub_.clock,
            .openURL = [screen = screen_](std::string url) { screen->openURL(std::move(url)); },
            .client = hub_.client,
            .model = model_,
            .home = Files::userHome(),
            .picker = nullptr,
            .route = pageRoute()});
        addOrdinaryWindow(setup_->window());
        setup_->onClosed = [this] {
            if (!setup_->coordinator().finished())
                model_->onboardingPutOff();
        };
        return *setup_;
    }

    /// For good, hidden or not. The C++ binding takes a window out of the application when it hides, through
    /// the first handler that a window has, and the buttons of a title bar don't work again after that.
    void adopt(Gtk::Window& window) {
        gtk_application_add_window(application_->gobj(), window.gobj());
        const auto hide = g_signal_lookup("hide", GTK_TYPE_WIDGET);
        const auto handler =
            g_signal_handler_find(window.gobj(), G_SIGNAL_MATCH_ID, hide, 0, nullptr, nullptr, nullptr);
        if (handler != 0)
            g_signal_handler_disconnect(window.gobj(), handler);
    }

    void makeSettings() {
        settings_ = std::make_unique<SettingsWindow>(SettingsModel::make({.executor = hub_.executor,
            .pool = &pool_,
            .model = model_,
            .defaults = hub_.defaults,
            .automation = hub_.automation,
            .session = hub_.session,
            .apps = apps_,
            .place = hub_.settingsPlace(WindowHints::canPlace()),
            .secretPlace = [key = hub_.pageKey] { return key->whereabouts(); },
            .showInDock =
                [this](bool shown) {
                    for (auto* const window : ordinaryWindows()) {
                        if (window->get_mapped())
                            WindowHints::skipTaskbar(*window, !shown);
                    }
                },
            .barKey = bar_->key(),
            .voice = voice_,
            .devices = makeDevices()}));
    }

    std::shared_ptr<DevicesSettings> makeDevices() {
        return DevicesSettings::make({.executor = hub_.executor,
            .clock = hub_.clock,
            .client = hub_.client,
            .connector = hub_.connector,
            .pasteboard = std::make_shared<DesktopPasteboard>(hub_.clock),
            .confirm = [this](DevicesSettings::Question question) {
                return screen_->confirm(std::move(question.title), std::move(question.text),
                    std::move(question.button), "Cancel", &settings_->window());
            }});
    }

    std::vector<Gtk::Window*> ordinaryWindows() {
        std::vector<Gtk::Window*> windows{window_.get(), &settings_->window()};
        if (setup_)
            windows.push_back(&setup_->window());
        return windows;
    }

    void openSettings(std::optional<SettingsTab> tab) { settings_->open(tab, window_.get()); }

    void followDebugSwitches() {
        const auto after = [this](const char* name, double seconds, std::function<void()> act) {
            model_->launch(name, actAfter(hub_.clock, seconds, std::move(act)));
        };
        if (const auto size = AppLifecycle::windowSize(hub_.defaults->string("KDWindowSize").value_or(""))) {
            after("window size", windowSizePause,
                [this, size] { WindowHints::resizeCentred(*window_, size->first, size->second); });
        }
        if (hub_.flags.openPanel)
            after("panel", panelPause, [this] { panel_->open(std::nullopt); });
        if (const auto tab = hub_.flags.settingsTab)
            after("settings", settingsPause, [this, tab] { openSettings(settingsTabFromRawValue(*tab)); });
    }

    DesktopScreen::Setup setupHooks() {
        return {
            .present =
                [this](PageSession::Credentials credentials, bool firstRun, std::string theme, bool quietly) {
                    if (quietly) {
                        setup().presentQuietly(std::move(credentials), firstRun, std::move(theme));
                    } else {
                        setup().present(std::move(credentials), firstRun, std::move(theme));
                    }
                },
            .renew =
                [this](PageSession::Credentials credentials) {
                    if (setup_)
                        setup_->renew(std::move(credentials));
                },
            .raise =
                [this] {
                    if (!setup_ || !setup_->visible())
                        return false;
                    setup_->raise();
                    return true;
                },
            .close =
                [this] {
                    if (setup_)
                        setup_->closeOnboardingWindow();
                }};
    }

    void addAction(const char* name, const char* key, std::function<void()> run) {
        application_->add_action(name, std::move(run));
        if (*key)
            application_->set_accel_for_action(std::string("app.") + name, key);
    }

    void changed() {
        const auto& state = model_->state();
        window_->show(state);
        panel_->refresh();
        tray_->show(state);
        menu_->show(state);
        if (setup_)
            setup_->setTheme(state.appearance);
    }

    void activated() {
        if (!std::exchange(launched_, true)) {
            model_->openMainWindow();
            if (wantsBar_)
                bar_->open(std::nullopt);
            return;
        }
        const bool more = window_->get_visible() && !(setup_ && setup_->visible());
        model_->reopen();
        // Where no tray shows the item, this is a way to what it would open.
        if (more && !tray_->hosted())
            panel_->open(std::nullopt);
    }

    void opened(const Gio::Application::type_vec_files& files) {
        const bool first = !std::exchange(launched_, true);
        for (const auto& file : files)
            model_->handleOpenURL(file->get_uri());
        if (first && wantsBar_)
            bar_->open(std::nullopt);
    }

    void quit() {
        if (!std::exchange(quitting_, true))
            spawn(hub_.executor, "quit", end(this));
    }

    static Task<> end(DesktopApplication* self) {
        const bool ends = co_await self->lifecycle_->shouldTerminate();
        self->quitting_ = ends;
        if (!ends)
            co_return;
        self->watching_.cancel();
        self->bar_->stop();
        self->window_->rememberSize();
        self->hub_.defaults->synchronize();
        self->screen_->forget();
        self->page_->setTroubleChanged({});
        self->application_->quit();
    }

    std::vector<std::string> arguments_;
    bool wantsBar_;
    MainLoop loop_;
    BackgroundPool pool_; // after the loop: its jobs post to the loop until they are joined
    const std::shared_ptr<SessionBus> bus_ = SessionBus::open();
    const std::shared_ptr<DesktopApps> apps_ = std::make_shared<DesktopApps>();
    LauncherBadge badge_{bus_};
    FileReveal files_{bus_};
    const std::shared_ptr<DesktopScreen> screen_ = std::make_shared<DesktopScreen>(
        DesktopScreen::Desktop{.setBadge = [this](auto count) { badge_.set(count); },
            .revealFile = [this](std::string path) { files_.reveal(path); },
            .apps = apps_,
            .quietWindows = [this] { return hub_.flags.quietWindows; },
            .trayHosted = [this] { return tray_ && tray_->hosted(); },
            .openBar =
                [this](std::optional<std::string> text) {
                    if (bar_)
                        bar_->open(text);
                }});
    LocalHub hub_;
    PageTunnel tunnel_{hub_.peers};
    const std::shared_ptr<VoiceModel> voice_ = makeDesktopVoice(hub_);
    Glib::RefPtr<Gtk::Application> application_;
    std::shared_ptr<WebPane> page_;
    std::shared_ptr<AppModel> model_;
    std::unique_ptr<AppLifecycle> lifecycle_;
    std::unique_ptr<MainWindow> window_;
    std::unique_ptr<PanelWindow> panel_;
    std::unique_ptr<AgentStripWindow> strip_;
    std::shared_ptr<OnboardingWindow> setup_;
    std::unique_ptr<DesktopBar> bar_;
    std::unique_ptr<SettingsWindow> settings_;
    std::unique_ptr<TrayIcon> tray_;
    std::unique_ptr<Menu> menu_;
    Subscription watching_;
    bool launched_ = false;
    bool quitting_ = false;
};

int runDesktop(const std::vector<std::string>& arguments) {
    ::signal(SIGPIPE, SIG_IGN);
    try {
        return DesktopApplication(arguments).run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kelvadrome: %s\n", error.what());
        return 2;
    }
}

} // namespace

} // namespace kelvadrome

/// What `main` looks up in this module. It asks for the display first; nothing has been started by then.
extern "C" __attribute__((visibility("default"))) bool kelvadromeDisplayAnswers() {
    kelvadrome::WebPane::prepareProcess();
    return gtk_init_check();
}

extern "C" __attribute__((visibility("default"))) int kelvadromeRunFrontEnd(int argc, char** argv) {
    return kelvadrome::runDesktop({argv, argv + argc});
}
