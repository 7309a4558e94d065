#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/CommandBarModel.h"
#include "Kelvadrome/model/Lookups.h"
#include "Kelvadrome/terminal/TerminalHost.h"
#include "Kelvadrome/terminal/panel/PanelInput.h"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/signal_set.hpp>

#include <functional>
#include <memory>

namespace kelvadrome {

/// Who wants the program to end: the user can be asked whether to wait for an install, a signal or a terminal
/// that is gone can't.
enum class QuitWish { user, system };

/// The panel on the screen: draws what the model holds, and carries out what the keys ask. It sleeps until a
/// key, a signal, a change in the model or the next change that time brings. Main executor; held by
/// shared_ptr.
class TerminalPanel : public std::enable_shared_from_this<TerminalPanel> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::shared_ptr<AppModel> model;
        std::shared_ptr<Lookups> lookups;
        std::shared_ptr<CommandBarModel> bar;
        DaemonClient client;
        TerminalScreen* screen = nullptr; // outlives the panel
        std::shared_ptr<PanelBoard> board;
        std::shared_ptr<TerminalHost> host;
        std::shared_ptr<TerminalPage> page;
        std::string allowLoginItem;         // the command that lifts a mask from the background service
        std::function<void(QuitWish)> quit; // may come again
    };

    explicit TerminalPanel(Dependencies dependencies);

    void start();
    /// No keys, signals and pictures from then on, but those of `farewell`.
    void stop();
    /// Opens the command bar with these words.
    void openBar(const std::string& text);
    /// Shows a last line while the program ends.
    void farewell(const std::string& words);

private:
    void awaitKeys();
    void awaitSignal();
    void readKeys();
    void perform(PanelCommand command);
    void performOnCard(PanelCommand command);
    /// The next key is to find the bar as the last one left it.
    void followBar();
    /// Receipts that show are read again after each refresh.
    void followReceipts();
    /// The content of the model as it is now, made anew only when something in it may have changed.
    void renewContent();
    /// Setup happens in a browser, which can't tell us: the daemon is asked, once after each refresh.
    void followSetup();
    static Task<> askWhetherSetUp(std::weak_ptr<TerminalPanel> weak, DaemonClient client);
    /// Draws in the executor's next turn, however often it is asked for in this one.
    void paintSoon();
    void paint();
    void wakeIn(std::optional<double> wait);
    static Task<> wake(std::weak_ptr<TerminalPanel> weak, std::shared_ptr<Clock> clock, double wait);

    Dependencies with_;
    PanelInput input_;
    std::shared_ptr<const PanelContent> content_ = std::make_shared<PanelContent>();
    PanelWish contentFor_; // the wish that the content was made for
    bool contentIsOld_ = true;
    Subscription watchingModel_;
    Subscription watchingLookups_;
    Subscription watchingBar_;
    asio::posix::stream_descriptor keys_;
    asio::signal_set signals_;
    TaskBag tasks_;
    TaskHandle waking_;
    std::optional<WallTime> askedAfter_;    // the refresh after which the daemon was asked about setup
    std::optional<WallTime> receiptsAfter_; // and the one after which receipts were read
    bool paintPending_ = false;
    bool stopped_ = false;
};

} // namespace kelvadrome
