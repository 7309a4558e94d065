// ProcessRunner on /bin/true against a bare posix_spawn and wait.

#include "Kelvadrome/platform/linux/process/ProcessRunner.h"

#include <boost/asio/io_context.hpp>

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace kelvadrome;

namespace {

Task<> runs(CommandRunning* runner, benchmark::State* state) {
    const RunCommand command{"/bin/true", {}, 0};
    for (auto _ : *state) {
        const auto output = co_await runner->run(command, 5.0);
        if (output.status != 0)
            state->SkipWithError("/bin/true failed");
    }
}

void processOurs(benchmark::State& state) {
    asio::io_context loop(1);
    BackgroundPool pool;
    ProcessRunner runner(pool);
    asio::co_spawn(loop, runs(&runner, &state), [](std::exception_ptr error) {
        if (error)
            std::rethrow_exception(error);
    });
    loop.run();
}

void processBare(benchmark::State& state) {
    char name[] = "/bin/true";
    char* arguments[] = {name, nullptr};
    for (auto _ : state) {
        pid_t pid = 0;
        int status = 0;
        if (::posix_spawn(&pid, name, nullptr, nullptr, arguments, environ) != 0 ||
            ::waitpid(pid, &status, 0) != pid || status != 0) {
            state.SkipWithError("posix_spawn failed");
        }
    }
}

} // namespace

BENCHMARK(processOurs)->UseRealTime();
BENCHMARK(processBare)->UseRealTime();
