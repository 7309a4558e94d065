#include "KelvadromeKit/support/Log.h"

#include <cstdio>
#include <mutex>
#include <utility>

namespace kelvadrome {

namespace {

std::mutex sinkLock;
std::function<void(std::string_view)> currentSink;

} // namespace

void logLine(std::string_view text) {
    std::function<void(std::string_view)> sink;
    {
        std::lock_guard guard(sinkLock);
        sink = currentSink;
    }
    if (sink) {
        sink(text);
    } else {
        std::fprintf(stderr, "kelvadrome: %.*s\n", static_cast<int>(text.size()), text.data());
    }
}

void setLogSink(std::function<void(std::string_view)> sink) {
    std::lock_guard guard(sinkLock);
    currentSink = std::move(sink);
}

std::string describeException(const std::exception_ptr& error) {
    if (!error)
        return "no error";
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "an unknown error";
    }
}

} // namespace kelvadrome
