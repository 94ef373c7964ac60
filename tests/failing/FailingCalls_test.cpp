// The service while calls of one kind fail: every n-th of them, or the k-th alone. It never
// crashes, leaves every file whole, and serves as before once they succeed again.
//
// With TESSEL_FULL_COUNTS in the environment every single call is made to fail once.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>

#include "Control.h"
#include "support/Applications.h"
#include "support/Files.h"
#include "support/Picture.h"
#include "support/PropertyLists.h"
#include "support/Service.h"

namespace {

using testing::AnyOf;
using testing::StartsWith;

namespace fs = std::filesystem;

constexpr char kLibraryInside[] = "/failing-calls.so";
constexpr char kControlInside[] = "/tmp/failing-calls";
constexpr char kDraw[] = "/Applications/Draw.app";
constexpr char kNotes[] = "/Applications/Notes.app";
constexpr char kUninstall[] = "uninstallAirApp Notes com.example.notes";
constexpr char kIcon[] = "/Users/Shared/icon.png";
constexpr char kPreferences[] = "/Users/anna/Library/Preferences";
constexpr char kShared[] = "/Users/Shared/Velto/Data";
constexpr std::size_t kPixels = 128 * 128;

struct Kind {
    CallKind kind;
    const char* name;
    std::vector<int> errors;
};

std::ostream& operator<<(std::ostream& stream, const Kind& kind) {
    return stream << kind.name;
}

bool FullCounts() {
    return std::getenv("TESSEL_FULL_COUNTS") != nullptr;
}

// The page that the library in the service and this test share.
class ControlPage {
  public:
    explicit ControlPage(const Sandbox& sandbox) {
        const fs::path path = sandbox.Outside(kControlInside);
        WriteFile(path, std::string(sizeof(Control), '\0'));
        fs::permissions(path, fs::perms(0666));
        const Descriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC));
        void* const mapped =
            mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, file.Get(), 0);
        if (mapped == MAP_FAILED) {
            throw Failed("cannot map " + path.string());
        }
        page = static_cast<Control*>(mapped);
    }
    ~ControlPage() { munmap(page, sizeof(Control)); }
    ControlPage(const ControlPage&) = delete;
    ControlPage& operator=(const ControlPage&) = delete;

    void FailEvery(const Kind& kind, std::uint32_t every) { Fail(kind, every, 0); }
    void FailOnce(const Kind& kind, std::uint32_t number) { Fail(kind, 0, number); }
    // Nothing fails; the calls are counted.
    void Count(const Kind& kind) { Fail(kind, 0, 0); }
    void Stop() { page->kind = kNothing; }
    std::uint32_t Calls() const { return page->calls; }
    std::uint32_t FailedCalls() const { return page->failed; }
    std::uint32_t SparedCalls() const { return page->spared; }
    // Of the one call that was to fail.
    std::string Callers() const {
        std::string text;
        for (const char* const caller : page->callers) {
            text += caller[0] == '\0' ? "" : std::string("\n  ") + caller;
        }
        return text;
    }
    bool IsMappedByTheService() const { return page->process != 0; }
    // For the next one that is started.
    void AwaitService() { page->process = 0; }

  private:
    void Fail(const Kind& kind, std::uint32_t every, std::uint32_t once) {
        Stop();
        page->every = every;
        page->once = once;
        for (std::size_t i = 0; i < std::size(page->errors); ++i) {
            page->errors[i] = i < kind.errors.size() ? kind.errors[i] : 0;
        }
        page->calls = 0;
        page->failed = 0;
        page->spared = 0;
        page->kind = kind.kind;
    }

    Control* page = nullptr;
};

// An icon file with 128 by 128 raw pixels.
std::string Icns() {
    const auto bigEndian = [](std::size_t number) {
        std::string bytes;
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes += static_cast<char>(number >> shift & 0xFF);
        }
        return bytes;
    };
    const std::string pixels(4 * kPixels, '\x7F');
    return "icns" + bigEndian(pixels.size() + 16) + "it32" + bigEndian(pixels.size() + 8) + pixels;
}

Start WithTheLibrary() {
    Start start;
    const std::string before = FAILING_CALLS_BEFORE;
    start.environment["LD_PRELOAD"] =
        before.empty() ? kLibraryInside : before + ":" + kLibraryInside;
    start.environment[kControlVariable] = kControlInside;
    return start;
}

