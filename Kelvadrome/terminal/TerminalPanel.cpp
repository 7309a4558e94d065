#include "Kelvadrome/terminal/TerminalPanel.h"

#include <csignal>
#include <fcntl.h>

namespace kelvadrome {

namespace {

constexpr double setupTimeout = 10;

int duplicate(int descriptor) {
    return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
}

} // namespace

TerminalPanel::TerminalPanel(Dependencies dependencies)
    : with_(std::move(dependencies)), keys_(with_.executor, duplicate(with_.screen->watched())),
      signals_(with_.executor, SIGWINCH, SIGCONT), tasks_(with_.executor) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        signals_.add(number);
}

void TerminalPanel::start() {
    subscription_ = with_.model->observe([weak = weak_from_this()] {
        if (auto self = weak.lock())
            self->paintSoon();
    });
    with_.board->onChange = [weak = weak_from_this()] {
        if (auto self = weak.lock())
            self->paintSoon();
    };
    awaitKeys();
    awaitSignal();
    paint();
}

void TerminalPanel::stop() {
    stopped_ = true;
    subscription_.cancel();
    with_.board->onChange = nullptr;
    boost::system::error_code ignored;
    keys_.close(ignored);
    signals_.cancel(ignored);
    tasks_.close();
}

void TerminalPanel::farewell(const std::string& words) {
    with_.board->setNote(words);
    paint();
}

void TerminalPanel::awaitKeys() {
    keys_.async_wait(asio::posix::stream_descriptor::wait_read,
        [weak = weak_from_this()](const boost::system::error_code& error) {
            auto self = weak.lock();
            if (!self || self->stopped_)
                return;
            self->readKeys();
            if (error || self->with_.screen->hungUp())
                return self->with_.quit(QuitWish::system);
            self->awaitKeys();
        });
}

void TerminalPanel::awaitSignal() {
    signals_.async_wait([weak = weak_from_this()](const boost::system::error_code& error, int number) {
        auto self = weak.lock();
        if (error || !self || self->stopped_)
            return;
        switch (number) {
        case SIGWINCH:
        case SIGCONT:
            self->with_.screen->resized();
            if (number == SIGCONT)
                self->with_.screen->invalidate();
            self->paintSoon();
            break;
        default:
            self->with_.quit(QuitWish::system);
            break;
        }
        self->awaitSignal();
    });
}

void TerminalPanel::readKeys() {
    for (const auto& key : with_.screen->keys()) {
        with_.board->setNote(std::nullopt);
        if (auto command = input_.press(key, with_.clock->now()))
            perform(std::move(*command));
    }
    paintSoon();
}

void TerminalPanel::perform(PanelCommand command) {
    auto& model = *with_.model;
    using Kind = PanelCommand::Kind;
    switch (command.kind) {
    case Kind::answer:
        return model.answer(std::move(*command.card), std::move(command.text));
    case Kind::acceptDefaults:
        return model.acceptDefaults(std::move(*command.card));
    case Kind::undo:
        return model.undo(std::move(*command.card));
    case Kind::snooze:
        return model.snooze(std::move(*command.card));
    case Kind::review:
        return model.open(NavSection::inbox, std::move(command.card));
    case Kind::bringEdgeToFront:
        return with_.host->activateApplication(edgeBundleId);
    case Kind::openMain:
        return model.openMain("/");
    case Kind::retry:
        return model.retry();
    case Kind::finishSetup:
        return model.openOnboarding(false);
    case Kind::openLoginItems:
        return with_.board->setNote(
            "The background service is masked. \"" + with_.allowLoginItem + "\" allows it.");
    case Kind::copyLink:
        if (const auto& link = with_.board->extras().link; link && !link->url.empty()) {
            with_.host->copyText(link->url);
        }
        return;
    case Kind::dismissLink:
        return with_.page->dismiss();
    case Kind::acknowledgeAlert:
        return with_.host->answer(true);
    case Kind::refuseAlert:
        return with_.host->answer(false);
    case Kind::quit:
        return with_.quit(QuitWish::user);
    case Kind::suspend:
        return with_.screen->suspend();
    case Kind::repaint:
        return with_.screen->invalidate();
    case Kind::bell:
        return with_.screen->bell();
    }
}

void TerminalPanel::followSetup() {
    const auto& state = with_.model->state();
    if (!state.onboardingActive || state.lastRefresh == askedAfter_)
        return;
    askedAfter_ = state.lastRefresh;
    tasks_.launch("setup", askWhetherSetUp(weak_from_this(), with_.client));
}

Task<> TerminalPanel::askWhetherSetUp(std::weak_ptr<TerminalPanel> weak, DaemonClient client) {
    auto status = co_await attempt(client.onboardingStatus(setupTimeout));
    const auto self = weak.lock();
    if (!self || !status || status->completed != true || !self->with_.model->state().onboardingActive)
        co_return;
    // The browser shows the page already: no link for it.
    self->with_.page->setQuiet(true);
    self->with_.model->onboardingFinished();
    self->with_.page->setQuiet(false);
}

void TerminalPanel::paintSoon() {
    if (paintPending_ || stopped_)
        return;
    paintPending_ = true;
    asio::post(with_.executor, [weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self)
            return;
        self->paintPending_ = false;
        if (!self->stopped_)
            self->paint();
    });
}

void TerminalPanel::paint() {
    const auto& state = with_.model->state();
    const auto& extras = with_.board->extras();
    const auto now = with_.clock->now();
    const auto content = menuPanel(state, now);
    input_.setLink(extras.link.has_value());
    input_.setAlert(extras.alert.has_value(), extras.alert && extras.alert->refuse);
    input_.update(content, state.cards, now);
    const auto picture = PanelView::draw(content, input_.focus(), extras, with_.screen->size());
    input_.drawn(picture.scroll, picture.page);
    with_.screen->draw(picture);
    if (stopped_)
        return;
    wakeIn(menuPanelChangesIn(content, state, now));
    followSetup();
}

void TerminalPanel::wakeIn(std::optional<double> wait) {
    waking_.cancel();
    waking_ = {};
    if (wait)
        waking_ = tasks_.launch("panel clock", wake(weak_from_this(), with_.clock, *wait));
}

Task<> TerminalPanel::wake(std::weak_ptr<TerminalPanel> weak, std::shared_ptr<Clock> clock, double wait) {
    co_await clock->sleep(wait);
    if (auto self = weak.lock())
        self->paintSoon();
}

} // namespace kelvadrome
