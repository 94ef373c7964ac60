#include "loads/Packages.h"

#include "support/Applications.h"
#include "support/ProgramRun.h"
#include "support/Waiting.h"

namespace {

constexpr int kPackages = 8;
constexpr char kUnpacks[] = "mkdir -p \"$4\" && tar -xf \"$5\" -C \"$4\"\n";

void Run(Sandbox& sandbox, const std::string& command) {
    const ProgramRun made =
        RunProgram(sandbox, {"/bin/sh", "-c", "cd /Users/Shared && " + command});
    if (made.status != 0) {
        throw Failed(command + ": " + made.errors);
    }
}

}  // namespace

std::vector<Package> MakePackages(Sandbox& sandbox) {
    InstallTool(sandbox, kAirInstaller, kUnpacks);
    InstallTool(sandbox, kPkexec, kAgrees);
    InstallRealTools(sandbox);
    sandbox.GiveToUser("/Applications");
    sandbox.MakeUsersFolder("/Applications/Tessel Dock");
    std::vector<Package> packages;
    for (int i = 0; i < kPackages; ++i) {
        const std::string name = "Soak" + std::to_string(i);
        const std::string shared = "/Users/Shared/" + name;
        const Package package = {name,
                                 "com.example.soak" + std::to_string(i),
                                 shared + ".air",
                                 shared + ".pkg",
                                 kAppsFolder + name + ".app",
                                 "/Applications/" + name + ".app"};
        MakeApplication(sandbox, "/Users/Shared/made/" + name + ".app", {package.identifier});
        sandbox.MakeUsersFile(
            package.native + "/Contents/Info.plist",
            "<?xml version=\"1.0\"?>\n<plist version=\"1.0\"><dict>"
            "<key>IFPkgFlagDefaultLocation</key><string>/Applications</string></dict></plist>\n");
        Run(sandbox, "tar -cf " + package.air + " -C made " + name + ".app && bsdtar -czf " +
                         package.native + "/Contents/Archive.pax.gz --format odc -C made .");
        Run(sandbox, "rm -r made/" + name + ".app");
        packages.push_back(package);
    }
    return packages;
}
