#include "Kelvadrome/gtk/web/WebPane.h"

#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "Kelvadrome/gtk/web/PageView.h"
#include "KelvadromeKit/page/NavigationPolicy.h"
#include "KelvadromeKit/support/Log.h"

#include <fmt/format.h>

#include <algorithm>

namespace kelvadrome {

namespace {

constexpr const char* dmabufSwitch = "WEBKIT_DISABLE_DMABUF_RENDERER";
constexpr const char* frameText = "about:srcdoc"; // the address of a frame whose document is an attribute

/// Looks at the port, then puts the cookie in its place.
Task<PageEvent::Prepared> admitAndPlace(Task<std::optional<std::string>> admission, Task<bool> placing) {
    auto refusal = co_await std::move(admission);
    if (refusal)
        co_return PageEvent::Prepared{.refusal = std::move(refusal), .cookiePlaced = false};
    const bool placed = co_await std::move(placing);
    co_return PageEvent::Prepared{.refusal = {}, .cookiePlaced = placed};
}

Task<std::optional<std::string>> admitAll() {
    co_return std::nullopt;
}

PageEvent::LoadFailed describe(const char* url, const GError& error) {
    using enum PageEvent::LoadFailed::Kind;
    const auto kind = g_error_matches(&error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED)
                          ? cancelled
                      : g_error_matches(&error, WEBKIT_POLICY_ERROR,
                            WEBKIT_POLICY_ERROR_FRAME_LOAD_INTERRUPTED_BY_POLICY_CHANGE)
                          ? notAllowed
                          : broken;
    return {.kind = kind, .url = url, .message = error.message};
}

} // namespace

void WebPane::prepareProcess() {
    if (!g_getenv(dmabufSwitch) && !PageView::hasGPU())
        g_setenv(dmabufSwitch, "1", TRUE);
}

std::shared_ptr<WebPane> WebPane::make(Dependencies dependencies) {
    return std::shared_ptr<WebPane>(new WebPane(std::move(dependencies)));
}

WebPane::WebPane(Dependencies dependencies)
    : with_(std::move(dependencies)), tasks_(with_.executor), view_(PageView::make(with_.route.proxy)),
      bridge_(webkit_web_view_get_user_content_manager(view_.get()),
          [this](const std::string& url, const std::string& json) { receive(url, json); }),
      stack_(*Glib::wrap(GTK_WIDGET(view_.get())), [this] { tell(PageEvent::TryAgainPressed{}); }) {
    connectSignals();
    followColours();
}

WebPane::~WebPane() {
    tasks_.close();
    g_signal_handlers_disconnect_by_data(view_.get(), this);
    g_signal_handlers_disconnect_by_data(adw_style_manager_get_default(), this);
    forgetDocument();
}

// The page's loading

void WebPane::load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) {
    base = credentials.base;
    load(std::move(credentials), *url(path(section), scope));
}

void WebPane::load(PageSession::Credentials credentials, std::string url) {
    base = credentials.base;
    cookieValue = std::move(credentials.cookieValue);
    setCookieHeader_ = std::move(credentials.setCookieHeader);
    port_ = credentials.port;
    stands_ = false;
    tell(PageEvent::SessionBegan{.base = std::move(credentials.base), .url = std::move(url)});
}

void WebPane::reload() {
    tell(PageEvent::ReloadWanted{});
}

void WebPane::tell(const PageLoad::Event& event, double earliest) {
    const auto self = shared_from_this(); // what is done may close the window
    const auto actions = load_.handle(event, std::max(with_.clock->uptime(), earliest));
    wakeWhenDue();
    for (const auto& action : actions)
        std::visit([this](const auto& one) { carryOut(one); }, action);
}

/// A time that has moved on is not slept for anew: the wake finds that nothing is due yet.
void WebPane::wakeWhenDue() {
    const auto due = load_.wakeAt();
    if (due && wakesAt_ && *wakesAt_ <= *due)
        return;
    waking_.cancel();
    wakesAt_ = due;
    if (due)
        waking_ = tasks_.launch("page limit", wake(weak_from_this(), *due));
}

Task<> WebPane::wake(std::weak_ptr<WebPane> weak, double at) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto sleep = self->with_.clock->sleep(at - self->with_.clock->uptime());
    self.reset();
    co_await std::move(sleep);
    const bool replaced = co_await taskCancelled();
    self = weak.lock();
    if (!self || replaced)
        co_return;
    self->waking_ = {};
    self->wakesAt_.reset();
    const bool answers = webkit_web_view_get_is_web_process_responsive(self->view_.get());
    self->tell(PageEvent::TimeCame{.processAnswers = answers}, at); // the sleep may be a rounding too short
}

void WebPane::carryOut(const PageAction::Prepare&) {
    const auto& admit = with_.route.admit;
    auto preparing = admitAndPlace(admit ? admit(port_) : admitAll(),
        PageView::placeCookie(view_, with_.clock, setCookieHeader_, *base));
    preparing_.cancel();
    preparing_ = tasks_.launch("page load", prepare(weak_from_this(), std::move(preparing)));
}