class FailingCalls : public testing::TestWithParam<Kind> {
  protected:
    FailingCalls() {
        sandbox.MakeUsersFolder(Service::kDock);
        sandbox.MakeUsersFile(Service::kLogFile, "");
        sandbox.GiveToUser("/Applications");
        sandbox.MakeUsersFolder(kShared);
        MakeApplication(sandbox, kDraw,
                        {"com.example.draw", "exit 0\n", "Program",
                         "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict>"
                         "<key>CFBundleIdentifier</key><string>com.example.draw</string>"
                         "<key>CFBundleExecutable</key><string>Program</string>"
                         "<key>CFBundleIconFile</key><string>AppIcon</string></dict></plist>\n"});
        sandbox.MakeUsersFile(std::string(kDraw) + "/Contents/Resources/AppIcon.icns", Icns());
        InstallTool(sandbox, kPkexec, kAgrees);
    }

    void SetUp() override {
        if (GetParam().kind == kMemory && kSanitized) {
            GTEST_SKIP() << "a sanitizer brings an allocator of its own";
        }
    }

    void MakeNotes() {
        if (!fs::exists(sandbox.Outside(kNotes))) {
            MakeApplication(sandbox, kNotes, {"com.example.notes"});
        }
        // So that a script has to remove it.
        Protect(sandbox, std::string(kNotes) + "/Contents");
    }

    struct Question {
        const char* command;
        // With which the answer begins when nothing fails.
        const char* answer;
    };

    static const std::vector<Question>& Questions() {
        static const auto& questions = *new std::vector<Question>{
            {"platform", "Success MACOSX"},
            {"nonsense", "SyntaxError Unknown command - "},
            {"createUUID", "Success UUID={"},
            {"checkExists /Users/Shared", "True"},
            {"getLocalCountryCode", "Success LocalCountryCode="},
            {"userCanPerformDockUpdate", "Success UserCanPerformDockUpdate=false"},
            {"setAsStartup", "Success "},
            {"associateFileTypes abc 'd e' f", "True"},
            {"getIcon /Applications/Draw.app", "IconReady"},
            {"fixDirectoryPermissions /Users/Shared/Velto/Data",
             "Success DirectoryPermissionsFixed="},
            {"isAirAppInstalled Draw com.example.draw", "Success AirAppIsInstalled=Draw"},
            {"startAirApplication com.example.draw", "Success "},
            {"isNativeAppInstalled draw com.example.draw", "Success NativeAppIsInstalled=draw"},
            {"isNativeAppRunning draw com.example.draw", "Success NativeAppIs"},
            {"unassociateFileTypes 'd e'", "True"},
            {"removeAsStartup", "Success "},
        };
        return questions;
    }

    // When all of these fail there is nothing that the service could live from; see below for
    // memory. Of interrupted calls, every other one is every recv: it waits, is interrupted, and
    // waits again.
    static std::uint32_t LeastOfWhichSomeSucceed() {
        switch (GetParam().kind) {
            case kMemory:
            case kAccept:
                return 1;
            case kInterrupt:
                return 2;
            default:
                return 0;
        }
    }

    // The script takes a second, and asks for memory as everything else does.
    static bool ScriptsAreOfInterest() {
        return GetParam().kind == kOpen || GetParam().kind == kWrite || GetParam().kind == kFork;
    }

    // All of it is answered, whatever the answer may be.
    void AskAll(Client& command) {
        for (const Question& question : Questions()) {
            command.Ask(question.command);
        }
        if (ScriptsAreOfInterest()) {
            MakeNotes();
            command.Ask(kUninstall);
        }
        Client listener = service->ConnectToPressure();
        listener.Ask("nonsense");
        Client first = service->ConnectToApps();
        Client second = service->ConnectToApps();
        first.Ask("registerChannel first");
        second.Ask("registerChannel second");
        second.Ask("sendDataToChannel first data id");
    }

    // Everything is answered as if nothing had happened.
    void ExpectToServe() {
        Client command = service->Authorized();
        for (const Question& question : Questions()) {
            EXPECT_THAT(command.Ask(question.command), StartsWith(question.answer))
                << question.command;
        }
        if (ScriptsAreOfInterest()) {
            MakeNotes();
            EXPECT_EQ(command.Ask(kUninstall), "Success AirAppUninstallStarted=Notes");
        }
        EXPECT_THAT(service->ConnectToPressure().Ask("nonsense"),
                    StartsWith("SyntaxError Unknown command - "));
        Client first = service->ConnectToApps();
        EXPECT_EQ(first.Ask("registerChannel first"), "Success ChannelRegistered=true");
        Client second = service->ConnectToApps();
        EXPECT_EQ(second.Ask("registerChannel second"), "Success ChannelRegistered=true");
        EXPECT_EQ(first.Receive(), "BroadcastRegisteredChannel=second");
        EXPECT_EQ(second.Ask("sendDataToChannel first data id"), "Success DataSentToChannel=id");
        EXPECT_EQ(first.Receive(), "ForwardDataToChannel second data");
        ReadPng(sandbox.Outside(kIcon));
    }

