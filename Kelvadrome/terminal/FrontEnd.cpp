#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/DeliverService.h"
#include "Kelvadrome/model/Notifier.h"
#include "Kelvadrome/platform/linux/CurlHTTP.h"
#include "Kelvadrome/platform/linux/FileDefaults.h"
#include "Kelvadrome/platform/linux/LaunchctlEffects.h"
#include "Kelvadrome/platform/linux/LogindLock.h"
#include "Kelvadrome/platform/linux/PosixChild.h"
#include "Kelvadrome/platform/linux/PosixSpawn.h"
#include "Kelvadrome/platform/linux/Resources.h"
#include "Kelvadrome/platform/linux/SecretServiceStore.h"
#include "Kelvadrome/terminal/TerminalHost.h"
#include "Kelvadrome/terminal/TerminalLog.h"
#include "Kelvadrome/terminal/TerminalPanel.h"
#include "KelvadromeKit/delivery/ProcessRunner.h"
#include "KelvadromeKit/delivery/SystemHostAccess.h"
#include "KelvadromeKit/page/MintLogin.h"
#include "KelvadromeKit/page/PageKey.h"
#include "KelvadromeKit/support/Log.h"

#include <boost/asio/io_context.hpp>

#include <csignal>
#include <cstdio>
#include <malloc.h>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr unsigned longestEnd = 12; // seconds that ending may take, a child daemon's among them
constexpr auto drainLimit = std::chrono::seconds(3);

/// Opens a URL with the program that the user set for it. The shell in between ends at once, so that nothing
/// here waits for a browser.
void openInBrowser(const EnvironmentMap& environment, const std::string& url) {
    try {
        const auto opener = spawnProcess({.executable = "/bin/sh",
            .arguments = {"-c", "xdg-open \"$1\" &", "sh", url},
            .environment = environment});
        reapStatus(opener.pid);
    } catch (const std::system_error& error) {
        logLine(std::string("no browser could be opened: ") + error.what());
    }
}

/// The login item, where this run may manage it: with the standard home and the daemon's files in place.
std::optional<BackgroundService> backgroundService(
    const DaemonEnvironment& env, const EnvironmentMap& environment) {
    if (env.home != DaemonEnvironment::defaultHome() || !env.resources)
        return std::nullopt;
    const auto systemctl = systemSystemctl();
    return BackgroundService{.service = std::make_shared<SystemdAgentService>(systemctl, executablePath(),
                                 SystemdAgentService::standardFolder(environment)),
        .legacy = LegacyLaunchAgent::inHome(Files::userHome()),
        .storageRoot = env.home,
        .effects = BackgroundService::Effects::live(linuxLaunchctl(systemProgram(), systemctl)),
        .build = KELVADROME_VERSION};
}

/// Everything of one run, in the order in which it is made; it ends in the reverse one.
class TerminalApplication {
public:
    explicit TerminalApplication(const std::vector<std::string>& arguments)
        : environment_(Files::processEnvironment()),
          defaults_(std::make_shared<FileDefaults>(FileDefaults::standardPath(environment_), arguments)),
          flags_(DebugFlags::current(*defaults_)),
          env_(DaemonEnvironment::resolveHome(flags_.home, environment_), flags_.port,
              resourceDirectory(executablePath())),
          client_(env_.socketPath(), pool_) {
        makePage();
        makeModel();
        panel_ = std::make_shared<TerminalPanel>(TerminalPanel::Dependencies{.executor = executor_,
            .clock = clock_,
            .model = model_,
            .client = client_,
            .screen = &screen_,
            .board = board_,
            .host = host_,
            .page = page_,
            .quit = [this] { quit(); }});
    }

    /// Runs until the user or a signal ends it. What went wrong in the end, for the line after the panel.
    std::optional<std::string> run() {
        panel_->start();
        model_->start();
        while (!ended_ && context_.run_one() > 0) {
        }
        // What was cancelled ends in its own time; what doesn't is left behind.
        context_.run_for(drainLimit);
        const auto& connection = model_->state().connection;
        if (connection.state != Connection::State::failed)
            return std::nullopt;
        return connection.message;
    }

private:
    void makePage() {
        const bool display = environment_.contains("DISPLAY") || environment_.contains("WAYLAND_DISPLAY");
        std::function<void(std::string)> openURL;
        if (display) {
            openURL = [this](std::string url) {
                pool_.post(
                    [environment = environment_, url = std::move(url)] { openInBrowser(environment, url); });
            };
        }
        auto store = std::make_shared<MachineSecretStore>(
            std::string(PageKey::service), PageKey::account(env_.home), std::string(PageKey::label));
        const auto mint = mintLogin(client_, store, env_.home, pool_, executor_,
            [this, display](std::string title, std::string text, std::string button) {
                return tellOfForeignKey(
                    host_, board_, display, std::move(title), std::move(text), std::move(button));
            });
        session_ = std::make_shared<PageSession>(executor_, std::make_shared<CurlHTTP>(pool_), mint);
        page_ = std::make_shared<TerminalPage>(TerminalPage::Dependencies{.executor = executor_,
            .clock = clock_,
            .board = board_,
            .mint = mint,
            .openURL = openURL,
            .remote = environment_.contains("SSH_CONNECTION")});
        host_ = std::make_shared<TerminalHost>(TerminalHost::Dependencies{
            .screen = &screen_, .board = board_, .page = page_, .openURL = openURL});
    }

