#pragma once

#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace kelvadrome::test {

/// A sound server of the test's own with one microphone, which hears what the test plays, and the only one
/// that this process and those that it starts from now on know of: it sets PULSE_SERVER. Ends with the
/// object, or with the process.
class VirtualMicrophone {
public:
    /// At its own rate, in Hz.
    explicit VirtualMicrophone(int rate = 16'000);
    ~VirtualMicrophone();
    VirtualMicrophone(const VirtualMicrophone&) = delete;
    VirtualMicrophone& operator=(const VirtualMicrophone&) = delete;

    /// Why there is none; empty when there is one.
    const std::string& problem() const { return problem_; }
    /// For the environment of a program: the value of PULSE_SERVER.
    std::string server() const { return "unix:" + folder_ / "native"; }

    /// Speaks a sentence with one of flite's voices, in the background.
    void speak(const std::string& sentence, const std::string& voice = "slt");
    /// Plays mono samples at the microphone's own rate, in the background.
    void play(const std::vector<std::int16_t>& samples);
    /// What was begun last has been heard to its end.
    bool quiet();

    void plug();
    void unplug();
    void stop() const; // the server stands still
    void goOn() const; // it no longer does
    void end();        // it is gone, as after a crash

private:
    std::string control(const std::vector<std::string>& words) const;

    TemporaryFolder folder_;
    int rate_;
    pid_t server_ = -1;
    pid_t player_ = -1;
    pid_t listener_ = -1;
    std::string microphone_; // the number of its module
    std::string problem_;
};

/// What flite says, at 16 kHz; empty when it isn't there.
std::vector<std::int16_t> spoken(const std::string& sentence, const std::string& voice);

} // namespace kelvadrome::test
