#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace kelvadrome {

/// Writes one line to the log, standard error unless a sink was set. Any thread. Never pass a secret.
void logLine(std::string_view text);

/// Sends the log elsewhere (a front end that owns the screen does); an empty sink restores standard error.
void setLogSink(std::function<void(std::string_view)> sink);

/// An exception's own words, for the log.
std::string describeException(const std::exception_ptr& error);

} // namespace kelvadrome
