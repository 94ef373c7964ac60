#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <memory>
#include <system_error>

#include "driver/List.h"
#include "driver/Loop.h"
#include "driver/Options.h"
#include "driver/Recording.h"
#include "driver/Replay.h"
#include "driver/Say.h"
#include "driver/Screen.h"
#include "driver/Tablets.h"
#include "driver/TapServer.h"

namespace {

using namespace driver;

constexpr int kFailure = 1;
constexpr int kUsage = 2;

// SIGINT and SIGTERM as something to wait for: the end is reached on the loop, like everything
// else.
Descriptor EndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    Descriptor descriptor(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!descriptor.IsOpen()) {
        throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
    }
    return descriptor;
}

Screen ScreenToCover(const Options& options) {
    if (options.screen) return *options.screen;
    if (const std::optional<Screen> found = FindScreen()) return *found;
    Say("no screen was found; one of " + std::to_string(kUsualScreen.width) + "x" +
        std::to_string(kUsualScreen.height) + " is assumed (--screen says otherwise)");
    return kUsualScreen;
}

int RunTablets(const Options& options) {
    Loop loop;
    const Descriptor signals = EndSignals();
    loop.Watch(signals.Get(), EPOLLIN, [&](std::uint32_t) { loop.Stop(); });
    TapServer server(loop);
    const Tablets tablets(loop, server, ScreenToCover(options));
    loop.Run();
    return 0;
}

int RunReplay(const Options& options) {
    Recording recording(options.recording);
    if (recording.Problem().empty()) {
        Loop loop;
        const Descriptor signals = EndSignals();
        loop.Watch(signals.Get(), EPOLLIN, [&](std::uint32_t) { loop.Stop(); });
        TapServer server(loop);
        Replay replay(loop, server, recording, ScreenToCover(options), options.speed, options.taps);
        loop.Run();
    }
    if (recording.Problem().empty()) return 0;
    Say(recording.Problem());
    return kFailure;
}

int Print(const std::string& text) {
    if (std::fputs(text.c_str(), stdout) != EOF && std::fflush(stdout) == 0) return 0;
    Say("cannot write to standard output: " + std::generic_category().message(errno));
    return kFailure;
}

int Run(const Options& options) {
    if (!options.problem.empty()) {
        Say(options.problem + " (--help shows what there is)");
        return kUsage;
    }
    if (options.helps) {
        return Print(std::string(kHelp));
    }
    if (options.tellsVersion) {
        return Print("StylusPadDriver " STYLUSPAD_VERSION "\n");
    }
    if (options.lists) {
        return Print(ListOfTablets());
    }
    return options.recording.empty() ? RunTablets(options) : RunReplay(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(ParseOptions({argv + 1, argv + argc}));
    } catch (const std::exception& exception) {
        Say(exception.what());
        return kFailure;
    }
}
