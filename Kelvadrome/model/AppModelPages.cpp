#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/NativeActions.h"
#include "KelvadromeKit/attention/InboxLogic.h"
#include "KelvadromeKit/attention/RevealPolicy.h"
#include "KelvadromeKit/page/PageCall.h"
#include "KelvadromeKit/page/PercentCoding.h"
#include "KelvadromeKit/support/Files.h"
#include "KelvadromeKit/support/Text.h"

#include <boost/url/parse.hpp>
#include <boost/url/parse_query.hpp>

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr double detailTimeout = 10;

/// The value of the first item of that name in a URL's query.
std::optional<std::string> queryValue(std::string_view query, std::string_view name) {
    const auto items = boost::urls::parse_query(query);
    if (!items)
        return std::nullopt;
    const auto item = items->find(name);
    return item == items->end() || !item->has_value ? std::nullopt : percentDecoded(item->value);
}

std::optional<std::string> folderInDetail(std::string_view reply) {
    try {
        return readJSON(reply, [](const JSONValue& root) -> std::optional<std::string> {
            const auto data = root.object().find("data");
            if (!data || !data->isObject())
                return std::nullopt;
            return NativeActions::findPath(data->object());
        });
    } catch (const DecodingError&) {
        return std::nullopt;
    }
}

} // namespace

void AppModel::openMainWindow() {
    parts_.screen->openMainWindow();
    if (!parts_.flags.quietWindows)
        parts_.screen->activate();
}

void AppModel::openMain(std::string path) {
    openMainWindow();
    const auto cut = std::min(path.find('?'), path.size());
    const auto query = std::string_view(path).substr(std::min(cut + 1, path.size()));
    auto focus = queryValue(query, "card");
    auto route = path.substr(0, cut);
    if (auto words = queryValue(query, "q"); words && route == "/search")
        return parts_.web->search(std::move(*words), state_.scope);
    if (route.empty())
        route = "/";
    for (const auto section : allNavSections) {
        if (kelvadrome::path(section) != route)
            continue;
        setSection(section);
        break;
    }
    parts_.web->navigate(std::move(route), state_.scope, std::move(focus));
}

void AppModel::open(NavSection section, std::optional<Card> card) {
    setSection(section);
    parts_.screen->activate();
    auto to = path(section);
    if (card) {
        parts_.web->navigate(std::move(to), state_.scope, std::move(card->id));
    } else {
        auto call = PageCall::navigate(to, std::nullopt);
        parts_.web->callShell(
            std::move(call.expression), parts_.web->url(call.path, state_.scope, call.extra));
    }
}

void AppModel::setSection(NavSection section) {
    if (section != NavSection::inbox)
        endReview();
    set(&AppState::section, section);
}

void AppModel::review(Card card) {
    set(&AppState::reviewed, card.id);
    open(NavSection::inbox, std::move(card));
}

void AppModel::endReview() {
    set(&AppState::reviewed, std::nullopt);
}

void AppModel::openFirstNeedingYou() {
    auto cards = InboxLogic::needingYou(state_.cards);
    if (cards.empty()) {
        open(NavSection::inbox, std::nullopt);
    } else {
        openCard(std::move(cards.front()));
    }
}

/// On the page, or in the native list where the user wants that.
void AppModel::openCard(Card card) {
    if (card.risk == "high" && !state_.nativeInbox)
        return review(std::move(card));
    set(&AppState::cardToShow, card.id);
    open(NavSection::inbox, std::move(card));
}

void AppModel::reopen() {
    if (!state_.onboardingActive) {
        openMainWindow();
    } else if (parts_.screen->raiseOnboarding()) {
        parts_.screen->activate();
    } else if (parts_.screen->hasMenuBarItem()) {
        openOnboarding(true);
    } else {
        openMainWindow();
    }
}

void AppModel::handleOpenURL(std::string url) {
    const auto parsed = boost::urls::parse_uri(url);
    if (!parsed || Text::lowercasedASCII(parsed->scheme()) != "kelvadrome")
        return;
    if (Text::lowercasedASCII(parsed->host()) == "open")
        reopen();
}

void AppModel::openOnboarding(bool firstRun) {
    set(&AppState::onboardingActive, true);
    launch("setup window", presentOnboarding(firstRun));
}

Task<> AppModel::presentOnboarding(bool firstRun) {
    const auto self = shared_from_this();
    auto credentials = co_await attempt(parts_.session->ensure());
    if (tasks_.closed())
        co_return;
    if (!credentials) {
        set(&AppState::panelError, "kelvadrome could not open its page session.");
        if (!parts_.screen->hasMenuBarItem())
            openMainWindow();
        co_return;
    }
    parts_.screen->presentOnboarding(
        std::move(*credentials), firstRun, state_.appearance, parts_.flags.quietWindows);
}

void AppModel::onboardingPutOff() {
    if (!state_.onboardingActive || parts_.screen->hasMenuBarItem())
        return;
    openMainWindow();
    setNotice("Finish Setup stands in this window's menu until you are done.");
}

void AppModel::onboardingFinished() {
    set(&AppState::onboardingActive, false);
    parts_.screen->closeOnboarding();
    openMain("/");
}

void AppModel::applyAppearance() {
    const auto& wanted = state_.appearance;
    parts_.screen->setAppearance(wanted == "dark"    ? Appearance::dark
                                 : wanted == "light" ? Appearance::light
                                                     : Appearance::system);
}

