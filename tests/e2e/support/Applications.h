// Applications in a sandbox, and the tools by which they are installed, removed and opened.
//
// The tools are stand-ins that write down how they are called; what they do beyond that is a piece
// of shell script of the test's. Rights of an administrator are played: what they protect is only
// closed to writing, and the stand-in for pkexec opens it, because nothing in a sandbox can become
// root. All throw Failed.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/Client.h"
#include "support/Sandbox.h"
#include "support/Service.h"

constexpr char kAppsFolder[] = "/Applications/Tessel Dock/Apps/";
constexpr char kAirInstaller[] =
    "/Library/Frameworks/Adobe AIR.framework/Versions/Current/Adobe AIR Application "
    "Installer.app/Contents/MacOS/Adobe AIR Application Installer";
constexpr char kAirInstallerName[] = "Adobe AIR Application Installer";
constexpr char kPkexec[] = "/stand-ins/pkexec";
// The service's own, for the sandbox's user.
constexpr char kTemporaryFolder[] = "/tmp/TemporaryItems-1000/";

// What a program does until it is asked to end, and one that does not listen.
constexpr char kStays[] = "while :; do /bin/sleep 0.05; done\n";
constexpr char kIgnoresQuit[] = "trap '' TERM\nwhile :; do /bin/sleep 0.05; done\n";

// What pkexec does when the user agrees. It goes to root's home unless it is told to stay.
constexpr char kAgrees[] =
    "[ \"$1\" = --disable-internal-agent ] || exit 99\n"
    "shift\n"
    "if [ \"$1\" = --keep-cwd ]; then shift; else cd /tmp; fi\n"
    "chmod -R u+w /Applications\n"
    "export ELEVATED=1\n"
    "exec \"$@\"\n";

struct Application {
    std::string identifier;
    // Shell script; the program first leaves its process number in /tmp/NAME.pids, NAME being the
    // bundle's without ".app".
    std::string program = kStays;
    std::string executable = "Program";
    // The whole Info.plist, when it is not to be what follows from the rest.
    std::string infoPlist = {};
};

// The sandbox's user owns it. PATH ends in ".app".
void MakeApplication(const Sandbox& sandbox, const std::string& path,
                     const Application& application);
// The process numbers of its programs, in the order of their starts.
std::vector<pid_t> StartsOf(const Sandbox& sandbox, const std::string& name);
bool IsRunning(Sandbox& sandbox, pid_t program);

// Puts a stand-in at PATH that does what the script DOES says.
void InstallTool(const Sandbox& sandbox, const std::string& path, const std::string& does = {});
// Its calls so far, one a line, every argument followed by a bar.
std::string CallsOf(const Sandbox& sandbox, const std::string& name);

// The stand-ins of frameworks/tools, where the service looks for ditto and installer.
void InstallRealTools(const Sandbox& sandbox);

// Takes from everybody the right to change what is in a folder.
void Protect(const Sandbox& sandbox, const std::string& folder);

// A start of the service with one environment variable more, or another one.
Start With(const std::string& variable, const std::string& value);

// The service with a client that has presented the key.
class ApplicationsTest : public testing::Test {
  protected:
    explicit ApplicationsTest(std::vector<std::string> more = {}, Start start = {})
        : sandbox(std::move(more)), service(sandbox, std::move(start)) {}

    std::string Ask(const std::string& command) { return client.Ask(command); }
    // What has been printed since the last call.
    std::string Printed();
    // Asks COMMAND, which has to be answered with REPLY; what was printed between the two.
    std::string PrintedFor(const std::string& command, const std::string& reply);

    Sandbox sandbox;
    Service service;
    Client client = service.WaitUntilListening().Authorized();

  private:
    std::size_t seen = 0;
};
