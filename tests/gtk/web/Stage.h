#pragma once

#include "Kelvadrome/gtk/MainLoop.h"
#include "Kelvadrome/gtk/web/WebPane.h"

#include "tests/gtk/OnADisplay.h"
#include "tests/support/FakeDaemon.h"
#include "tests/support/TestLoop.h"

#include <fmt/format.h>

#include <gtkmm/window.h>
#include <string>
#include <vector>

namespace kelvadrome::test {

/// A display, the toolkit on it, its main loop as the executor, and a web server of the daemon's kind. Time
/// stands still unless it is turned.
class Stage : public OnADisplay {
protected:
    static constexpr double limit = 60; // seconds; only a hung test ever sees it

    void SetUp() override {
        WebPane::prepareProcess();
        OnADisplay::SetUp();
        if (IsSkipped())
            return;
        port = server.listenOnTCP();
    }

    void until(const std::function<bool()>& condition, const std::string& what) {
        loop.runUntil(condition, limit);
        ASSERT_TRUE(condition()) << "waited for " << what;
    }

    template <class T>
    T run(Task<T> task) {
        std::optional<Outcome<T>> outcome;
        asio::co_spawn(
            loop.executor(), attempt(std::move(task)), [&](std::exception_ptr error, Outcome<T> result) {
                outcome = error ? Outcome<T>(error) : std::move(result);
            });
        until([&] { return outcome.has_value(); }, "a task to end");
        return outcome.value().take();
    }

    /// Runs what is ready.
    void drain() {
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
    }

    /// Runs what is ready, then turns the clock and runs what that woke.
    void turn(double seconds) {
        drain();
        clock->advance(seconds);
        drain();
    }

    /// A page of the server's; it may be served in any number.
    void serve(const std::string& path, const std::string& html) {
        server.on(path, FakeReply{.headers = {{"Content-Type", "text/html; charset=utf-8"}}, .body = html});
    }

    std::string origin() const { return fmt::format("http://127.0.0.1:{}", port); }

    PageSession::Credentials credentials(const std::string& session = "s1") const {
        return {.base = origin(),
            .port = port,
            .cookieName = "kd_session",
            .cookieValue = session,
            .csrf = "c",
            .setCookieHeader = "kd_session=" + session + "; Path=/; HttpOnly; SameSite=Strict"};
    }

    FakeDaemon server;
    std::uint16_t port = 0;
    MainLoop loop;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
};

/// A script for a page: posts a message as the page does.
inline std::string post(const std::string& message) {
    return "window.webkit.messageHandlers.kelvadrome.postMessage(" + message + ");";
}

/// The first widget below `root` of a kind for which `wanted` holds.
template <class T>
T* findWidget(
    Gtk::Widget& root, const std::function<bool(T&)>& wanted = [](T&) { return true; }) {
    if (auto* found = dynamic_cast<T*>(&root); found && wanted(*found))
        return found;
    for (auto* child = root.get_first_child(); child; child = child->get_next_sibling()) {
        if (auto* found = findWidget<T>(*child, wanted))
            return found;
    }
    return nullptr;
}

} // namespace kelvadrome::test
