#include "Kelvadrome/gtk/DesktopPasteboard.h"

#include "Kelvadrome/gtk/web/GLibPointers.h"

#include <array>
#include <gtk/gtk.h>

namespace kelvadrome {

namespace {

constexpr double patience = 2; // seconds for the program that holds it

using Text = std::optional<std::string>;

GdkClipboard* clipboard() {
    return gdk_display_get_clipboard(gdk_display_get_default());
}

/// Cancelling `stop` ends it with no text.
Task<Text> readText(std::shared_ptr<GCancellable> stop) {
    const auto ask = [stop](Completion<Text> done) {
        const auto given = +[](GObject* from, GAsyncResult* result, gpointer to) {
            const std::unique_ptr<Completion<Text>> completion(static_cast<Completion<Text>*>(to));
            const GText text(gdk_clipboard_read_text_finish(GDK_CLIPBOARD(from), result, nullptr));
            (*completion)(text ? Text(text.get()) : std::nullopt);
        };
        gdk_clipboard_read_text_async(
            clipboard(), stop.get(), given, std::make_unique<Completion<Text>>(done).release());
        return std::function<void()>([stop] { g_cancellable_cancel(stop.get()); });
    };
    co_return co_await suspendUntil<Text>(ask);
}

Task<> cancelAfter(std::shared_ptr<Clock> clock, double seconds, std::shared_ptr<GCancellable> stop) {
    co_await clock->sleep(seconds);
    g_cancellable_cancel(stop.get());
}

} // namespace

Task<Text> DesktopPasteboard::read() {
    const auto executor = co_await asio::this_coro::executor;
    const auto stop = adopt(g_cancellable_new());
    const auto limit = spawn(executor, "pasteboard limit", cancelAfter(clock_, patience, stop));
    auto text = co_await attempt(readText(stop));
    limit.cancel();
    co_return text ? *text : std::nullopt;
}

void DesktopPasteboard::writeSecret(std::string text) {
    // The type by which programs that keep a history of the clipboard are told to forget this.
    auto* const hint = g_bytes_new_static("secret", 6);
    std::array providers{gdk_content_provider_new_typed(G_TYPE_STRING, text.c_str()),
        gdk_content_provider_new_for_bytes("x-kde-passwordManagerHint", hint)};
    const auto both = adopt(gdk_content_provider_new_union(providers.data(), providers.size()));
    gdk_clipboard_set_content(clipboard(), both.get());
    g_bytes_unref(hint);
}

void DesktopPasteboard::clear() {
    gdk_clipboard_set_content(clipboard(), nullptr);
}

} // namespace kelvadrome