void AppModel::setAppearance(std::string appearance) {
    parts_.defaults->set("KDAppearance", appearance);
    parts_.web->theme = appearance;
    parts_.web->runScript(setThemeScript(appearance));
    set(&AppState::appearance, std::move(appearance));
    applyAppearance();
}

void AppModel::followPageRoute(std::string route) {
    const auto cut = std::string_view(route).substr(0, route.find('?'));
    const auto pieces = Text::split(cut, '/', Text::EmptyPieces::drop);
    const auto word = pieces.empty() ? std::string_view() : pieces.front();
    if (const auto section = navSectionFromRawValue(word)) {
        setSection(*section);
    } else if (word.empty()) {
        setSection(NavSection::inbox);
    }
    // A page that has just loaded gets the shell's scope back.
    if (state_.scope != ScopeFilter::all)
        launch("scope", scopeAfter(weak_from_this(), 0.25));
}

Task<> AppModel::scopeAfter(std::weak_ptr<AppModel> weak, double pause) {
    auto self = weak.lock();
    if (!self)
        co_return;
    co_await self->parts_.clock->sleep(pause);
    self->parts_.web->setScope(self->state_.scope, path(self->state_.section));
}

void AppModel::setScope(ScopeFilter scope) {
    set(&AppState::scope, scope);
    parts_.defaults->set("KDScopeFilter", std::string(rawValue(scope)));
    parts_.web->setScope(scope, path(state_.section));
}

void AppModel::setSearchText(std::string text) {
    set(&AppState::searchText, std::move(text));
}

void AppModel::search() {
    parts_.web->search(state_.searchText, state_.scope);
}

void AppModel::setInspectorShown(bool shown) {
    set(&AppState::inspectorShown, shown);
}

void AppModel::setNotice(std::optional<std::string> notice) {
    set(&AppState::notice, std::move(notice));
}

void AppModel::setInterfaceMode(InterfaceMode mode, InterfaceModeSource source) {
    auto effects = InterfaceModeLogic::apply(state_.interfaceMode, mode, source);
    set(&AppState::interfaceMode, effects.mode);
    parts_.web->mode = effects.mode;
    if (effects.persist)
        saveInterfaceMode(effects.mode, *parts_.defaults);
    if (effects.hideInspector)
        set(&AppState::inspectorShown, false);
    if (effects.pageScript)
        parts_.web->runScript(std::move(*effects.pageScript));
}

void AppModel::setAgentStrip(bool on) {
    set(&AppState::agentStripShown, on);
    parts_.defaults->set("KDAgentStrip", on);
    showAgentStrip();
}

void AppModel::setNativeInbox(bool on) {
    parts_.defaults->set("KDNativeInbox", on);
    set(&AppState::nativeInbox, on);
    endReview();
    if (on && state_.section != NavSection::inbox)
        open(NavSection::inbox, std::nullopt); // elsewhere nothing would show
}

void AppModel::showAgentStrip() {
    parts_.screen->updateAgentStrip(state_.agentStripShown
                                        ? std::optional(AgentStrip(agentRows(state_), needsYouCount(state_)))
                                        : std::nullopt);
}

Task<> AppModel::revealTopicFolder(std::string topic) {
    const auto self = shared_from_this();
    auto body = boost::json::serialize(boost::json::object{{"topic", topic}});
    auto call = parts_.client.transport.send("POST", "/v1/topic/detail", std::move(body), {}, detailTimeout);
    auto reply = co_await attempt(std::move(call));
    if (tasks_.closed())
        co_return;
    const auto folder = reply ? folderInDetail(reply->body) : std::nullopt;
    if (folder) {
        reveal(*folder);
    } else {
        set(&AppState::panelError, "This topic has no folder on this Mac yet.");
    }
}

void AppModel::reveal(std::string path) {
    const auto allowed = RevealPolicy::allowed(path);
    if (allowed && Files::exists(*allowed))
        parts_.screen->revealFile(*allowed);
}

Task<> AppModel::allowTerminal(TerminalApp app) {
    const auto self = shared_from_this();
    const auto result = co_await parts_.automation->request(app);
    using Kind = AutomationPrompter::RequestResult::Kind;
    if (result.kind == Kind::status && result.status == AutomationStatus::denied) {
        parts_.screen->openURL("x-apple.systempreferences:com.apple.preference.security?Privacy_Automation");
    } else if (result.kind == Kind::screenLocked) {
        set(&AppState::notice, "Unlock the Mac first: macOS shows its question only on an unlocked screen.");
    }
    co_await sendTerminalAccess();
}

Task<> AppModel::sendTerminalAccess() {
    const auto self = shared_from_this();
    boost::json::object access;
    for (const auto app : allTerminalApps) {
        const auto status = co_await parts_.automation->status(app);
        access.emplace(rawValue(app), rawValue(status));
    }
    parts_.web->runScript(
        "window.kelvadrome && window.kelvadrome.terminalAccess && window.kelvadrome.terminalAccess(" +
        boost::json::serialize(access) + ")");
}

Task<> AppModel::voiceFromPage(std::string action) {
    const auto self = shared_from_this();
    if (parts_.voice)
        co_await parts_.voice->pageAction(std::move(action));
}

Task<TalkProposal> AppModel::proposeTalk(std::string text, std::vector<std::string> shots) {
    const auto self = shared_from_this();
    boost::json::object body{{"text", text}, {"surface", "panel"}};
    if (!shots.empty())
        body.emplace("shots", boost::json::array(shots.begin(), shots.end()));
    auto call = parts_.session->post<TalkProposal>("/v1/talk/propose", std::move(body));
    co_return co_await std::move(call);
}

} // namespace kelvadrome
