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
    const auto renew = [weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self)
            return;
        self->contentIsOld_ = true;
        self->paintSoon();
    };
    watchingModel_ = with_.model->observe(renew);
    watchingLookups_ = with_.lookups->observe(renew);
    watchingBar_ = with_.bar->observe(renew);
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
    watchingModel_.cancel();
    watchingLookups_.cancel();
    watchingBar_.cancel();
    with_.lookups->close();
    with_.bar->stop();
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
        const bool inBar = input_.focus().inBar();
        if (auto command = input_.press(key, with_.clock->now()))
            perform(std::move(*command));
        if (input_.focus().inBar())
            followBar();
        else if (inBar)
            with_.bar->reset();
    }
    paintSoon();
}

void TerminalPanel::followBar() {
    contentIsOld_ = true;
    renewContent();
    input_.update(content_, with_.screen->size(), with_.clock->now());
}

void TerminalPanel::openBar(const std::string& text) {
    if (auto command = input_.openBar(text))
        perform(std::move(*command));
    paintSoon();
}

void TerminalPanel::perform(PanelCommand command) {
    auto& model = *with_.model;
    using Kind = PanelCommand::Kind;
    switch (command.kind) {
    case Kind::showTerminal:
        return model.showTerminal(command.agent);
    case Kind::readReceipts:
        return with_.lookups->readReceipts(std::move(command.text));
    case Kind::typeInBar:
        return with_.bar->setText(command.text);
    case Kind::barUp:
    case Kind::barDown:
        return with_.bar->move(command.kind == Kind::barUp ? -1 : 1);
    case Kind::ask:
        if (!with_.bar->state().proposal) // it may have come since the last picture
            with_.bar->submit();
        return;
    case Kind::search:
        return with_.lookups->search(std::move(command.text));
    case Kind::readCard:
        return with_.lookups->readCard(std::move(command.text));
    case Kind::closeCard:
        return with_.lookups->closeCard();
    case Kind::openMain:
        return model.openMain("/");
    case Kind::openPath:
        return model.openMain(std::move(command.text));
    case Kind::retry:
        return model.retry();
    case Kind::finishSetup:
        return model.openOnboarding(false);
    case Kind::openLoginItems:
        return with_.board->setNote(
            "The background service is masked. \"" + with_.allowLoginItem + "\" allows it.");
    case Kind::copyLink:
    case Kind::copyTunnel:
        if (const auto& link = with_.board->extras().link) {
            const auto& text = command.kind == Kind::copyLink ? link->url : link->tunnel;
            if (!text.empty())
                with_.host->copyText(text);
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
    default:
        return performOnCard(std::move(command));
    }
}

void TerminalPanel::performOnCard(PanelCommand command) {
    auto& model = *with_.model;
    auto& card = *command.card;
    using Kind = PanelCommand::Kind;
    switch (command.kind) {
    case Kind::answer:
        return model.answer(std::move(card), std::move(command.text));
    case Kind::acceptDefaults:
        return model.acceptDefaults(std::move(card));
    case Kind::undo:
        return model.undo(std::move(card));
    case Kind::snooze:
        return model.snooze(std::move(card));
    case Kind::wake:
        return model.wake(card);
    case Kind::dismiss:
        return model.dismiss(std::move(card));
    case Kind::review:
        return model.open(NavSection::inbox, std::move(card));
    case Kind::bringEdgeToFront:
        return with_.host->activateApplication(edgeBundleId);
    default:
        return; // not of a card
    }
}

void TerminalPanel::followReceipts() {
    const auto& focus = input_.focus();
    const auto& refreshed = with_.model->state().lastRefresh;
    if (focus.section != PanelSection::receipts || refreshed == receiptsAfter_)
        return;
    receiptsAfter_ = refreshed;
    with_.lookups->readReceipts(focus.receiptFilter);
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

void TerminalPanel::renewContent() {
    auto wish = input_.wish();
    if (!std::exchange(contentIsOld_, false) && wish == contentFor_)
        return;
    contentFor_ = std::move(wish);
    content_ = std::make_shared<PanelContent>(panelContent(with_.model->state(), with_.lookups->results(),
        with_.bar->state(), contentFor_, with_.clock->now(), content_->inbox));
}

void TerminalPanel::paint() {
    const auto& state = with_.model->state();
    const auto& extras = with_.board->extras();
    const auto now = with_.clock->now();
    const auto size = with_.screen->size();
    renewContent();
    input_.setLink(extras.link.has_value());
    input_.setAlert(extras.alert.has_value(), extras.alert && extras.alert->refuse);
    input_.update(content_, size, now);
    const auto picture = PanelView::draw(*content_, input_.focus(), extras, size, now);
    input_.drawn(picture.listScroll, picture.scroll, picture.page);
    with_.screen->draw(picture);
    if (stopped_)
        return;
    wakeIn(contentChangesIn(*content_, state, now));
    followSetup();
    followReceipts();
}

void TerminalPanel::wakeIn(std::optional<double> wait) {
    waking_.cancel();
    waking_ = {};
    if (wait)
        waking_ = tasks_.launch("panel clock", wake(weak_from_this(), with_.clock, *wait));
}

Task<> TerminalPanel::wake(std::weak_ptr<TerminalPanel> weak, std::shared_ptr<Clock> clock, double wait) {
    co_await clock->sleep(wait);
    const auto self = weak.lock();
    if (!self)
        co_return;
    self->contentIsOld_ = true;
    self->paintSoon();
}

} // namespace kelvadrome