    // Whatever of the service's is in a file is the whole of something.
    void ExpectWholeFiles() {
        const std::string key = ReadFileIfAny(sandbox.Outside(Service::kKeyFile));
        if (!key.empty() || fs::exists(sandbox.Outside(Service::kKeyFile))) {
            EXPECT_THAT(key, StartsWith("<?xml version"));
            EXPECT_TRUE(Contains(key, "</root> \n")) << key;
        }
        ExpectOnly(Service::kSupportFolder, {"tesselAuth.key", "Tessel Dock"});
        ExpectOnly("/Users/Shared", {"icon.png", "Velto"});
        if (fs::exists(sandbox.Outside(kIcon))) {
            EXPECT_EQ(ReadPng(sandbox.Outside(kIcon)).pixels.size(), 4 * kPixels);
        }
        if (fs::exists(sandbox.Outside(kPreferences))) {
            for (const auto& entry : fs::directory_iterator(sandbox.Outside(kPreferences))) {
                EXPECT_EQ(entry.path().extension(), ".plist");
                EXPECT_NO_THROW(ContentOf(entry.path())) << entry.path();
            }
        }
        const fs::path temporary = sandbox.Outside(kTemporaryFolder);
        if (fs::exists(temporary)) {
            for (const auto& entry : fs::directory_iterator(temporary)) {
                if (entry.is_regular_file()) {
                    const std::string script = ReadFile(entry.path());
                    EXPECT_TRUE(script.empty() || script.back() == '\n') << entry.path();
                }
            }
        }
    }

    void ExpectOnly(const std::string& folder, const std::vector<std::string>& names) {
        if (fs::exists(sandbox.Outside(folder))) {
            for (const auto& entry : fs::directory_iterator(sandbox.Outside(folder))) {
                EXPECT_THAT(names, testing::Contains(entry.path().filename().string()));
            }
        }
    }

    void StartService() {
        control.AwaitService();
        service.emplace(sandbox, WithTheLibrary());
        service->WaitUntilListening().WaitUntilBothThreadsServe();
        ASSERT_TRUE(control.IsMappedByTheService());
    }

    Sandbox sandbox{{"--ro-bind", FAILING_CALLS_LIBRARY, kLibraryInside}};
    ControlPage control{sandbox};
    std::optional<Service> service;
};

TEST_P(FailingCalls, EveryNth_AreSurvivedAndForgotten) {
    std::uint32_t all = 0;
    for (const std::uint32_t every : FullCounts()
                                         ? std::vector<std::uint32_t>{97, 50, 13, 7, 5, 3, 2, 1}
                                         : std::vector<std::uint32_t>{3, 1}) {
        if (every <= LeastOfWhichSomeSucceed()) {
            continue;
        }
        SCOPED_TRACE("every " + std::to_string(every));
        // A new one, for what is done on first use only.
        service.reset();
        StartService();
        try {
            Client command = service->Authorized();
            control.FailEvery(GetParam(), every);
            AskAll(command);
            control.Stop();
        } catch (const Failed& failure) {
            FAIL() << failure.what() << "; the last call that failed was made by"
                   << control.Callers();
        }
        // One may be under way: it is counted before it is refused.
        WaitUntil("every n-th call has been refused or spared", [&] {
            return control.FailedCalls() + control.SparedCalls() == control.Calls() / every;
        });
        EXPECT_EQ(control.FailedCalls() + control.SparedCalls(), control.Calls() / every);
        all += control.FailedCalls();
        ASSERT_TRUE(service->Running());
        ExpectWholeFiles();
        ExpectToServe();
        ExpectWholeFiles();
    }
    EXPECT_GT(all, 0U);
    std::cout << "figure: " << all << " failed calls of the kind " << GetParam().name
              << ", every n-th\n";
}

TEST_P(FailingCalls, AnyOneOfThem_IsSurvivedAndForgotten) {
    StartService();
    {
        Client command = service->Authorized();
        control.Count(GetParam());
        AskAll(command);
        control.Stop();
    }
    const std::uint32_t calls = control.Calls();
    ASSERT_GT(calls, 0U);
    const std::uint32_t step = FullCounts() ? 1 : std::max(1U, calls / 2);
    std::uint32_t all = 0;
    for (std::uint32_t number = 1; number <= calls; number += step) {
        SCOPED_TRACE("number " + std::to_string(number) + " of " + std::to_string(calls));
        try {
            Client command = service->Authorized();
            control.FailOnce(GetParam(), number);
            AskAll(command);
            control.Stop();
        } catch (const Failed& failure) {
            FAIL() << failure.what() << "; the call that failed was made by" << control.Callers();
        }
        all += control.FailedCalls();
        ASSERT_TRUE(service->Running()) << control.Callers();
        ExpectWholeFiles();
    }
    ExpectToServe();
    EXPECT_GT(all, 0U);
    std::cout << "figure: " << all << " of " << calls << " calls of the kind " << GetParam().name
              << " failed, one at a time\n";
}

