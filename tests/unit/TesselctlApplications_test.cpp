// The commands about applications, as a person or a script runs them.

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <map>
#include <mutex>

#include "tesselctl/ApplicationRequest.h"
#include "tesselctl/Progress.h"
#include "unit/TesselctlTerminal.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctltest;
using Words = std::vector<std::string>;

constexpr const char* kId = "com.example.Clock";
constexpr const char* kAirId = "clock.0123456789ABCDEF0123456789ABCDEF01234567.1";

class TesselctlApplications : public testing::Test {
  protected:
    // Serves these commands, each with its answers in turn (the last one for good), and remembers
    // them.
    std::unique_ptr<ScriptedService> Serve(std::map<std::string, Words> answers) {
        auto service = std::make_unique<ScriptedService>(
            Authorizing([this, answers](const std::string& command) mutable {
                const std::lock_guard<std::mutex> lock(mutex);
                asked.push_back(command);
                const auto found = answers.find(command);
                if (found == answers.end()) return std::string("SyntaxError unexpected - none|");
                std::string answer = found->second.front();
                if (found->second.size() > 1) found->second.erase(found->second.begin());
                return answer + '|';
            }));
        home.WriteKeyFile(service->Port(), DeadPort(), DeadPort());
        return service;
    }

    Outcome Run(Words words) {
        words.insert(words.begin(), {"--home", home.Path()});
        return RunProgram(words);
    }

    // What a command says and its exit status, on whichever output.
    std::string Said(const Words& words) {
        const Outcome outcome = Run(words);
        return std::to_string(outcome.status) + ": " + outcome.output + outcome.errors;
    }

    std::string MakePackage(const std::string& name) {
        const std::string path = home.Path() + '/' + name;
        WriteFile(path, "package");
        return path;
    }

    Words Asked() {
        const std::lock_guard<std::mutex> lock(mutex);
        return asked;
    }

    TemporaryHome home;

  private:
    std::mutex mutex;
    Words asked;
};

TEST_F(TesselctlApplications, Questions_AreAnsweredInPlainWords) {
    const auto service = Serve({
        {"isNativeAppRunning com.example.Clock com.example.Clock",
         {"Success NativeAppIsRunning=com.example.Clock",
          "Success NativeAppIsNotRunning=com.example.Clock"}},
        {"isNativeAppInstalled com.example.Clock com.example.Clock",
         {"Success NativeAppIsInstalled=com.example.Clock",
          "Success NativeAppIsNotInstalled=com.example.Clock"}},
    });
    EXPECT_EQ("0: com.example.Clock is running\n", Said({"is-running", kId}));
    EXPECT_EQ("1: com.example.Clock is not running\n", Said({"is-running", kId}));
    EXPECT_EQ("0: com.example.Clock is installed\n", Said({"is-installed", kId}));
    EXPECT_EQ("1: com.example.Clock is not installed\n", Said({"is-installed", kId}));
    EXPECT_EQ("", Run({"is-installed", kId}).errors);
}

TEST_F(TesselctlApplications, AnIdentifierOfAir_IsAskedForInItsFamily) {
    const std::string id = kAirId;
    const auto service = Serve({
        {"isAirAppInstalled Clock " + id, {"Success AirAppIsInstalled=Clock"}},
        {"isNativeAppInstalled " + id + ' ' + id, {"Success NativeAppIsNotInstalled=" + id}},
        {"isNativeAppRunning " + id + ' ' + id, {"Success NativeAppIsRunning=" + id}},
        {"isAirAppInstalled com.example.Clock com.example.Clock",
         {"Success AirAppIsInstalled=com.example.Clock"}},
        {"startAirApplication " + id + ' ' + id, {"Success AirAppIsStarted=" + id}},
    });
    EXPECT_EQ("0: " + id + " is installed\n", Said({"is-installed", "--name", "Clock", id}));
    EXPECT_EQ("1: " + id + " is not installed\n", Said({"is-installed", "--native", id}));
    EXPECT_EQ("0: com.example.Clock is installed\n", Said({"is-installed", "--air", kId}));
    EXPECT_EQ("0: " + id + " is started\n", Said({"start", id}));
    // There is one command for both.
    EXPECT_EQ("0: " + id + " is running\n", Said({"is-running", id}));
}

