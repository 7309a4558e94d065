#include "Kelvadrome/gtk/web/WebPane.h"

#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "Kelvadrome/gtk/web/PageView.h"
#include "KelvadromeKit/page/NavigationPolicy.h"
#include "KelvadromeKit/support/Log.h"

#include <fmt/format.h>

namespace kelvadrome {

namespace {

constexpr const char* dmabufSwitch = "WEBKIT_DISABLE_DMABUF_RENDERER";
constexpr const char* frameText = "about:srcdoc"; // the address of a frame whose document is an attribute
constexpr const char* notLoaded = "The page did not load";
constexpr const char* stopped = "The page stopped working";

/// What keeps the page from being asked for at this moment, in words.
Task<std::optional<std::string>> hindrance(Task<std::optional<std::string>> admission, Task<bool> placing) {
    const auto refusal = co_await std::move(admission);
    if (refusal)
        co_return "kelvadrome could not reach its page: " + *refusal;
    const bool placed = co_await std::move(placing);
    if (!placed)
        co_return "The program that keeps the page's cookie does not answer.";
    co_return std::nullopt;
}

Task<std::optional<std::string>> admitAll() {
    co_return std::nullopt;
}

bool isNoFailure(const GError& error) {
    return g_error_matches(&error, WEBKIT_NETWORK_ERROR, WEBKIT_NETWORK_ERROR_CANCELLED) ||
           g_error_matches(
               &error, WEBKIT_POLICY_ERROR, WEBKIT_POLICY_ERROR_FRAME_LOAD_INTERRUPTED_BY_POLICY_CHANGE);
}

const char* describe(WebKitWebProcessTerminationReason reason) {
    return reason == WEBKIT_WEB_PROCESS_EXCEEDED_MEMORY_LIMIT
               ? "It needed more memory than there is. What the daemon keeps is safe."
               : "The program that shows it ended. What the daemon keeps is safe.";
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
      stack_(*Glib::wrap(GTK_WIDGET(view_.get())), [this] { tryAgain(); }) {
    connectSignals();
    followColours();
}

WebPane::~WebPane() {
    tasks_.close();
    g_signal_handlers_disconnect_by_data(view_.get(), this);
    g_signal_handlers_disconnect_by_data(adw_style_manager_get_default(), this);
    forgetDocument();
}

// Loading

void WebPane::load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) {
    base = credentials.base;
    load(std::move(credentials), *url(path(section), scope));
}

void WebPane::load(PageSession::Credentials credentials, std::string url) {
    base = std::move(credentials.base);
    cookieValue = std::move(credentials.cookieValue);
    setCookieHeader_ = std::move(credentials.setCookieHeader);
    port_ = credentials.port;
    loaded_ = false;
    firstLoadDue_ = true;
    begin(std::move(url));
}

/// A request, once the port is known to be the daemon's and the session's cookie is in its place.
void WebPane::begin(std::string url) {
    wanted_ = std::move(url);
    waiting_.cancel();
    placing_.cancel();
    placing_ = tasks_.launch("page load", prepareAndRequest(weak_from_this()));
}

Task<> WebPane::prepareAndRequest(std::weak_ptr<WebPane> weak) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto preparing = self->prepare();
    self.reset();
    auto words = co_await std::move(preparing);
    const bool replaced = co_await taskCancelled();
    self = weak.lock();
    if (!self || replaced)
        co_return;
    self->placing_ = {};
    if (words) {
        self->showTrouble(notLoaded, *words);
    } else {
        self->request(self->wanted_);
    }
}

Task<std::optional<std::string>> WebPane::prepare() const {
    const auto& admit = with_.route.admit;
    return hindrance(admit ? admit(port_) : admitAll(),
        PageView::placeCookie(view_, with_.clock, setCookieHeader_, *base));
}

void WebPane::request(std::string url) {
    wanted_ = std::move(url);
    requested_ = true;
    watchLoad();
    webkit_web_view_load_uri(view_.get(), wanted_.c_str());
}

void WebPane::loadFallback(std::string url) {
    if (placing_) {
        wanted_ = std::move(url); // the request that waits for its cookie goes there instead
    } else {
        begin(std::move(url));
    }
}

void WebPane::callPage(const PageCall& call, ScopeFilter scope) {
    callShell(call.expression, url(call.path, scope, call.extra));
}

void WebPane::navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) {
    // So that the keys act on the card; not while the window shows something else in the page's place.
    if (auto* const view = GTK_WIDGET(view_.get()); focus && !trouble() && gtk_widget_get_mapped(view))
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
    if (loaded_) {
        auto script = PageCall{std::move(expression), {}, {}}.script();
        tasks_.launch("page call", callOrLoad(weak_from_this(), std::move(script), std::move(fallback)));
    } else if (fallback) {
        loadFallback(std::move(*fallback));
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
        self->loadFallback(std::move(*fallback));
}

void WebPane::runScript(std::string script) {
    if (!stands_)
        return;
    webkit_web_view_evaluate_javascript(view_.get(), script.c_str(), static_cast<gssize>(script.size()),
        nullptr, nullptr, nullptr, nullptr, nullptr);
}

Task<bool> WebPane::evaluate(std::string script) {
    return PageView::evaluate(view_, with_.clock, std::move(script));
}

void WebPane::reload() {
    if (trouble()) {
        tryAgain();
    } else if (stands_ && !placing_) {
        watchLoad(); // a page that hangs doesn't even begin
        webkit_web_view_reload(view_.get());
    }
}

// What WebKit tells

void WebPane::connectSignals() {
    auto* view = view_.get();
    g_signal_connect(view, "load-changed",
        G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent event, WebPane* self) { self->loadChanged(event); }),
        this);
    g_signal_connect(view, "load-failed",
        G_CALLBACK(+[](WebKitWebView*, WebKitLoadEvent, const char* url, GError* error, WebPane* self) {
            self->loadFailed(url, *error);
            return TRUE; // the words are ours, not WebKit's
        }),
        this);
    g_signal_connect(view, "web-process-terminated",
        G_CALLBACK(+[](WebKitWebView*, WebKitWebProcessTerminationReason reason, WebPane* self) {
            self->processEnded(reason);
        }),
        this);
    g_signal_connect(view, "decide-policy",
        G_CALLBACK(+[](WebKitWebView*, WebKitPolicyDecision* decision, WebKitPolicyDecisionType type,
                        WebPane* self) -> gboolean { return self->decide(decision, type); }),
        this);
    g_signal_connect(view, "notify::estimated-load-progress",
        G_CALLBACK(
            +[](GObject*, GParamSpec*, WebPane* self) { self->lastProgress_ = self->with_.clock->uptime(); }),
        this);
}

