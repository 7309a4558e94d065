#include "Kelvadrome/gtk/MainLoop.h"

#include <chrono>

namespace kelvadrome {

namespace {

constexpr auto turnLimit = std::chrono::milliseconds(6); // leaves a frame of 16 ms its time to be drawn

struct LoopSource {
    GSource base;
    MainLoop* loop;
};

} // namespace

thread_local const MainLoop* MainLoop::turning_ = nullptr;

MainLoop::MainLoop(GMainContext* context)
    : context_(context ? context : g_main_context_default()), source_([] {
          static GSourceFuncs functions{nullptr, nullptr, &MainLoop::dispatch, nullptr, nullptr, nullptr};
          return g_source_new(&functions, sizeof(LoopSource));
      }()) {
    reinterpret_cast<LoopSource*>(source_)->loop = this;
    g_source_set_static_name(source_, "kelvadrome");
    g_source_set_can_recurse(source_, TRUE); // a modal dialog of the toolkit runs the loop inside a handler
    g_source_attach(source_, context_);
}

MainLoop::~MainLoop() {
    g_source_destroy(source_);
    g_source_unref(source_);
    // A handler that goes may post another.
    for (;;) {
        std::deque<Handler> rest;
        {
            std::lock_guard guard(lock_);
            rest.swap(handlers_);
        }
        if (rest.empty())
            break;
    }
    shutdown();
    destroy();
}

MainLoop::executor_type MainLoop::executor() noexcept {
    return executor_type(*this);
}

void MainLoop::post(Handler handler) {
    std::lock_guard guard(lock_);
    handlers_.push_back(std::move(handler));
    if (handlers_.size() == 1 && !g_source_is_destroyed(source_))
        g_source_set_ready_time(source_, 0);
}

gboolean MainLoop::dispatch(GSource* source, GSourceFunc, gpointer) {
    reinterpret_cast<LoopSource*>(source)->loop->turn();
    return G_SOURCE_CONTINUE;
}

/// Turns nest, for the sake of dialogs, and a handler may throw.
void MainLoop::run(Handler handler) {
    struct Restored {
        const MainLoop* before;
        ~Restored() { turning_ = before; }
    } const restored{std::exchange(turning_, this)};
    handler();
}

void MainLoop::turn() {
    const auto end = std::chrono::steady_clock::now() + turnLimit;
    do {
        Handler handler;
        {
            std::lock_guard guard(lock_);
            if (handlers_.empty()) {
                g_source_set_ready_time(source_, -1);
                return;
            }
            handler = std::move(handlers_.front());
            handlers_.pop_front();
            // Posting says so when the queue was empty; while it isn't, the source stays ready.
            g_source_set_ready_time(source_, handlers_.empty() ? -1 : 0);
        }
        run(std::move(handler));
    } while (std::chrono::steady_clock::now() < end);
}

void MainLoop::runUntil(const std::function<bool()>& done, double limit) {
    bool late = false;
    GSource* const alarm = g_timeout_source_new(static_cast<guint>(limit * 1000));
    g_source_set_callback(
        alarm,
        [](gpointer flag) -> gboolean {
            *static_cast<bool*>(flag) = true;
            return G_SOURCE_REMOVE;
        },
        &late, nullptr);
    g_source_attach(alarm, context_);
    while (!late && !done())
        g_main_context_iteration(context_, TRUE);
    g_source_destroy(alarm);
    g_source_unref(alarm);
}

} // namespace kelvadrome
