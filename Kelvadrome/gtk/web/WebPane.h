#pragma once

#include "Kelvadrome/gtk/web/HoldOff.h"
#include "Kelvadrome/gtk/web/PageBridge.h"
#include "Kelvadrome/gtk/web/PageStack.h"
#include "Kelvadrome/model/WebController.h"
#include "KelvadromeKit/page/PageCall.h"
#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/TaskBag.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <webkit/webkit.h>

namespace kelvadrome {

/// How a page is fetched.
struct PageRoute {
    /// Where WebKit's own connections go, which can't be looked at from here; straight to the daemon without
    /// one.
    std::string proxy = {};
    /// Why nothing may be fetched from a port, if so; asked before each load. Without it every port will do.
    std::function<Task<std::optional<std::string>>(std::int64_t port)> admit = {};
};

/// The daemon's page in a web view. A page that can't be loaded and a web process that ends are told in
/// words, with a button that tries again; by itself the pane tries again too, ever more slowly. On GLib's
/// main loop only.
class WebPane final : public WebController, public std::enable_shared_from_this<WebPane> {
public:
    struct Dependencies {
        Executor executor; // the main one
        std::shared_ptr<Clock> clock;
        std::function<void(std::string url)> openURL; // with the user's browser
        PageRoute route = {};
    };
    /// A request that brings nothing for this many seconds has failed.
    static constexpr double loadLimit = 60;

    /// Chooses WebKit's renderer for machines without a GPU, unless the user chose. It sets an environment
    /// variable, so it is called before there are other threads.
    static void prepareProcess();

    static std::shared_ptr<WebPane> make(Dependencies dependencies);
    ~WebPane() override;

    /// What a window shows: the page, or the words in its place.
    Gtk::Widget& widget() { return stack_.widget(); }
    /// `changed` is called when `trouble` has.
    void setTroubleChanged(std::function<void()> changed) { stack_.onChange = std::move(changed); }
    /// What the page tells the shell. Messages from frames inside it and from other origins never get here.
    PageBridge::OnMessage onMessage;

    void load(PageSession::Credentials credentials, NavSection section, ScopeFilter scope) override;
    /// The same for one of the page's addresses.
    void load(PageSession::Credentials credentials, std::string url);
    void navigate(std::string path, ScopeFilter scope, std::optional<std::string> focus) override;
    void search(std::string query, ScopeFilter scope) override;
    void setScope(ScopeFilter scope, std::string path) override;
    void callShell(std::string expression, std::optional<std::string> fallback) override;
    void runScript(std::string script) override;
    /// Loads the page that is shown, or the one that failed.
    void reload() override;

    /// Whether a script's result is the boolean true; false when it fails.
    Task<bool> evaluate(std::string script);
    /// A page has finished loading since the last `load`, and still lives.
    bool loaded() const { return loaded_; }
    /// The words that stand in the page's place, if they do.
    const std::optional<std::string>& trouble() const { return stack_.trouble(); }
    WebKitWebView* view() const { return view_.get(); }

private:
    explicit WebPane(Dependencies dependencies);

    // Loading.
    void begin(std::string url);
    void request(std::string url);
    void callPage(const PageCall& call, ScopeFilter scope);
    void loadFallback(std::string url);
    static Task<> prepareAndRequest(std::weak_ptr<WebPane> weak);
    Task<std::optional<std::string>> prepare() const;
    static Task<> callOrLoad(
        std::weak_ptr<WebPane> weak, std::string script, std::optional<std::string> fallback);
    static Task<> giveUpWhenQuiet(std::weak_ptr<WebPane> weak);
    static Task<> tryAgainLater(std::weak_ptr<WebPane> weak, double pause);

    // What WebKit tells.
    void connectSignals();
    void loadChanged(WebKitLoadEvent event);
    void watchLoad();
    void watchDocument();
    void forgetDocument();
    void loadFinished();
    void giveUp();
    void loadFailed(const char* url, const GError& error);
    void processEnded(WebKitWebProcessTerminationReason reason);
    bool decide(WebKitPolicyDecision* decision, WebKitPolicyDecisionType type);
    bool refuseFrame(WebKitResponsePolicyDecision* decision);
    bool refuseBrokenReply(WebKitResponsePolicyDecision* decision);
    void receive(const std::string& url, const std::string& json);

    // What a person sees.
    void followColours();
    void showTrouble(const char* title, const std::string& words);
    void tryAgain();
    void tellTheme();
    void tellContrast();

    Dependencies with_;
    TaskBag tasks_;
    std::shared_ptr<WebKitWebView> view_;
    PageBridge bridge_;
    PageStack stack_;
    HoldOff holdOff_;

    std::shared_ptr<WebKitWebResource> document_; // the one that is shown
    std::string wanted_;                          // the address that was asked for last
    std::string setCookieHeader_;                 // of the session in use
    std::int64_t port_ = 0;                       // the daemon's, as the session says
    bool loaded_ = false;
    bool firstLoadDue_ = false;
    bool requested_ = false; // a load that hasn't begun yet
    bool stands_ = false;    // the web process has a document to show
    bool failed_ = false;    // the load under way has
    bool whole_ = false;     // its document has arrived to the end
    double lastProgress_ = 0;
    TaskHandle placing_; // set while the port is looked at and the cookie put in its place, before a request
    TaskHandle watching_;
    TaskHandle waiting_;
};

} // namespace kelvadrome
