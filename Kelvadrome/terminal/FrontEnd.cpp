#include "Kelvadrome/hub/LocalHub.h"
#include "Kelvadrome/model/AppLifecycle.h"
#include "Kelvadrome/model/Notifier.h"
#include "Kelvadrome/platform/linux/core/LinkPage.h"
#include "Kelvadrome/platform/linux/process/PosixSpawn.h"
#include "Kelvadrome/terminal/TerminalHost.h"
#include "Kelvadrome/terminal/TerminalLog.h"
#include "Kelvadrome/terminal/TerminalPanel.h"
#include "KelvadromeKit/support/Log.h"

#include <boost/asio/io_context.hpp>
#include <fmt/format.h>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <malloc.h>
#include <unistd.h>

namespace kelvadrome {

namespace {

constexpr unsigned longestEnd = 20; // seconds that ending may take: an answer on its way, a child daemon
constexpr auto drainLimit = std::chrono::seconds(3);

/// Opens a URL with the program that the user set for it. The shell in between ends at once, so that nothing
/// here waits for a browser.
void openInBrowser(const EnvironmentMap& environment, const std::string& url) {
    try {
        spawnProcess({.executable = "/bin/sh",
                         .arguments = {"-c", "xdg-open \"$1\" &", "sh", url},
                         .environment = environment})
            ->reap();
    } catch (const std::system_error& error) {
        logLine(std::string("no browser could be opened: ") + error.what());
    }
}

/// Opens a login link by way of a page of our own, which is there for as long as the result is held.
std::shared_ptr<void> openByPage(
    const std::string& folder, const std::string& link, const std::function<void(std::string)>& openURL) {
    try {
        auto page = std::make_shared<LinkPage>(folder, link);
        openURL(page->url());
        return page;
    } catch (const std::system_error& error) {
        logLine(std::string("no browser could be opened: ") + error.what());
        return nullptr;
    }
}

/// Everything of one run, in the order in which it is made; it ends in the reverse one.
class TerminalApplication {
public:
    /// `noDisplay` says that the desktop was wanted, and why it isn't what shows; empty without that.
    TerminalApplication(const std::vector<std::string>& arguments, const std::string& noDisplay)
        : hub_(
              arguments, context_.get_executor(), pool_,
              [this](std::string title, std::string text, std::string button) {
                  return tellOfForeignKey(this, std::move(title), std::move(text), std::move(button));
              },
              std::make_shared<NoApps>()),
          display_(noDisplay.empty() &&
                   (hub_.environment.contains("DISPLAY") || hub_.environment.contains("WAYLAND_DISPLAY"))) {
        if (!noDisplay.empty())
            board_->setNote(noDisplay);
        makePage();
        makeModel();
        panel_ = std::make_shared<TerminalPanel>(TerminalPanel::Dependencies{.executor = hub_.executor,
            .clock = hub_.clock,
            .model = model_,
            .lookups = std::make_shared<Lookups>(hub_.executor, hub_.clock, hub_.client),
            .bar = CommandBarModel::make({.executor = hub_.executor,
                .clock = hub_.clock,
                .app = model_,
                .voice = std::make_shared<NoVoice>()}),
            .client = hub_.client,
            .screen = &screen_,
            .board = board_,
            .host = host_,
            .page = page_,
            .allowLoginItem = LocalHub::allowLoginItem(),
            .quit = [this](QuitWish wish) { quit(wish); }});
        host_->onCommandBar = [panel = std::weak_ptr(panel_)](const std::string& text) {
            if (const auto shown = panel.lock())
                shown->openBar(text);
        };
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
        std::function<void(std::string)> openURL;
        std::function<std::shared_ptr<void>(std::string)> openLink;
        if (display_) {
            openURL = [this](std::string url) {
                pool_.post([environment = hub_.environment, url = std::move(url)] {
                    openInBrowser(environment, url);
                });
            };
            openLink = [openURL, folder = LinkPage::folder(hub_.environment, hub_.env.home)](
                           std::string link) { return openByPage(folder, link, openURL); };
        }
        page_ = std::make_shared<TerminalPage>(TerminalPage::Dependencies{.executor = hub_.executor,
            .clock = hub_.clock,
            .board = board_,
            .mint = hub_.mint,
            .openLink = openLink,
            .tunnelTo = TerminalPage::tunnelTarget(hub_.environment)});
        host_ = std::make_shared<TerminalHost>(TerminalHost::Dependencies{
            .screen = &screen_, .board = board_, .page = page_, .openURL = openURL});
    }

