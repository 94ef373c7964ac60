#include "unit/ApplicationTesting.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Support/Proc.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace applicationtest {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kOrdinaryUser = 65534;
constexpr int kCouldNot = 77;

std::string Key(const std::string& key, const std::string& value) {
    if (value.empty()) return std::string();
    return "<key>" + key + "</key><string>" + value + "</string>\n";
}

}  // namespace

FSRef RefOf(const std::string& path) {
    FSRef ref = {};
    FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, nullptr);
    return ref;
}

std::string PathOf(const FSRef& ref) {
    UInt8 path[8192];
    const OSStatus status = FSRefMakePath(&ref, path, sizeof path);
    return status == 0 ? reinterpret_cast<const char*>(path) : "status " + std::to_string(status);
}

std::string ReadWhole(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void MakeFolder(const std::string& path) {
    fs::create_directories(path);
    EXPECT_TRUE(fs::is_directory(path));
}

void WriteProgram(const std::string& path, const std::string& text) {
    filestest::WriteFile(path, text);
    EXPECT_EQ(chmod(path.c_str(), 0755), 0);
}

void MakeBundle(const std::string& path, const Bundle& bundle) {
    MakeFolder(path + "/Contents/MacOS");
    filestest::WriteFile(path + "/Contents/Info.plist",
                         "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                         "<key>CFBundlePackageType</key><string>APPL</string>\n" +
                             Key("CFBundleIdentifier", bundle.identifier) +
                             Key("CFBundleExecutable", bundle.executable) +
                             Key("CFBundleVersion", bundle.version) + "</dict></plist>\n");
    if (!bundle.program.empty()) {
        const std::string name =
            bundle.executable.empty() ? fs::path(path).stem().string() : bundle.executable;
        WriteProgram(path + "/Contents/MacOS/" + name, bundle.program);
    }
}

void AsOrdinaryUser(const std::function<void()>& work) {
    filestest::InAChild([&work] {
        if (geteuid() == 0) {
            ASSERT_EQ(setgroups(0, nullptr), 0);
            ASSERT_EQ(setgid(kOrdinaryUser), 0);
            ASSERT_EQ(setuid(kOrdinaryUser), 0);
        }
        work();
    });
}

bool WithMountsOfItsOwn(const std::function<void()>& work) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            _exit(kCouldNot);
        }
        work();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kCouldNot) return false;
    EXPECT_EQ(status, 0) << "in the child process";
    return true;
}

std::vector<pid_t> Programs::Pids() const {
    std::vector<pid_t> pids;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const pid_t pid = std::atoi(ReadWhole(entry.path()).c_str());
        if (entry.path().filename().string().compare(0, 3, "pid") == 0 && pid > 0) {
            pids.push_back(pid);
        }
    }
    return pids;
}

bool Programs::Wait(std::size_t count) const {
    return WaitUntil([&] { return Pids().size() >= count; });
}

Programs::~Programs() {
    for (const pid_t pid : Pids()) {
        kill(pid, SIGKILL);
    }
}

bool IsRunning(pid_t pid) {
    const auto process = frameworks::StatusOf(pid);
    return process && !process->isZombie;
}

std::string StayingProgram(const std::string& folder) {
    // The shell stays, because whatever it became would be no program of the bundle any more.
    return "#!/bin/sh\necho $$ > '" + folder + "/pid.'$$\nwhile :; do /bin/sleep 0.1; done\n";
}

}  // namespace applicationtest