TEST_F(TesselctlApplications, Start_TellsWhyItDidNot) {
    const auto service = Serve({
        {"startNativeApplication com.example.Clock com.example.Clock",
         {"Success NativeAppIsStarted=com.example.Clock",
          "Success NativeAppIsNotStarted=com.example.Clock"}},
        {"isNativeAppInstalled com.example.Clock com.example.Clock",
         {"Success NativeAppIsInstalled=com.example.Clock",
          "Success NativeAppIsNotInstalled=com.example.Clock"}},
    });
    EXPECT_EQ("0: com.example.Clock is started\n", Said({"start", kId}));
    EXPECT_EQ("1: tesselctl: com.example.Clock could not be started\n", Said({"start", kId}));
    EXPECT_EQ("1: tesselctl: com.example.Clock is not installed\n", Said({"start", kId}));
}

TEST_F(TesselctlApplications, Stop_OfOneThatDoesNotRunIsDoneAlready) {
    const auto service = Serve({
        {"isNativeAppRunning com.example.Clock com.example.Clock",
         {"Success NativeAppIsRunning=com.example.Clock",
          "Success NativeAppIsRunning=com.example.Clock",
          "Success NativeAppIsNotRunning=com.example.Clock"}},
        {"stopNativeApplication com.example.Clock com.example.Clock",
         {"Success NativeAppIsStopped=com.example.Clock",
          "Success NativeAppIsNotStopped=com.example.Clock"}},
    });
    EXPECT_EQ("0: com.example.Clock is stopped\n", Said({"stop", kId}));
    EXPECT_EQ("1: tesselctl: com.example.Clock could not be stopped\n", Said({"stop", kId}));
    EXPECT_EQ("0: com.example.Clock was not running\n", Said({"stop", kId}));
    EXPECT_EQ(5U, Asked().size());
}

TEST_F(TesselctlApplications, Remove_TellsWhatWasThere) {
    const auto service = Serve({
        {"isNativeAppInstalled com.example.Clock com.example.Clock",
         {"Success NativeAppIsInstalled=x", "Success NativeAppIsInstalled=x",
          "Success NativeAppIsNotInstalled=x"}},
        {"uninstallNativeApp com.example.Clock com.example.Clock",
         {"Success NativeAppUninstallStarted=x", "Success NativeAppUninstallFailed=x"}},
    });
    EXPECT_EQ("0: com.example.Clock is removed\n", Said({"remove", kId}));
    EXPECT_EQ(
        "1: tesselctl: com.example.Clock was not removed, or not all of it; the log of the service "
        "may tell why ('tesselctl log')\n",
        Said({"remove", kId}));
    EXPECT_EQ("1: tesselctl: com.example.Clock is not installed\n", Said({"remove", kId}));
    EXPECT_EQ(5U, Asked().size());
}

TEST_F(TesselctlApplications, InstallWithoutAnIdentifier_SaysOnlyWhatTheServiceSays) {
    const std::string package = MakePackage("My Clock.pkg");
    const std::string command =
        "installNativeApp \"My Clock.pkg\" \"My Clock.pkg\" \"" + package + '"';
    const auto service = Serve({{command,
                                 {"Success NativeAppInstallStarted=My Clock.pkg",
                                  "Success NativeAppInstallFailed=My Clock.pkg"}}});
    EXPECT_EQ(
        "0: the service says that the installation of My Clock.pkg was started; whether it is "
        "there shows only with its APP-ID\n",
        Said({"install", package}));
    EXPECT_EQ(
        "1: tesselctl: the service says that the installation of My Clock.pkg failed; the log of "
        "the service may tell why ('tesselctl log')\n",
        Said({"install", package}));
}