void WebPane::loadChanged(WebKitLoadEvent event) {
    switch (event) {
    case WEBKIT_LOAD_STARTED:
        requested_ = false;
        watchLoad();
        break;
    case WEBKIT_LOAD_COMMITTED:
        stands_ = true;
        waiting_.cancel();
        stack_.showPage();
        watchDocument();
        break;
    case WEBKIT_LOAD_FINISHED:
        if (placing_ || requested_)
            break; // the end of a page that is about to be replaced doesn't count
        watching_.cancel();
        if (!failed_)
            loadFinished();
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
        G_CALLBACK(+[](WebKitWebResource*, WebPane* self) { self->whole_ = true; }), this);
}

void WebPane::forgetDocument() {
    if (document_)
        g_signal_handlers_disconnect_by_data(document_.get(), this);
    document_.reset();
}

void WebPane::loadFinished() {
    tellTheme();
    tellContrast();
    holdOff_.loaded(with_.clock->uptime());
    loaded_ = true;
    if (std::exchange(firstLoadDue_, false) && onFirstLoad)
        onFirstLoad();
}

void WebPane::loadFailed(const char* url, const GError& error) {
    const bool told = std::exchange(failed_, true);
    if (placing_ || told)
        return;
    const bool blank = !stands_ || trouble();
    if (!isNoFailure(error)) {
        wanted_ = url;
        showTrouble(notLoaded, fmt::format("kelvadrome could not reach its page: {}.", error.message));
    } else if (blank && error.domain == WEBKIT_POLICY_ERROR) {
        showTrouble(notLoaded, "The daemon sent the page to an address that is not its own.");
    }
}

