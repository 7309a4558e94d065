#include "tests/support/VirtualMicrophone.h"

#include "KelvadromeKit/support/Descriptor.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace kelvadrome::test {

namespace {

constexpr double startLimit = 20; // seconds; only a hung test ever sees it

/// Starts a program; its output goes to `output`, its words for people to nowhere.
pid_t begin(
    std::vector<std::string> words, const std::string& home, const std::string& output = "/dev/null") {
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child != 0)
        return child;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
    dup2(nothing, STDERR_FILENO);
    for (const char* name : {"HOME", "XDG_RUNTIME_DIR", "PULSE_RUNTIME_PATH"})
        setenv(name, home.c_str(), 1);
    execvp(arguments.front(), arguments.data());
    _exit(127);
}

void finish(pid_t& child, int signal) {
    if (child <= 0)
        return;
    if (signal)
        kill(child, signal);
    waitpid(std::exchange(child, -1), nullptr, 0);
}

} // namespace

VirtualMicrophone::VirtualMicrophone(int rate) : rate_(rate) {
    setenv("PULSE_SERVER", server().c_str(), 1);
    setenv("PULSE_COOKIE", (folder_ / "cookie").c_str(), 1);
    server_ =
        begin({"pulseaudio", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                  "--disable-shm=yes", "--realtime=no", "--high-priority=no", "-n", "-L",
                  "module-null-sink sink_name=mouth format=s16le channels=1 rate=" + std::to_string(rate),
                  "-L", "module-native-protocol-unix auth-anonymous=1 socket=" + folder_ / "native"},
            folder_.path());
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(startLimit);
    while (control({"info"}).empty()) {
        if (waitpid(server_, nullptr, WNOHANG) != 0 || std::chrono::steady_clock::now() > deadline) {
            problem_ = "no sound server; are the packages pulseaudio and pulseaudio-utils installed?";
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    plug();
    // The server makes what is played in blocks of up to two seconds; while somebody listens closely, of
    // this.
    listener_ = begin({"parec", "--raw", "--latency-msec=10", "--device=mouth.monitor"}, folder_.path());
}

VirtualMicrophone::~VirtualMicrophone() {
    finish(listener_, SIGKILL);
    finish(player_, SIGKILL);
    goOn();
    finish(server_, SIGTERM);
}

std::string VirtualMicrophone::control(const std::vector<std::string>& words) const {
    std::vector<std::string> all{"pactl"};
    all.insert(all.end(), words.begin(), words.end());
    const auto output = folder_ / "pactl";
    pid_t child = begin(all, folder_.path(), output);
    finish(child, 0);
    std::string text;
    std::getline(std::ifstream(output), text);
    return text;
}

void VirtualMicrophone::plug() {
    // The monitor of what plays isn't taken for a microphone; this is.
    microphone_ = control({"load-module", "module-remap-source", "source_name=ear", "master=mouth.monitor"});
    control({"set-default-source", "ear"});
}

void VirtualMicrophone::unplug() {
    control({"unload-module", microphone_});
}

void VirtualMicrophone::stop() const {
    kill(server_, SIGSTOP);
}

void VirtualMicrophone::goOn() const {
    if (server_ > 0)
        kill(server_, SIGCONT);
}

void VirtualMicrophone::end() {
    finish(server_, SIGKILL);
}

void VirtualMicrophone::play(const std::vector<std::int16_t>& samples) {
    const auto file = folder_ / "samples";
    std::ofstream(file, std::ios::binary)
        .write(
            reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size() * 2));
    finish(player_, SIGKILL);
    player_ = begin({"pacat", "--playback", "--raw", "--format=s16le", "--channels=1",
                        "--rate=" + std::to_string(rate_), "--device=mouth", file},
        folder_.path());
}

void VirtualMicrophone::speak(const std::string& sentence, const std::string& voice) {
    const auto samples = spoken(sentence, voice);
    std::vector<std::int16_t> played;
    for (std::size_t at = 0; at < samples.size() * rate_ / 16'000; ++at)
        played.push_back(samples[at * 16'000 / rate_]);
    play(played);
}

bool VirtualMicrophone::quiet() {
    if (player_ > 0 && waitpid(player_, nullptr, WNOHANG) == player_)
        player_ = -1;
    return player_ <= 0;
}

std::vector<std::int16_t> spoken(const std::string& sentence, const std::string& voice) {
    const TemporaryFolder folder;
    const auto file = folder / "clip.wav";
    pid_t flite = begin({"flite", "-voice", voice, "-t", sentence, "-o", file}, folder.path());
    finish(flite, 0);
    std::ifstream wave(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(wave)), {});
    constexpr std::size_t head = 44;
    std::vector<std::int16_t> samples(bytes.size() > head ? (bytes.size() - head) / 2 : 0);
    std::memcpy(samples.data(), bytes.data() + head, samples.size() * 2);
    return samples;
}

} // namespace kelvadrome::test