// The service's report of an installation with administrator rights need not be true.
TEST_F(TesselctlApplications, InstallWithAnIdentifier_LooksWhatIsThereAfterwards) {
    const std::string package = MakePackage("Clock.ZIP");
    const std::string is = "isNativeAppInstalled com.example.Clock com.example.Clock";
    const std::string install = "installNativeApp com.example.Clock com.example.Clock " + package;
    const std::string yes = "Success NativeAppIsInstalled=x";
    const std::string no = "Success NativeAppIsNotInstalled=x";
    const std::string started = "Success NativeAppInstallStarted=x";
    const std::string failed = "Success NativeAppInstallFailed=x";
    const auto service =
        Serve({{is, {no, yes, no, yes, no, no}}, {install, {started, failed, started}}});
    const Words words = {"install", package, kId};
    const std::string notInstalled =
        "1: tesselctl: com.example.Clock was not installed; the log of the service may tell why "
        "('tesselctl log')\n";
    EXPECT_EQ("0: com.example.Clock is installed\n", Said(words));
    EXPECT_EQ("0: com.example.Clock is installed\n", Said(words));
    EXPECT_EQ(notInstalled, Said(words));
}

// Whoever has dismissed the administrator's dialog is answered that it was started, and the old
// version is still there.
TEST_F(TesselctlApplications, UpgradeOfWhatWasThereBefore_SaysOnlyWhatTheServiceSays) {
    const std::string package = MakePackage("Clock.pkg");
    const auto service =
        Serve({{"isNativeAppInstalled com.example.Clock com.example.Clock",
                {"Success NativeAppIsInstalled=x"}},
               {"upgradeNativeApp com.example.Clock com.example.Clock " + package,
                {"Success NativeAppUpgradeStarted=x", "Success NativeAppUpgradeFailed=x"}}});
    const std::string before = "com.example.Clock was there before, and the service says that ";
    const std::string which = "; which of the two versions is there now it cannot tell\n";
    EXPECT_EQ("0: " + before + "the upgrade was started" + which, Said({"upgrade", package, kId}));
    EXPECT_EQ("1: tesselctl: " + before + "the upgrade failed" + which,
              Said({"upgrade", package, kId}));
}

TEST_F(TesselctlApplications, InstallAfterWhichItIsGone_HasFailed) {
    const std::string package = MakePackage("Clock.pkg");
    const auto service =
        Serve({{"isNativeAppInstalled com.example.Clock com.example.Clock",
                {"Success NativeAppIsInstalled=x", "Success NativeAppIsNotInstalled=x"}},
               {"installNativeApp com.example.Clock com.example.Clock " + package,
                {"Success NativeAppInstallStarted=x"}}});
    EXPECT_EQ(
        "1: tesselctl: com.example.Clock was not installed; the log of the service may tell why "
        "('tesselctl log')\n",
        Said({"install", package, kId}));
}

TEST_F(TesselctlApplications, AnAirPackage_IsInstalledAndUpgradedInItsFamily) {
    const std::string package = MakePackage("clock.air");
    const std::string id = kAirId;
    const auto service = Serve({
        {"isAirAppInstalled Clock " + id,
         {"Success AirAppIsNotInstalled=Clock", "Success AirAppIsInstalled=Clock"}},
        {"installAirApp Clock " + id + ' ' + package, {"Success AirAppInstallStarted=Clock"}},
        {"upgradeAirApp Clock " + id + ' ' + package, {"Success AirAppUpgradeStarted=Clock"}},
    });
    EXPECT_EQ("0: " + id + " is installed\n", Said({"install", "--name=Clock", package, id}));
    EXPECT_EQ("0: " + id +
                  " was there before, and the service says that the upgrade was started; which of "
                  "the two versions is there now it cannot tell\n",
              Said({"upgrade", package, id, "--name", "Clock"}));
}