void WebPane::watchLoad() {
    forgetDocument(); // the end of the one before may still be told
    failed_ = whole_ = false;
    lastProgress_ = with_.clock->uptime();
    watching_.cancel();
    watching_ = tasks_.launch("page limit", giveUpWhenQuiet(weak_from_this()));
}

Task<> WebPane::giveUpWhenQuiet(std::weak_ptr<WebPane> weak) {
    for (;;) {
        auto self = weak.lock();
        if (!self)
            co_return;
        const double quiet = self->with_.clock->uptime() - self->lastProgress_;
        if (quiet >= loadLimit) {
            self->giveUp();
            co_return;
        }
        auto pause = self->with_.clock->sleep(loadLimit - quiet);
        self.reset();
        co_await std::move(pause);
    }
}

void WebPane::giveUp() {
    if (whole_)
        return;
    if (!webkit_web_view_get_is_web_process_responsive(view_.get())) {
        // It hangs, and nothing would load in it again; its end is told.
        webkit_web_view_terminate_web_process(view_.get());
        return;
    }
    failed_ = true;
    webkit_web_view_stop_loading(view_.get());
    showTrouble(notLoaded, "The daemon did not answer within a minute.");
}

void WebPane::processEnded(WebKitWebProcessTerminationReason reason) {
    logLine(fmt::format("page: the web process ended ({})", static_cast<int>(reason)));
    watching_.cancel();
    loaded_ = stands_ = false;
    if (placing_)
        return; // the request that comes starts another
    const auto* shown = webkit_web_view_get_uri(view_.get());
    if (shown && base && NavigationPolicy::sameOrigin(shown, *base))
        wanted_ = shown;
    showTrouble(stopped, describe(reason));
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
    failed_ = true;
    wanted_ = webkit_uri_request_get_uri(webkit_response_policy_decision_get_request(decision));
    showTrouble(notLoaded, fmt::format("The daemon answered with an error ({}).", status));
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
            if (type == "ready")
                tellTheme();
            if (onMessage)
                onMessage(type, body);
            return 0;
        });
    } catch (const DecodingError&) {
        // Not a message: dropped.
    }
}

// What a person sees

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

/// WebKit doesn't tell a page that the desktop wants more contrast.
void WebPane::tellContrast() {
    const bool high = adw_style_manager_get_high_contrast(adw_style_manager_get_default());
    runScript(std::string("document.documentElement.dataset.contrast = ") + (high ? "'more'" : "''"));
}

void WebPane::showTrouble(const char* title, const std::string& words) {
    watching_.cancel();
    loaded_ = false;
    const double pause = holdOff_.failed(with_.clock->uptime());
    stack_.showTrouble(title, fmt::format("{} kelvadrome tries again in {:.0f} seconds.", words, pause));
    waiting_.cancel();
    waiting_ = tasks_.launch("page retry", tryAgainLater(weak_from_this(), pause));
}

Task<> WebPane::tryAgainLater(std::weak_ptr<WebPane> weak, double pause) {
    auto self = weak.lock();
    if (!self)
        co_return;
    auto sleep = self->with_.clock->sleep(pause);
    self.reset();
    co_await std::move(sleep);
    self = weak.lock();
    if (self && self->trouble())
        self->tryAgain();
}

void WebPane::tryAgain() {
    if (!placing_ && base)
        begin(wanted_);
}

void WebPane::tellTheme() {
    runScript(setThemeScript(theme));
}

} // namespace kelvadrome
