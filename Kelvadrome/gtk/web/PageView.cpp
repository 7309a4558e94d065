#include "Kelvadrome/gtk/web/PageView.h"

#include "Kelvadrome/gtk/web/GLibPointers.h"
#include "Kelvadrome/gtk/web/PageBridge.h"

#include <filesystem>
#include <libsoup/soup.h>

namespace kelvadrome::PageView {

namespace {

constexpr double memoryPause = 300; // seconds
constexpr double callLimit = 10;    // seconds, for a call into WebKit's other processes

constexpr const char* markShell = "document.documentElement.dataset.shell = 'native';";
// The window has a scope filter of its own.
constexpr const char* hideScopes =
    "(function(){var s=document.createElement('style');s.textContent='[data-shell=\"native\"] .scopes{"
    "display:none !important}';document.head.appendChild(s)})();";

void applySettings(WebKitWebView* view) {
    auto* settings = webkit_web_view_get_settings(view);
    // WebKit joins the two with a slash.
    webkit_settings_set_user_agent_with_application_details(
        settings, "kelvadrome/0.1.2 KelvadromeShell", "mac");
    webkit_settings_set_enable_fullscreen(settings, FALSE);
    webkit_settings_set_enable_back_forward_navigation_gestures(settings, TRUE);
}

void stopPinches(WebKitWebView* view) {
    const auto controllers = adopt(gtk_widget_observe_controllers(GTK_WIDGET(view)));
    for (guint i = 0; i < g_list_model_get_n_items(controllers.get()); ++i) {
        const auto item = adopt(static_cast<GObject*>(g_list_model_get_item(controllers.get(), i)));
        if (GTK_IS_GESTURE_ZOOM(item.get()))
            gtk_event_controller_set_propagation_phase(GTK_EVENT_CONTROLLER(item.get()), GTK_PHASE_NONE);
    }
}

/// WebKit looks up the keys of editing in a text view of its own. On the way out of the page the focus would
/// stop there, where nobody sees it and Tab is text.
void skipKeyTable(WebKitWebView* view) {
    for (auto* child = gtk_widget_get_first_child(GTK_WIDGET(view)); child;
         child = gtk_widget_get_next_sibling(child)) {
        if (GTK_IS_TEXT_VIEW(child))
            gtk_widget_set_can_focus(child, FALSE);
    }
}

/// Every 30 s WebKit adds up the web process's memory page by page, to let caches go when they are large.
/// That is the most costly thing it does beside a page that rests.
std::shared_ptr<WebKitWebContext> quietContext() {
    auto* memory = webkit_memory_pressure_settings_new();
    webkit_memory_pressure_settings_set_poll_interval(memory, memoryPause);
    const auto made = adopt(WEBKIT_WEB_CONTEXT(
        g_object_new(WEBKIT_TYPE_WEB_CONTEXT, "memory-pressure-settings", memory, nullptr)));
    webkit_memory_pressure_settings_free(memory);
    return made;
}

void cancelDownload(WebKitNetworkSession*, WebKitDownload* download, gpointer) {
    webkit_download_cancel(download);
}

using Ready = std::function<void(GObject* source, GAsyncResult* result)>;

/// For a GAsyncReadyCallback's user data; `callReady` takes it back.
gpointer keep(Ready ready) {
    return std::make_unique<Ready>(std::move(ready)).release();
}

void callReady(GObject* source, GAsyncResult* result, gpointer kept) {
    const std::unique_ptr<Ready> ready(static_cast<Ready*>(kept));
    (*ready)(source, result);
}

/// What `start` completes with, or false when that takes longer than `callLimit`.
Task<bool> withLimit(std::shared_ptr<Clock> clock, std::function<void(Completion<bool>)> start) {
    using namespace asio::experimental::awaitable_operators;
    auto startOrCancel = [start = std::move(start)](Completion<bool> done) {
        start(done);
        return std::function<void()>([done] { done(false); });
    };
    auto call = suspendUntil<bool>(std::move(startOrCancel));
    auto limit = clock->sleep(callLimit);
    const auto first = co_await (attempt(std::move(call)) || attempt(std::move(limit)));
    if (first.index() == 1)
        co_return false;
    auto outcome = std::get<0>(first);
    co_return outcome.take();
}

bool isTrue(WebKitWebView* view, GAsyncResult* result) {
    GError* error = nullptr;
    auto* value = webkit_web_view_evaluate_javascript_finish(view, result, &error);
    if (!value) {
        g_clear_error(&error);
        return false;
    }
    const auto held = adopt(value);
    return jsc_value_is_boolean(value) && jsc_value_to_boolean(value);
}

} // namespace

std::shared_ptr<WebKitWebView> make(const std::string& proxy) {
    const auto content = adopt(webkit_user_content_manager_new());
    addTopFrameScript(content.get(), markShell, WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START);
    addTopFrameScript(content.get(), hideScopes, WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_END);
    const auto session = adopt(webkit_network_session_new_ephemeral());
    if (!proxy.empty()) {
        auto* settings = webkit_network_proxy_settings_new(proxy.c_str(), nullptr);
        webkit_network_session_set_proxy_settings(session.get(), WEBKIT_NETWORK_PROXY_MODE_CUSTOM, settings);
        webkit_network_proxy_settings_free(settings);
    }
    g_signal_connect(session.get(), "download-started", G_CALLBACK(&cancelDownload), nullptr);

    auto* view = WEBKIT_WEB_VIEW(
        g_object_ref_sink(g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", quietContext().get(),
            "network-session", session.get(), "user-content-manager", content.get(), nullptr)));
    applySettings(view);
    stopPinches(view);
    skipKeyTable(view);
    gtk_accessible_update_property(GTK_ACCESSIBLE(view), GTK_ACCESSIBLE_PROPERTY_LABEL, "Page", -1);
    return adopt(view);
}

