#pragma once

#include <string>
#include <sys/types.h>

namespace kelvadrome::test {

/// An X server without a screen, for tests that draw. It sets DISPLAY and has the toolkit use it, so it is
/// made before the toolkit is set up; the server ends with the object, or with the process.
class HeadlessDisplay {
public:
    HeadlessDisplay();
    ~HeadlessDisplay();
    HeadlessDisplay(const HeadlessDisplay&) = delete;
    HeadlessDisplay& operator=(const HeadlessDisplay&) = delete;

    /// Why there is no display; empty when there is one.
    const std::string& problem() const { return problem_; }

private:
    pid_t server_ = -1;
    std::string problem_;
};

} // namespace kelvadrome::test