Task<> WebPane::prepare(std::weak_ptr<WebPane> weak, Task<PageEvent::Prepared> preparing) {
    auto prepared = co_await std::move(preparing);
    const bool replaced = co_await taskCancelled();
    if (const auto self = weak.lock(); self && !replaced)
        self->tell(prepared);
}

void WebPane::carryOut(const PageAction::Request& action) {
    forgetDocument();
    webkit_web_view_load_uri(view_.get(), action.url.c_str());
}

void WebPane::carryOut(const PageAction::Reload&) {
    forgetDocument();
    webkit_web_view_reload(view_.get());
}

void WebPane::carryOut(const PageAction::StopLoading&) {
    webkit_web_view_stop_loading(view_.get());
}

void WebPane::carryOut(const PageAction::EndProcess&) {
    webkit_web_view_terminate_web_process(view_.get());
}

void WebPane::carryOut(const PageAction::ShowPage&) {
    stack_.showPage();
}

void WebPane::carryOut(const PageAction::ShowTrouble& action) {
    stack_.showTrouble(action.title, action.words);
}

void WebPane::carryOut(const PageAction::PageLoaded& action) {
    tellTheme();
    tellContrast();
    if (action.first && onFirstLoad)
        onFirstLoad();
}

// Calls into the page

void WebPane::callPage(const PageCall& call, ScopeFilter scope) {
    callShell(call.expression, url(call.path, scope, call.extra));
}

void WebPane::navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) {
    // So that the keys act on the card; not while the window shows something else in the page's place.
    if (auto* const view = GTK_WIDGET(view_.get());
        focus && !load_.inTrouble() && gtk_widget_get_mapped(view))
        gtk_widget_grab_focus(view);
    callPage(PageCall::navigate(path, focus), scope);
}

void WebPane::search(std::string query, ScopeFilter scope) {
    callPage(PageCall::search(query), scope);
}

void WebPane::setScope(ScopeFilter scope, std::string path) {
    callPage(PageCall::setScope(scope, path), scope);
}

void WebPane::callShell(std::string expression, std::optional<std::string> fallback) {
    if (load_.loaded()) {
        auto script = PageCall{std::move(expression), {}, {}}.script();
        tasks_.launch("page call", callOrLoad(weak_from_this(), std::move(script), std::move(fallback)));
    } else if (fallback) {
        tell(PageEvent::AddressWanted{std::move(*fallback)});
    }
}

Task<> WebPane::callOrLoad(
    std::weak_ptr<WebPane> weak, std::string script, std::optional<std::string> fallback) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto call = self->evaluate(std::move(script));
    self.reset();
    const bool done = co_await std::move(call);
    self = weak.lock();
    if (!done && fallback && self)
        self->tell(PageEvent::AddressWanted{std::move(*fallback)});
}

void WebPane::runScript(std::string script) {
    if (!load_.hasDocument())
        return;
    webkit_web_view_evaluate_javascript(view_.get(), script.c_str(), static_cast<gssize>(script.size()),
        nullptr, nullptr, nullptr, nullptr, nullptr);
}

Task<bool> WebPane::evaluate(std::string script) {
    return PageView::evaluate(view_, with_.clock, std::move(script));
}

void WebPane::tellTheme() {
    runScript(setThemeScript(theme));
}

/// WebKit doesn't tell a page that the desktop wants more contrast.
void WebPane::tellContrast() {
    const bool high = adw_style_manager_get_high_contrast(adw_style_manager_get_default());
    runScript(std::string("document.documentElement.dataset.contrast = ") + (high ? "'more'" : "''"));
}

// What WebKit and the desktop tell

void WebPane::connectSignals() {
    auto* view = view_.get();
    g_signal_connect(view, "load-changed",
        G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, WebPane* self) { self->loadChanged(event); }),
        this);
    g_signal_connect(view, "load-failed",
        G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent, const char* url, GError* error, WebPane* self) {
            self->tell(describe(url, *error));
            return TRUE; // the words are ours, not WebKit's
        }),
        this);
    g_signal_connect(view, "web-process-terminated",
        G_CALLBACK(+[](WebKitWebView* view, WebKitWebProcessTerminationReason reason, WebPane* self) {
            logLine(fmt::format("page: the web process ended ({})", static_cast<int>(reason)));
            const auto* shown = webkit_web_view_get_uri(view);
            self->tell(
                PageEvent::ProcessEnded{.outOfMemory = reason == WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT,
                    .shown = shown ? shown : ""});
        }),
        this);
    g_signal_connect(view, "decide-policy",
        G_CALLBACK(+[](WebKitWebView*, WebKitPolicyDecision* decision, WebKitPolicyDecisionType type,
                        WebPane* self) -> gboolean { return self->decide(decision, type); }),
        this);
    g_signal_connect(view, "notify::estimated-load-progress",
        G_CALLBACK(+[](GObject*, GParamSpec*, WebPane* self) { self->tell(PageEvent::LoadProgressed{}); }),
        this);
}