TEST_F(TesselctlApplications, ARelativePackage_IsNamedWhole) {
    MakePackage("Clock.pkg");
    const auto service = Serve({});
    const std::string command = "cd '" + home.Path() + "' && " TESSELCTL_PROGRAM " --home '" +
                                home.Path() + "' install ./Clock.pkg 2>/dev/null";
    EXPECT_EQ(2, WEXITSTATUS(std::system(command.c_str())));
    EXPECT_EQ((Words{"installNativeApp Clock.pkg Clock.pkg " + home.Path() + "/Clock.pkg"}),
              Asked());
}

TEST_F(TesselctlApplications, WhatTheServiceDoesNotUnderstand_IsTold) {
    const auto service = Serve({
        {"isNativeAppRunning com.example.Clock com.example.Clock", {"Success \033[2J", "True"}},
    });
    Outcome outcome = Run({"is-running", kId});
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("tesselctl: isNativeAppRunning got an answer of another command:  [2J\n",
              outcome.errors);
    EXPECT_EQ("2: tesselctl: isNativeAppInstalled was not understood: unexpected - none\n",
              Said({"is-installed", kId}));
}

TEST_F(TesselctlApplications, Mistakes_ExitWithSixtyFourBeforeAnythingIsSent) {
    const auto check = [&](const Words& words, const std::string& complaint) {
        EXPECT_EQ("64: tesselctl: " + complaint + "\n", Said(words));
    };
    const std::string help = " (see 'tesselctl --help')";
    check({"start"}, "which application?" + help);
    check({"stop", ""}, "which application?" + help);
    check({"is-running", "a", "b"}, "one APP-ID at a time" + help);
    check({"start", "--fast", "a"}, "there is no option --fast" + help);
    check({"start", "--name", "", "a"}, "--name needs a name" + help);
    // To the service one of blanks is empty, and there is nothing to do.
    check({"remove", "--name", "  ", "a"}, "--name needs a name" + help);
    check({"remove", " "}, "which application?" + help);
    check({"install", MakePackage("a.pkg"), " "}, "an APP-ID has more than blanks" + help);
    check({"start", "a|b"},
          "the APP-ID holds a vertical bar, which ends a command and cannot be sent");
    check({"start", "--name", "a\nb", "a"}, "the name holds a line feed, which the service drops");
    check({"remove", "a/b"}, "the name must not hold a slash: a/b");
    check({"install"}, "which package?" + help);
    check({"install", "a", "b", "c"}, "one package and one APP-ID at the most" + help);
    check({"install", "/etc/passwd"},
          "/etc/passwd ends neither in .air nor in .pkg or .zip: say --air or --native" + help);
    check({"install", "/none/\033clock.pkg"}, "there is no /none/^[clock.pkg");
    check({"upgrade", "/none/clock.air"},
          "an AIR application needs its APP-ID behind the package" + help);
    check({"install", MakePackage("it's.pkg")},
          "the service cannot install from a path with the character ': " + home.Path() +
              "/it's.pkg");
    check({"install", MakePackage("$(x).air"), kAirId},
          "the service cannot install from a path with the character $: " + home.Path() +
              "/$(x).air");
    check({"install", MakePackage("\u00FChr.pkg")},
          "the service cannot install from a path with characters that are not ASCII: " +
              home.Path() + "/\u00FChr.pkg");
}

TEST_F(TesselctlApplications, WhatIsFineForOneFamily_MayBeUnspeakableForTheOther) {
    const std::string package = MakePackage("it's.air");
    const std::string id = kAirId;
    const auto service = Serve({
        {"isAirAppInstalled " + id + ' ' + id, {"Success AirAppIsInstalled=x"}},
        {"installAirApp " + id + ' ' + id + " \"" + package + '"',
         {"Success AirAppInstallStarted=x"}},
    });
    EXPECT_EQ("0: " + id +
                  " was there before, and the service says that the installation was started; "
                  "which of the two versions is there now it cannot tell\n",
              Said({"install", package, id}));
}

