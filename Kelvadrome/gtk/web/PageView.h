#pragma once

#include "KelvadromeKit/support/Clock.h"
#include "KelvadromeKit/support/Task.h"

#include <memory>
#include <string>
#include <webkit/webkit.h>

/// A web view set up for the daemon's page, and WebKit's slow calls as tasks. GLib's main loop only.
namespace kelvadrome::PageView {

/// No cookie or cache reaches the disk; the user agent is the one by which the page knows this shell; the
/// page's own row of scopes is hidden; swipes go back and forward, pinches don't zoom. All its connections go
/// through `proxy`, an address, when there is one.
std::shared_ptr<WebKitWebView> make(const std::string& proxy);

/// Puts the cookies of a Set-Cookie header into the view's store; one that can't be read changes nothing.
/// False when the store takes over 10 seconds, or fails.
Task<bool> placeCookie(
    std::shared_ptr<WebKitWebView> view, std::shared_ptr<Clock> clock, std::string header, std::string base);

/// Whether a script's result is the boolean true. A script that fails, or takes over 10 seconds, gives false.
Task<bool> evaluate(std::shared_ptr<WebKitWebView> view, std::shared_ptr<Clock> clock, std::string script);

/// Whether there is a GPU to render with.
bool hasGPU();

} // namespace kelvadrome::PageView