void WebPane::loadChanged(WebKitLoadEvent event) {
    switch (event) {
    case WEBKIT_LOAD_STARTED:
        forgetDocument(); // the end of the one before may still be told
        tell(PageEvent::LoadStarted{});
        break;
    case WEBKIT_LOAD_COMMITTED:
        watchDocument();
        tell(PageEvent::DocumentShown{});
        break;
    case WEBKIT_LOAD_FINISHED:
        tell(PageEvent::LoadFinished{});
        break;
    case WEBKIT_LOAD_REDIRECTED:
        break;
    }
}

/// The document's end is told apart from the load's: an image that never comes doesn't make the page a
/// failure.
void WebPane::watchDocument() {
    forgetDocument();
    document_ = share(webkit_web_view_get_main_resource(view_.get()));
    g_signal_connect(document_.get(), "finished",
        G_CALLBACK(+[](WebKitWebResource*, WebPane* self) { self->tell(PageEvent::DocumentArrived{}); }),
        this);
}

void WebPane::forgetDocument() {
    if (document_)
        g_signal_handlers_disconnect_by_data(document_.get(), this);
    document_.reset();
}

bool WebPane::decide(WebKitPolicyDecision* decision, WebKitPolicyDecisionType type) {
    if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
        auto* response = WEBKIT_RESPONSE_POLICY_DECISION(decision);
        return refuseFrame(response) || refuseBrokenReply(response);
    }

    auto* action =
        webkit_navigation_policy_decision_get_navigation_action(WEBKIT_NAVIGATION_POLICY_DECISION(decision));
    const std::string url = webkit_uri_request_get_uri(webkit_navigation_action_get_request(action));
    const bool click =
        webkit_navigation_action_get_navigation_type(action) == WEBKIT_NAVIGATION_TYPE_LINK_CLICKED;
    using enum NavigationPolicy::Decision;
    auto verdict = NavigationPolicy::newWindowOpensBrowser(url, click) ? openInBrowser : cancel;
    if (type == WEBKIT_POLICY_DECISION_TYPE_NAVIGATION_ACTION)
        verdict = url == frameText ? cancel : NavigationPolicy::decide(url, base, click);

    if (verdict == allow) {
        webkit_policy_decision_use(decision);
    } else {
        webkit_policy_decision_ignore(decision);
    }
    if (verdict == openInBrowser && with_.openURL)
        with_.openURL(url);
    return true;
}

/// A frame of our own origin can reach into the page and speak in its name, so no document is shown in one.
bool WebPane::refuseFrame(WebKitResponsePolicyDecision* decision) {
    if (webkit_response_policy_decision_is_main_frame_main_resource(decision))
        return false;
    webkit_policy_decision_ignore(WEBKIT_POLICY_DECISION(decision));
    return true;
}

/// A server error brings no page, and often an empty one: words are better.
bool WebPane::refuseBrokenReply(WebKitResponsePolicyDecision* decision) {
    const auto status =
        webkit_uri_response_get_status_code(webkit_response_policy_decision_get_response(decision));
    if (status < 500)
        return false;
    webkit_policy_decision_ignore(WEBKIT_POLICY_DECISION(decision));
    tell(PageEvent::ServerErrorCame{.status = status,
        .url = webkit_uri_request_get_uri(webkit_response_policy_decision_get_request(decision))});
    return true;
}

void WebPane::receive(const std::string& url, const std::string& json) {
    const auto self = shared_from_this(); // a message may close the window
    if (!base || !NavigationPolicy::sameOrigin(url, *base))
        return;
    try {
        readJSON(json, [this](const JSONValue& root) {
            const auto body = root.object();
            const auto type = body.required<std::string>("type");
            if (type == "ready") {
                tellTheme();
                if (!std::exchange(stands_, true) && stack_.onChange)
                    stack_.onChange();
            }
            if (onMessage)
                onMessage(type, body);
            return 0;
        });
    } catch (const DecodingError&) {
        // Not a message: dropped.
    }
}

/// What shows before the page has drawn, and beyond its edges.
void WebPane::followColours() {
    const auto follow = +[](AdwStyleManager* style, GParamSpec*, WebPane* self) {
        GdkRGBA ground;
        gdk_rgba_parse(&ground, adw_style_manager_get_dark(style) ? "#242424" : "#fafafa");
        webkit_web_view_set_background_color(self->view_.get(), &ground);
    };
    auto* style = adw_style_manager_get_default();
    g_signal_connect(style, "notify::dark", G_CALLBACK(follow), this);
    follow(style, nullptr, this);
    const auto tell = +[](AdwStyleManager*, GParamSpec*, WebPane* self) { self->tellContrast(); };
    g_signal_connect(style, "notify::high-contrast", G_CALLBACK(tell), this);
}

} // namespace kelvadrome