TEST_F(TesselctlApplications, OnATerminal_ALineShowsThatItGoesOn) {
    std::atomic<bool> seen{false};
    const std::string package = MakePackage("Clock.pkg");
    ScriptedService service(Authorizing([&](const std::string&) {
        while (!seen)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return "Success NativeAppInstallStarted=Clock|";
    }));
    home.WriteKeyFile(service.Port(), DeadPort(), DeadPort());
    Terminal terminal(home.Path(), {"install", package});
    terminal.WaitFor("\r| installing Clock.pkg  0:00");
    terminal.WaitFor("\r/ installing Clock.pkg  0:00");
    terminal.WaitFor("installing Clock.pkg  0:01");
    seen = true;
    terminal.WaitFor("\r" + std::string(28, ' ') +
                     "\rthe service says that the installation of Clock.pkg was started");
    EXPECT_EQ(0, terminal.WaitForEnd());
}

TEST_F(TesselctlApplications, OnAPipe_NothingShowsThatItGoesOn) {
    const std::string package = MakePackage("Clock.pkg");
    // Twice as long as what counts as quick.
    ScriptedService service(Authorizing([&](const std::string&) {
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        return "Success NativeAppInstallStarted=Clock|";
    }));
    home.WriteKeyFile(service.Port(), DeadPort(), DeadPort());
    const Outcome outcome = Run({"install", package});
    EXPECT_EQ(
        "the service says that the installation of Clock.pkg was started; whether it is there "
        "shows only with its APP-ID\n",
        outcome.output);
    EXPECT_EQ("", outcome.errors);
}

TEST_F(TesselctlApplications, ControlC_EndsTheWaitingAndNotTheInstallation) {
    std::atomic<bool> installing{false};
    ScriptedService service([&](Client& client, int) {
        client.Read();
        client.Send("authOk|");
        installing = client.Read().substr(0, 16) == "installNativeApp";
        client.WaitForGoodbye();
    });
    home.WriteKeyFile(service.Port(), DeadPort(), DeadPort());
    RunningProgram program({"--home", home.Path(), "install", MakePackage("Clock.pkg")});
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!installing && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    program.Signal(SIGINT);
    const Outcome outcome = program.Finish();
    EXPECT_EQ(128 + SIGINT, outcome.status);
    EXPECT_EQ("tesselctl: no longer waiting for installNativeApp; the service goes on with it\n",
              outcome.errors);
}

TEST(TesselctlApplicationRequest, IdentifiersOfAir_AreKnownByTheirForm) {
    using tesselctl::IsAirIdentifier;
    EXPECT_TRUE(IsAirIdentifier(kAirId));
    EXPECT_TRUE(IsAirIdentifier("a.b.0123456789abcdef0123456789abcdef01234567.12"));
    EXPECT_FALSE(IsAirIdentifier(kId));
    EXPECT_FALSE(IsAirIdentifier(""));
    EXPECT_FALSE(IsAirIdentifier(".0123456789abcdef0123456789abcdef01234567."));
    EXPECT_FALSE(IsAirIdentifier("0123456789abcdef0123456789abcdef01234567.1"));
    EXPECT_FALSE(IsAirIdentifier("a.0123456789abcdef0123456789abcdef0123456.1"));
    EXPECT_FALSE(IsAirIdentifier("a.0123456789abcdef0123456789abcdef0123456g.1"));
    EXPECT_FALSE(IsAirIdentifier("a.0123456789abcdef0123456789abcdef01234567.x"));
}

TEST(TesselctlProgress, ATime_IsShownAsAClockDoes) {
    using std::chrono::seconds;
    using tesselctl::ClockText;
    EXPECT_EQ("0:00", ClockText(seconds(0)));
    EXPECT_EQ("0:59", ClockText(seconds(59)));
    EXPECT_EQ("12:05", ClockText(seconds(725)));
    EXPECT_EQ("1:00:01", ClockText(seconds(3601)));
}

}  // namespace