    /// Where the desktop isn't, its keyring may be out of reach, and with it the key that is registered.
    static Task<> tellOfForeignKey(std::shared_ptr<TerminalHost> host, std::shared_ptr<PanelBoard> board,
        bool display, std::string title, std::string text, std::string button) {
        auto alert = host->criticalAlert(std::move(title), std::move(text), std::move(button));
        co_await std::move(alert);
        if (!display) {
            board->setNote("If kelvadrome was set up on this machine's desktop, its key is in the keyring "
                           "there: log in on the desktop, then press r.");
        }
    }

    void makeModel() {
        const SystemHostAccess access(
            {.check = {}, .request = {}, .screenLocked = [this] { return lock_.screenLocked(); }});
        const auto automation = std::make_shared<AutomationPrompter>(
            executor_, access.automation(), std::make_shared<DefaultsFlags>(defaults_));
        const auto home = Files::userHome();
        deliver_ = std::make_shared<DeliverService>(DeliverService::Dependencies{.executor = executor_,
            .clock = clock_,
            .session = session_,
            .live = LiveExecutor{.runner = std::make_shared<ProcessRunner>(pool_, environment_),
                .bins = LiveExecutor::findBins(home),
                .clock = clock_,
                .home = home},
            .prompter = automation,
            .probe = access.probe(),
            .apps = std::make_shared<NoApps>()});
        const auto supervisor = std::make_shared<DaemonSupervisor>(env_, client_,
            DaemonSupervisor::World{executor_, &pool_, clock_, std::make_shared<PosixChildLauncher>()},
            environment_);
        const auto notifier = std::make_shared<Notifier>(executor_, std::make_shared<TerminalBell>(screen_));
        model_ = AppModel::make({.executor = executor_,
            .pool = &pool_,
            .clock = clock_,
            .defaults = defaults_,
            .flags = flags_,
            .env = env_,
            .supervisor = supervisor,
            .client = client_,
            .session = session_,
            .background = backgroundService(env_, environment_),
            .web = page_,
            .screen = host_,
            .notifier = notifier,
            .automation = automation,
            .relay = nullptr,
            .voice = nullptr,
            .startDelivery = [deliver = deliver_] { deliver->start(); }});
        notifier->onOpen = [weak = std::weak_ptr(model_)] {
            if (const auto model = weak.lock())
                model->openFirstNeedingYou();
        };
    }

    void quit() {
        if (std::exchange(quitting_, true))
            return;
        ::alarm(longestEnd);
        spawn(executor_, "quit", end(this));
    }

    static Task<> end(TerminalApplication* self) {
        self->panel_->farewell("Stopping");
        self->panel_->stop();
        self->page_->close();
        self->deliver_->stop();
        co_await self->model_->stop();
        self->defaults_->synchronize();
        self->ended_ = true;
    }

    asio::io_context context_{1};
    const Executor executor_ = context_.get_executor();
    BackgroundPool pool_; // after the loop: its jobs post to the loop until they are joined
    const std::shared_ptr<SystemClock> clock_ = std::make_shared<SystemClock>();
    const LogindLock lock_;
    const EnvironmentMap environment_;
    const std::shared_ptr<FileDefaults> defaults_;
    const DebugFlags flags_;
    const DaemonEnvironment env_;
    const DaemonClient client_;
    TerminalScreen screen_;
    const std::shared_ptr<PanelBoard> board_ = std::make_shared<PanelBoard>();
    std::shared_ptr<PageSession> session_;
    std::shared_ptr<TerminalPage> page_;
    std::shared_ptr<TerminalHost> host_;
    std::shared_ptr<DeliverService> deliver_;
    std::shared_ptr<AppModel> model_;
    std::shared_ptr<TerminalPanel> panel_;
    bool quitting_ = false;
    bool ended_ = false;
};

int fail(const std::string& words, int status) {
    std::fprintf(stderr, "kelvadrome: %s\n", words.c_str());
    return status;
}

/// The end took too long.
extern "C" void endNow(int) {
    TerminalScreen::giveBackAtOnce();
    ::_exit(1);
}

int runPanel(const std::vector<std::string>& arguments) {
    if (const auto reason = TerminalScreen::unusable())
        return fail(*reason, 2);
    // Replies pass through many threads: with an arena of memory for each, every one would keep its largest.
    ::mallopt(M_ARENA_MAX, 1);
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    TerminalLog log(Files::join(Files::userHome(), "Library/Logs/Kelvadrome"));
    setLogSink([&log](std::string_view line) { log.append(line); });
    ::signal(SIGALRM, endNow);
    ::signal(SIGPIPE, SIG_IGN);
    int status = 0;
    std::string words;
    try {
        if (const auto failure = TerminalApplication(arguments).run()) {
            words = *failure;
            status = 1;
        }
    } catch (const std::exception& error) {
        words = error.what();
        status = 2;
    }
    ::alarm(0);
    setLogSink({});
    if (status == 0)
        return 0;
    for (const auto& line : log.lastLines())
        std::fprintf(stderr, "%s\n", line.c_str());
    return fail(words + (log.lastLines().empty() ? "" : "\nThe log is " + log.path()), status);
}

} // namespace

} // namespace kelvadrome

/// What `main` looks up in this module.
extern "C" __attribute__((visibility("default"))) int kelvadromeRunFrontEnd(int argc, char** argv) {
    return kelvadrome::runPanel({argv, argv + argc});
}