    /// Where the desktop isn't, its keyring may be out of reach, and with it the key that is registered.
    static Task<> tellOfForeignKey(
        TerminalApplication* self, std::string title, std::string text, std::string button) {
        const auto host = self->host_;
        const auto board = self->board_;
        const bool display = self->display_;
        const auto kd = kdCommand(self->model_->state());
        auto alert = host->criticalAlert(std::move(title), std::move(text), std::move(button));
        co_await std::move(alert);
        std::string note = fmt::format(
            "{0} page-key tells which program holds the page; {0} page-key --reset forgets its key.", kd);
        if (!display) {
            note = "If kelvadrome was set up on this machine's desktop, its key is in the keyring there: log "
                   "in on the "
                   "desktop, then press r. Else " +
                   note;
        }
        board->setNote(note);
    }

    void makeModel() {
        const auto notifier =
            std::make_shared<Notifier>(hub_.executor, std::make_shared<TerminalBell>(screen_));
        auto parts = hub_.modelDependencies();
        parts.web = page_;
        parts.screen = host_;
        parts.notifier = notifier;
        model_ = AppModel::make(std::move(parts));
        lifecycle_ = std::make_unique<AppLifecycle>(model_, hub_.client,
            [this](AppLifecycle::QuitQuestion question) { return ask(this, std::move(question)); });
        notifier->onOpen = [weak = std::weak_ptr(model_)] {
            if (const auto model = weak.lock())
                model->openFirstNeedingYou();
        };
    }

    void quit(QuitWish wish) {
        if (wish == QuitWish::system) {
            mustEnd_ = true;
            host_->agreeToQuestions();
        }
        if (!std::exchange(quitting_, true))
            spawn(hub_.executor, "quit", end(this));
    }

    static Task<bool> ask(TerminalApplication* self, AppLifecycle::QuitQuestion question) {
        if (self->mustEnd_)
            co_return true;
        auto answer = self->host_->confirm(std::move(question.text), std::move(question.detail),
            std::move(question.quit), std::move(question.keepRunning));
        co_return co_await std::move(answer);
    }

    static Task<> end(TerminalApplication* self) {
        if (!self->mustEnd_) {
            const bool ends = co_await self->lifecycle_->mayTerminate();
            self->quitting_ = ends;
            if (!ends)
                co_return;
        }
        ::alarm(longestEnd);
        self->panel_->farewell("Stopping");
        self->panel_->stop();
        self->page_->close();
        co_await self->model_->stop();
        self->hub_.defaults->synchronize();
        self->ended_ = true;
    }

    asio::io_context context_{1};
    BackgroundPool pool_; // after the loop: its jobs post to the loop until they are joined
    LocalHub hub_;
    const bool display_;
    TerminalScreen screen_;
    const std::shared_ptr<PanelBoard> board_ = std::make_shared<PanelBoard>();
    std::shared_ptr<TerminalPage> page_;
    std::shared_ptr<TerminalHost> host_;
    std::shared_ptr<AppModel> model_;
    std::unique_ptr<AppLifecycle> lifecycle_;
    std::shared_ptr<TerminalPanel> panel_;
    bool quitting_ = false;
    bool mustEnd_ = false; // nobody is asked any more
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

int runPanel(const std::vector<std::string>& arguments, const std::string& noDisplay) {
    if (const auto reason = TerminalScreen::unusable())
        return fail(*reason, 2);
    if (!noDisplay
             .empty()) // what the panel shows may cover its note; this stands there when the panel has gone
        std::fprintf(stderr, "kelvadrome: %s\n", noDisplay.c_str());
    // Replies pass through many threads: with an arena of memory for each, every one would keep its largest.
    ::mallopt(M_ARENA_MAX, 1);
    ::mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    TerminalLog log(Files::join(Files::userHome(), "Library/Logs/Kelvadrome"));
    setLogSink([&log](std::string_view line) { log.append(line); });
    ::signal(SIGALRM, endNow);
    ::signal(SIGPIPE, SIG_IGN);
    std::setlocale(LC_TIME, ""); // receipts tell the time as the user writes it
    int status = 0;
    std::string words;
    try {
        if (const auto failure = TerminalApplication(arguments, noDisplay).run()) {
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

// What `main` looks up in this module.

extern "C" __attribute__((visibility("default"))) int kelvadromeRunFrontEnd(int argc, char** argv) {
    return kelvadrome::runPanel({argv, argv + argc}, {});
}

/// The same in place of the desktop: `reason` is the line that says so.
extern "C" __attribute__((visibility("default"))) int kelvadromeRunWithoutDisplay(
    int argc, char** argv, const char* reason) {
    return kelvadrome::runPanel({argv, argv + argc}, reason);
}