Task<bool> placeCookie(
    std::shared_ptr<WebKitWebView> view, std::shared_ptr<Clock> clock, std::string header, std::string base) {
    const std::unique_ptr<GUri, decltype(&g_uri_unref)> origin(
        g_uri_parse(base.c_str(), static_cast<GUriFlags>(SOUP_HTTP_URI_FLAGS), nullptr), &g_uri_unref);
    if (!origin)
        co_return true;
    const std::shared_ptr<SoupCookie> cookie(soup_cookie_parse(header.c_str(), origin.get()), [](auto* gone) {
        if (gone)
            soup_cookie_free(gone);
    });
    if (!cookie)
        co_return true;
    std::function<void(Completion<bool>)> start = [view, cookie](Completion<bool> done) {
        auto* store =
            webkit_network_session_get_cookie_manager(webkit_web_view_get_network_session(view.get()));
        webkit_cookie_manager_add_cookie(
            store, cookie.get(), nullptr, &callReady, keep([done](GObject* source, GAsyncResult* result) {
                done(webkit_cookie_manager_add_cookie_finish(WEBKIT_COOKIE_MANAGER(source), result, nullptr));
            }));
    };
    co_return co_await withLimit(std::move(clock), std::move(start));
}

Task<bool> evaluate(std::shared_ptr<WebKitWebView> view, std::shared_ptr<Clock> clock, std::string script) {
    std::function<void(Completion<bool>)> start = [view, script](Completion<bool> done) {
        webkit_web_view_evaluate_javascript(view.get(), script.c_str(), static_cast<gssize>(script.size()),
            nullptr, nullptr, nullptr, &callReady, keep([done](GObject* source, GAsyncResult* result) {
                done(isTrue(WEBKIT_WEB_VIEW(source), result));
            }));
    };
    co_return co_await withLimit(std::move(clock), std::move(start));
}

bool hasGPU() {
    std::error_code problem;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/dri", problem)) {
        if (entry.path().filename().string().starts_with("renderD"))
            return true;
    }
    return false;
}

} // namespace kelvadrome::PageView