// It serves, or ends in order and says why; either way the next start serves.
TEST_P(FailingCalls, AnyOneAtTheStart_LetsItServeOrSayWhyNot) {
    control.AwaitService();
    control.Count(GetParam());
    {
        Service counted(sandbox, WithTheLibrary());
        counted.WaitUntilListening().WaitUntilBothThreadsServe();
        control.Stop();
    }
    const std::uint32_t calls = control.Calls();
    const std::uint32_t step = FullCounts() ? 1 : std::max(1U, calls / 2);
    std::uint32_t all = 0;
    std::uint32_t served = 0;
    std::uint32_t starts = 0;
    for (std::uint32_t number = 1; number <= calls; number += step) {
        SCOPED_TRACE("number " + std::to_string(number) + " of " + std::to_string(calls));
        const std::string before = ReadFileIfAny(sandbox.Outside(Service::kKeyFile));
        control.AwaitService();
        control.FailOnce(GetParam(), number);
        Service started(sandbox, WithTheLibrary());
        const auto hasKeyFile = [&] {
            return ReadFileIfAny(sandbox.Outside(Service::kKeyFile)) != before;
        };
        const auto saysWhyNot = [&] {
            return Contains(started.OutputSoFar(), "Unable to open key authorization file");
        };
        const auto serves = [&] {
            return Contains(started.OutputSoFar(), "Start pressure processing thread.");
        };
        WaitUntil("it serves, says why not, or ends",
                  [&] { return !started.Running() || serves() || saysWhyNot(); });
        ++starts;
        all += control.FailedCalls();
        if (started.Running() && hasKeyFile()) {
            EXPECT_EQ(started.WaitUntilListening().Authorized().Ask("platform"), "Success MACOSX");
            ++served;
        } else if (!started.Running()) {
            EXPECT_THAT(started.WaitForExit(), AnyOf(Exit::Status(0), Exit::Status(1)))
                << control.Callers();
            EXPECT_FALSE(Contains(started.Output(), "[CRASH]")) << control.Callers();
            EXPECT_FALSE(started.Output().empty() && started.Errors().empty());
        }
        control.Stop();
        ExpectWholeFiles();
    }
    StartService();
    ExpectToServe();
    std::cout << "figure: " << starts << " starts with one failed call of the kind "
              << GetParam().name << " (" << all << " of " << calls << " calls), " << served
              << " of them served\n";
}

INSTANTIATE_TEST_SUITE_P(OfTheKind, FailingCalls,
                         testing::Values(Kind{kMemory, "Memory", {ENOMEM}},
                                         Kind{kOpen, "Open", {EMFILE, EACCES, ENOSPC}},
                                         Kind{kWrite, "Write", {ENOSPC}},
                                         Kind{kRename, "Rename", {ENOSPC, EACCES}},
                                         Kind{kFork, "Fork", {EAGAIN}},
                                         Kind{kAccept, "Accept", {EMFILE, ECONNABORTED}},
                                         Kind{kInterrupt, "Interrupt", {EINTR}}),
                         [](const auto& test) { return std::string(test.param.name); });

class NoMemory : public FailingCalls {};

TEST_P(NoMemory, AtAll_EndsTheServiceInOrder) {
    StartService();
    Client command = service->Authorized();
    control.FailEvery(GetParam(), 1);
    command.Send("platform|");
    EXPECT_EQ(service->WaitForExit(), Exit::Status(1));
    EXPECT_TRUE(Contains(service->Errors(), "TesselCore: out of memory\n")) << service->Errors();
    ExpectWholeFiles();
}

TEST_P(NoMemory, ForAMoment_IsWaitedOut) {
    StartService();
    {
        Client command = service->Authorized();
        control.FailEvery(GetParam(), 1);
        command.Send("platform|");
        WaitUntil("the service has been refused", [&] { return control.FailedCalls() > 3; });
        control.Stop();
        EXPECT_EQ(command.Receive(), "Success MACOSX");
    }
    ExpectToServe();
}

INSTANTIATE_TEST_SUITE_P(OfTheKind, NoMemory, testing::Values(Kind{kMemory, "Memory", {ENOMEM}}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
