// The least that shows a page: a window with a web view, without anything around it.
//   bench_bare_window URL COOKIE       COOKIE as the daemon's Set-Cookie has it
#include <cstdio>
#include <libsoup/soup.h>
#include <webkit/webkit.h>

namespace {

struct Page {
    GMainLoop* loop;
    WebKitWebView* view;
    const char* url;
};

void cookieIsThere(GObject*, GAsyncResult*, gpointer data) {
    const auto* page = static_cast<Page*>(data);
    webkit_web_view_load_uri(page->view, page->url);
}

void open(Page& page, const char* cookie) {
    auto* session = webkit_network_session_new_ephemeral();
    page.view = WEBKIT_WEB_VIEW(g_object_new(WEBKIT_TYPE_WEB_VIEW, "network-session", session, nullptr));
    // The daemon answers the shell with other headers than a browser.
    webkit_settings_set_user_agent_with_application_details(
        webkit_web_view_get_settings(page.view), "KelvadromeShell", "0");
    auto* window = gtk_window_new();
    gtk_window_set_title(GTK_WINDOW(window), "bare");
    gtk_window_set_default_size(GTK_WINDOW(window), 1180, 780);
    gtk_window_set_child(GTK_WINDOW(window), GTK_WIDGET(page.view));
    gtk_window_present(GTK_WINDOW(window));
    auto* origin = g_uri_parse(page.url, static_cast<GUriFlags>(SOUP_HTTP_URI_FLAGS), nullptr);
    auto* parsed = soup_cookie_parse(cookie, origin);
    webkit_cookie_manager_add_cookie(
        webkit_network_session_get_cookie_manager(session), parsed, nullptr, &cookieIsThere, &page);
}

} // namespace

int main(int count, char** words) {
    if (count != 3) {
        std::fputs("usage: bench_bare_window URL COOKIE\n", stderr);
        return 64;
    }
    gtk_init();
    Page page{g_main_loop_new(nullptr, FALSE), nullptr, words[1]};
    open(page, words[2]);
    g_main_loop_run(page.loop);
}
