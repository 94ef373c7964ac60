// The stand-ins for the Mac's command-line tools: ditto and installer, run as the service runs
// them. Archives and packages are made with bsdtar.

#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"

namespace {

namespace fs = std::filesystem;

using applicationtest::MakeFolder;
using applicationtest::ReadWhole;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;
using filestest::WriteFile;

// For the shell.
std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char letter : text) {
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return quoted + "'";
}

const std::string& ToolsFolder() {
    static const std::string& folder = *new std::string(fs::canonical(
        fs::path(__FILE__).parent_path().parent_path().parent_path() / "frameworks/tools"));
    return folder;
}

struct Result {
    int status;
    std::string output;
    std::string errors;
};

class StandInTools : public testing::Test {
  protected:
    StandInTools() {
        fs::permissions(folder.Path(), fs::perms::all);
        MakeFolder(folder / "from");
        MakeFolder(folder / "to");
        fs::permissions(folder / "to", fs::perms::all);
    }

    static bool Can(const char* program) {
        return std::system((std::string("command -v ") + program + " >/dev/null").c_str()) == 0;
    }

    void SetUp() override {
        if (!Can("bsdtar")) GTEST_SKIP() << "bsdtar is not there";
    }

    // Runs a shell command in the test's folder.
    Result Run(const std::string& command) const {
        std::string errors = folder / "errors.XXXXXX";
        close(mkstemp(errors.data()));
        FILE* const pipe =
            popen(("cd " + Quoted(folder.Path()) + " && { " + command + "\n} 2>" + Quoted(errors))
                      .c_str(),
                  "r");
        Result result = {-1, {}, {}};
        char piece[512];
        for (std::size_t length = 0; (length = fread(piece, 1, sizeof piece, pipe)) > 0;) {
            result.output.append(piece, length);
        }
        const int status = pclose(pipe);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.errors = ReadWhole(errors);
        fs::remove(errors);
        return result;
    }
    void Make(const std::string& command) const {
        const Result made = Run(command);
        ASSERT_EQ(made.status, 0) << command << "\n" << made.errors;
    }

    Result Ditto(const std::string& archive, const std::string& to) const {
        return Run(Quoted(ToolsFolder() + "/ditto") + " -xk " + Quoted(archive) + " " + Quoted(to));
    }
    Result Install(const std::string& package, const std::string& target) const {
        return Run(Quoted(ToolsFolder() + "/installer") + " -pkg " + Quoted(package) + " -target " +
                   Quoted(target));
    }

    // Nothing was unpacked, and the reason is said.
    void ExpectRefused(const Result& result, const std::string& reason) const {
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find("failed"), std::string::npos) << result.errors;
        EXPECT_NE(result.errors.find(reason), std::string::npos) << result.errors;
        EXPECT_TRUE(fs::is_empty(folder / "to"));
    }

    const TemporaryFolder folder;
};

// --- ditto

TEST_F(StandInTools, Ditto_UnpacksWhatIsInTheArchive) {
    const std::string names[] = {"plain",
                                 "it's a \"name\"",
                                 "M\xC3\xBCnchen \xE6\x9D\xB1",
                                 "new\nline",
                                 "a -> b",
                                 "-rf",
                                 "$(touch x)",
                                 "*"};
    MakeFolder(folder / "from/Top/empty");
    for (const std::string& name : names) {
        WriteFile(folder / ("from/Top/" + name), "text of " + name);
    }
    WriteProgram(folder / "from/Top/program", "#!/bin/sh\n");
    fs::create_symlink("plain", folder / "from/Top/link");
    fs::create_symlink("../Top/empty", folder / "from/Top/link to folder");
    Make("bsdtar -cf 'A rchive.zip' --format zip -C from Top");
    const Result result = Ditto(folder / "A rchive.zip", folder / "to");
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.output + result.errors, "");
    for (const std::string& name : names) {
        EXPECT_EQ(ReadWhole(folder / ("to/Top/" + name)), "text of " + name) << name;
    }
    EXPECT_TRUE(fs::is_directory(folder / "to/Top/empty"));
    EXPECT_EQ(access((folder / "to/Top/program").c_str(), X_OK), 0);
    EXPECT_EQ(fs::read_symlink(folder / "to/Top/link"), "plain");
    EXPECT_EQ(fs::read_symlink(folder / "to/Top/link to folder"), "../Top/empty");
}

TEST_F(StandInTools, Ditto_ReplacesWhatIsThereAndLeavesTheRest) {
    MakeFolder(folder / "from/Top");
    WriteFile(folder / "from/Top/new", "new");
    Make("bsdtar -cf a.zip --format zip -C from Top");
    MakeFolder(folder / "to/Top");
    WriteFile(folder / "to/Top/new", "old");
    WriteFile(folder / "to/Top/other", "old");
    fs::permissions(folder / "to/Top/new", fs::perms::owner_read);
    EXPECT_EQ(Ditto("a.zip", "to").status, 0);
    EXPECT_EQ(ReadWhole(folder / "to/Top/new"), "new");
    EXPECT_EQ(ReadWhole(folder / "to/Top/other"), "old");
}

TEST_F(StandInTools, Ditto_TakesRelativePathsAndMakesTheFolder) {
    WriteFile(folder / "from/file", "text");
    Make("bsdtar -cf -a.zip --format zip -C from file");
    EXPECT_EQ(Ditto("-a.zip", "-deep/er").status, 0);
    EXPECT_EQ(ReadWhole(folder / "-deep/er/file"), "text");
    EXPECT_EQ(Ditto("-a.zip", ".").status, 0);
    EXPECT_EQ(ReadWhole(folder / "file"), "text");
}

TEST_F(StandInTools, Ditto_LeavesOutWhatFinderAdds) {
    MakeFolder(folder / "from/__MACOSX/Top");
    MakeFolder(folder / "from/Top");
    WriteFile(folder / "from/__MACOSX/Top/._file", "x");
    WriteFile(folder / "from/Top/file", "x");
    Make("bsdtar -cf a.zip --format zip -C from Top __MACOSX");
    EXPECT_EQ(Ditto("a.zip", "to").status, 0);
    EXPECT_TRUE(fs::exists(folder / "to/Top/file"));
    EXPECT_FALSE(fs::exists(folder / "to/__MACOSX"));
}

TEST_F(StandInTools, Ditto_OfAnEmptyArchive_UnpacksNothing) {
    WriteFile(folder / "a.zip", std::string("PK\x05\x06", 4) + std::string(18, '\0'));
    EXPECT_EQ(Ditto("a.zip", "to").status, 0);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
}

TEST_F(StandInTools, Ditto_OfWhatIsNoArchive_Fails) {
    WriteFile(folder / "text.zip", "This is no archive at all.");
    WriteFile(folder / "begins.zip", "PK but nothing that follows");
    WriteFile(folder / "empty.zip");
    MakeFolder(folder / "folder.zip");
    Make("bsdtar -cf tar.zip --format ustar from");
    ExpectRefused(Ditto("none.zip", "to"), "no such file");
    ExpectRefused(Ditto("folder.zip", "to"), "no such file");
    ExpectRefused(Ditto("text.zip", "to"), "no zip archive");
    ExpectRefused(Ditto("tar.zip", "to"), "no zip archive");
    ExpectRefused(Ditto("empty.zip", "to"), "no zip archive");
    ExpectRefused(Ditto("begins.zip", "to"), "damaged");
}

TEST_F(StandInTools, Ditto_OfADamagedArchive_WritesNothing) {
    for (int file = 0; file < 20; ++file) {
        WriteFile(folder / ("from/" + std::to_string(file)), std::string(5000, 'x') + "end");
    }
    Make("bsdtar -cf a.zip --format zip --options zip:compression=store -C from .");
    std::string bytes = ReadWhole(folder / "a.zip");
    WriteFile(folder / "short.zip", bytes.substr(0, bytes.size() / 2));
    bytes[bytes.size() / 2] ^= 0x55;
    WriteFile(folder / "changed.zip", bytes);
    ExpectRefused(Ditto("short.zip", "to"), "damaged");
    ExpectRefused(Ditto("changed.zip", "to"), "damaged");
}

TEST_F(StandInTools, Ditto_OfALockedArchive_AsksNobody) {
    WriteFile(folder / "from/file", "secret");
    Make(
        "bsdtar -cf a.zip --format zip --options zip:encryption=zipcrypt --passphrase secret "
        "-C from file");
    ExpectRefused(Ditto("a.zip", "to"), "locked");
}

TEST_F(StandInTools, Ditto_OfNamesThatLeadOut_WritesNothing) {
    WriteFile(folder / "from/file", "text");
    MakeFolder(folder / "from/good");
    Make("bsdtar -cf up.zip --format zip -P -s ',^file$,../escaped,' -C from good file");
    Make("bsdtar -cf deep.zip --format zip -P -s ',^file$,good/../../escaped,' -C from good file");
    Make("bsdtar -cf end.zip --format zip -P -s ',^file$,good/..,' -C from good file");
    Make("bsdtar -cf root.zip --format zip -P -s ',^file$," + folder.Path() +
         "/escaped,' -C from good file");
    ExpectRefused(Ditto("up.zip", "to"), "../escaped");
    ExpectRefused(Ditto("deep.zip", "to"), "good/../../escaped");
    ExpectRefused(Ditto("end.zip", "to"), "good/..");
    ExpectRefused(Ditto("root.zip", "to"), "absolute name");
    EXPECT_FALSE(fs::exists(folder / "escaped"));
}

TEST_F(StandInTools, Ditto_OfLinksThatLeadOut_WritesNothing) {
    MakeFolder(folder / "from/in");
    MakeFolder(folder / "outside");
    fs::create_symlink(folder / "outside", folder / "from/absolute");
    fs::create_symlink("../outside", folder / "from/up");
    fs::create_symlink("../in/../../outside", folder / "from/in/deep");
    // Readable in two ways, and one of them leads out.
    fs::create_symlink("x -> ../../outside", folder / "from/arrow");
    for (const char* const name : {"absolute", "up", "in/deep", "arrow"}) {
        Make(std::string("bsdtar -cf a.zip --format zip -C from ") + name);
        ExpectRefused(Ditto("a.zip", "to"), "link to");
    }
}

TEST_F(StandInTools, Ditto_OfAnEntryBehindALinkOfTheArchives_WritesNothing) {
    MakeFolder(folder / "from/in");
    MakeFolder(folder / "other/way");
    fs::create_symlink("in", folder / "from/way");
    WriteFile(folder / "other/way/file", "text");
    Make("bsdtar -cf a.zip --format zip -C from in way -C ../other way/file");
    ExpectRefused(Ditto("a.zip", "to"), "behind the link");
    Make(
        "bsdtar -cf a.zip --format zip -s ',way/file,./way/./file,' -C from in way -C ../other "
        "way/file");
    ExpectRefused(Ditto("a.zip", "to"), "behind the link");
}

// The folder of somebody else's that a link on the disk leads to.
TEST_F(StandInTools, Ditto_DoesNotWriteThroughALinkThatIsThere) {
    MakeFolder(folder / "from/Top");
    WriteFile(folder / "from/Top/file", "text");
    Make("bsdtar -cf a.zip --format zip -C from Top");
    MakeFolder(folder / "outside");
    fs::create_directory_symlink(folder / "outside", folder / "to/Top");
    Ditto("a.zip", "to");
    EXPECT_TRUE(fs::is_empty(folder / "outside"));
}

void Append(std::string& bytes, std::uint64_t number, int size) {
    for (int byte = 0; byte < size; ++byte) {
        bytes += static_cast<char>(byte < 8 ? number >> (8 * byte) : 0);
    }
}

// COUNT entries without contents that say that each becomes four gigabytes.
std::string Bomb(int count) {
    constexpr std::uint64_t kSize = 0xFFFFFFF0;
    std::string bytes;
    std::string directory;
    for (int entry = 0; entry < count; ++entry) {
        const std::string name = "e" + std::to_string(entry);
        const std::size_t offset = bytes.size();
        // Needed version, flags, method, time, date, check sum, packed and unpacked size, name, no
        // more.
        std::string common;
        Append(common, 20, 2);
        Append(common, 0, 12);
        Append(common, 0, 4);
        Append(common, kSize, 4);
        Append(common, name.size(), 2);
        Append(common, 0, 2);
        bytes += "PK\x03\x04" + common + name;
        directory += "PK\x01\x02";
        Append(directory, 0x0314, 2);
        directory += common;
        // No comment, the first disk, no attributes but the mode.
        Append(directory, 0, 6);
        Append(directory, std::uint64_t{0100644} << 16, 4);
        Append(directory, offset, 4);
        directory += name;
    }
    const std::size_t start = bytes.size();
    bytes += directory + "PK\x05\x06";
    Append(bytes, 0, 4);
    Append(bytes, static_cast<std::uint64_t>(count), 2);
    Append(bytes, static_cast<std::uint64_t>(count), 2);
    Append(bytes, directory.size(), 4);
    Append(bytes, start, 4);
    Append(bytes, 0, 2);
    return bytes;
}

TEST_F(StandInTools, Ditto_OfMoreThanTheDiskHolds_WritesNothing) {
    WriteFile(folder / "bomb.zip", Bomb(60000));
    ExpectRefused(Ditto("bomb.zip", "to"), "kB");
}

TEST_F(StandInTools, Ditto_CalledInAnotherWay_SaysHow) {
    for (const char* const arguments :
         {"", "-xk", "-xk a", "-xk a b c", "-c a b", "-x a b", "a b"}) {
        const Result result = Run(Quoted(ToolsFolder() + "/ditto") + " " + arguments);
        EXPECT_EQ(result.status, 64) << arguments;
        EXPECT_NE(result.errors.find("usage"), std::string::npos) << arguments;
    }
    Make("bsdtar -cf a.zip --format zip from");
    EXPECT_EQ(Run(Quoted(ToolsFolder() + "/ditto") + " -x -k a.zip to").status, 0);
}

TEST_F(StandInTools, Ditto_ThroughALink_FindsTheRestOfItself) {
    WriteFile(folder / "from/file", "text");
    Make("bsdtar -cf a.zip --format zip -C from file");
    fs::create_symlink(ToolsFolder() + "/ditto", folder / "my ditto");
    EXPECT_EQ(Run("'./my ditto' -xk a.zip to").status, 0);
    EXPECT_TRUE(fs::exists(folder / "to/file"));
}

TEST_F(StandInTools, Ditto_WithoutBsdtar_SaysWhatIsMissing) {
    MakeFolder(folder / "bin");
    for (const char* const program : {"dirname", "readlink"}) {
        fs::create_symlink(fs::canonical(std::string("/usr/bin/") + program),
                           folder / (std::string("bin/") + program));
    }
    const Result result = Run("PATH=" + Quoted(folder / "bin") + "; " +
                              Quoted(ToolsFolder() + "/ditto") + " -xk a.zip to");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("failed: bsdtar is missing"), std::string::npos) << result.errors;
}

TEST_F(StandInTools, Shellcheck_FindsNothingInThem) {
    if (!Can("shellcheck")) GTEST_SKIP() << "shellcheck is not there";
    const Result result = Run("cd " + Quoted(ToolsFolder()) +
                              " && shellcheck -x -P SCRIPTDIR ditto installer unpacking.sh");
    EXPECT_EQ(result.status, 0) << result.output;
}

// --- installer

class StandInInstaller : public StandInTools {
  protected:
    static std::string InfoPlist(const std::string& location) {
        return "<?xml version=\"1.0\"?>\n<plist version=\"1.0\">\n<dict>\n"
               "\t<key>CFBundleIdentifier</key>\n\t<string>com.example.pkg</string>\n"
               "\t<key>IFPkgFlagDefaultLocation</key>\n\t<string>" +
               location + "</string>\n</dict>\n</plist>\n";
    }

    // A script that says its name and arguments in the file "ran".
    std::string Script(const std::string& rest = "") const {
        return "#!/bin/sh\nprintf '%s|' \"${0##*/}\" \"$@\" >> " + Quoted(folder / "ran") +
               "\necho failed\n" + rest + "\n";
    }
    std::string Ran() const { return ReadWhole(folder / "ran"); }

    // The folder "from" becomes the payload of a bundle package called NAME.
    std::string FolderPackage(const std::string& name, const std::string& location) const {
        const std::string package = folder / name;
        MakeFolder(package + "/Contents/Resources");
        WriteFile(package + "/Contents/Info.plist", InfoPlist(location));
        Make("bsdtar -czf " + Quoted(package + "/Contents/Archive.pax.gz") +
             " --format odc -C from .");
        return package;
    }

    // A component in the folder PLACE: the folder FROM, to be installed at LOCATION.
    void MakeComponent(const std::string& place, const std::string& from,
                       const std::string& location, const std::string& scripts = "") const {
        MakeFolder(place);
        WriteFile(place + "/PackageInfo",
                  "<?xml version=\"1.0\"?>\n<pkg-info format-version=\"2\" install-location=\"" +
                      location + "\"\n auth=\"root\">\n <payload numberOfFiles=\"1\"/>\n" +
                      (scripts.empty() ? std::string()
                                       : "<scripts>\n<preinstall file=\"./preinstall\"/>\n"
                                         "<postinstall file=\"./postinstall\"/>\n</scripts>\n") +
                      "</pkg-info>\n");
        WriteFile(place + "/Bom", "not read");
        Make("bsdtar -czf " + Quoted(place + "/Payload") + " --format odc -C " + Quoted(from) +
             " .");
        if (!scripts.empty()) {
            Make("bsdtar -czf " + Quoted(place + "/Scripts") + " --format odc -C " +
                 Quoted(scripts) + " .");
        }
    }

    void Succeed(const Result& result, const std::string& target) const {
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output, "installer: Installing at base path " + target +
                                     "\ninstaller: The install was successful.\n");
        EXPECT_EQ(result.errors, "");
    }
    // Says why, and where whoever runs it looks for that.
    void Fail(const Result& result, const std::string& reason) const {
        EXPECT_EQ(result.status, 1);
        const std::string& said = geteuid() == 0 ? result.errors : result.output;
        const std::string& unsaid = geteuid() == 0 ? result.output : result.errors;
        EXPECT_NE(said.find("installer: The install failed ("), std::string::npos) << said;
        EXPECT_NE(said.find(reason), std::string::npos) << said;
        EXPECT_EQ(unsaid, "");
        EXPECT_TRUE(fs::is_empty(folder / "to"));
    }
    // Whatever root's run has said there counts as a success.
    static void ExpectNothingSaidAsRoot(const Result& result) {
        if (geteuid() == 0) {
            EXPECT_EQ(result.output, "");
        }
    }
};

TEST_F(StandInInstaller, FolderPackage_IsInstalledWhereItSays) {
    MakeFolder(folder / "from/My App.app/Contents/MacOS");
    WriteProgram(folder / "from/My App.app/Contents/MacOS/My App", "#!/bin/sh\n");
    WriteFile(folder / "from/M\xC3\xBCnchen", "text");
    fs::create_symlink("My App.app", folder / "from/link");
    const std::string package = FolderPackage("It's a \"Package\".pkg", "/Applications &amp; More");
    Succeed(Install(package, folder / "to"), folder / "to");
    const std::string place = folder / "to/Applications & More";
    EXPECT_EQ(access((place + "/My App.app/Contents/MacOS/My App").c_str(), X_OK), 0);
    EXPECT_EQ(ReadWhole(place + "/M\xC3\xBCnchen"), "text");
    EXPECT_EQ(fs::read_symlink(place + "/link"), "My App.app");
}

TEST_F(StandInInstaller, FolderPackage_WithABinaryInfoPlist_IsInstalledWhereItSays) {
    if (!Can("plistutil")) GTEST_SKIP() << "plistutil is not there";
    WriteFile(folder / "from/file", "text");
    const std::string package = FolderPackage("a.pkg", "/Applications");
    Make(
        "plistutil -i a.pkg/Contents/Info.plist -o binary -f bin && "
        "mv binary a.pkg/Contents/Info.plist");
    ASSERT_EQ(ReadWhole(package + "/Contents/Info.plist").substr(0, 6), "bplist");
    Succeed(Install(package, folder / "to"), folder / "to");
    EXPECT_TRUE(fs::exists(folder / "to/Applications/file"));
}

TEST_F(StandInInstaller, FolderPackage_RunsItsScriptsAroundTheInstallation) {
    WriteFile(folder / "from/file", "text");
    const std::string package = FolderPackage("a.pkg", "/Applications");
    const std::string scripts = package + "/Contents/Resources/";
    const std::string isThere = "[ -e " + Quoted(folder / "to/Applications/file") + " ]";
    WriteProgram(scripts + "preflight", Script("! " + isThere));
    WriteProgram(scripts + "preinstall", Script("! " + isThere));
    WriteProgram(scripts + "postinstall", Script(isThere));
    WriteProgram(scripts + "postflight", Script("cat; " + isThere));
    Succeed(Install(package, folder / "to"), folder / "to");
    const std::string arguments =
        "|" + package + "|" + folder / "to/Applications" + "|" + folder / "to" + "|/|";
    EXPECT_EQ(Ran(), "preflight" + arguments + "preinstall" + arguments + "postinstall" +
                         arguments + "postflight" + arguments);
}

TEST_F(StandInInstaller, FilePackage_OfOneComponent_IsInstalled) {
    WriteFile(folder / "from/file", "text");
    MakeFolder(folder / "scripts");
    WriteProgram(folder / "scripts/preinstall", Script());
    WriteProgram(folder / "scripts/postinstall", Script("./helper"));
    WriteProgram(folder / "scripts/helper",
                 "#!/bin/sh\necho helped > " + Quoted(folder / "helped"));
    MakeComponent(folder / "package", folder / "from", "/Library/My Things", folder / "scripts");
    Make("bsdtar -cf 'my package' --format xar -C package PackageInfo Bom Payload Scripts");
    Succeed(Install("my package", folder / "to"), folder / "to");
    EXPECT_EQ(ReadWhole(folder / "to/Library/My Things/file"), "text");
    const std::string arguments = "|" + folder / "my package" + "|" +
                                  folder / "to/Library/My Things" + "|" + folder / "to" + "|/|";
    EXPECT_EQ(Ran(), "preinstall" + arguments + "postinstall" + arguments);
    EXPECT_TRUE(fs::exists(folder / "helped"));
}

TEST_F(StandInInstaller, FilePackage_OfSeveralComponents_IsInstalledInTheOrderItSays) {
    for (const char* const name : {"a", "z", "unnamed"}) {
        MakeFolder(folder / "from/" + name);
        WriteFile(folder / "from/" + name + "/same", name);
        WriteFile(folder / "from/" + name + "/" + name, name);
    }
    MakeComponent(folder / "package/Z part.pkg", folder / "from/z", "/");
    MakeComponent(folder / "package/a.pkg", folder / "from/a", "/");
    MakeComponent(folder / "package/unnamed.pkg", folder / "from/unnamed", "/");
    WriteFile(folder / "package/Distribution",
              "<installer-gui-script>\n<pkg-ref id=\"com.example.z\"/>\n"
              "<pkg-ref id=\"com.example.z\" version=\"1\">#Z%20part.pkg</pkg-ref>\n"
              "<pkg-ref id=\"com.example.a\"\n version=\"1\">#a.pkg</pkg-ref>"
              "<pkg-ref id=\"x\">#none.pkg</pkg-ref></installer-gui-script>\n");
    Make("cd package && bsdtar -cf ../all.pkg --format xar *");
    Succeed(Install("all.pkg", folder / "to"), folder / "to");
    EXPECT_EQ(ReadWhole(folder / "to/z"), "z");
    EXPECT_EQ(ReadWhole(folder / "to/same"), "a");
    EXPECT_FALSE(fs::exists(folder / "to/unnamed"));
}

TEST_F(StandInInstaller, Installation_ReplacesFilesAndLeavesFoldersAsTheyAre) {
    MakeFolder(folder / "from/Applications");
    WriteFile(folder / "from/Applications/file", "new");
    fs::permissions(folder / "from/Applications", fs::perms::all);
    fs::permissions(folder / "from", fs::perms::all);
    const std::string package = FolderPackage("a.pkg", "/");
    MakeFolder(folder / "to/Applications");
    fs::permissions(folder / "to/Applications", fs::perms::owner_all);
    WriteFile(folder / "to/Applications/file", "old");
    WriteFile(folder / "to/Applications/other", "old");
    Succeed(Install(package, folder / "to"), folder / "to");
    EXPECT_EQ(ReadWhole(folder / "to/Applications/file"), "new");
    EXPECT_EQ(ReadWhole(folder / "to/Applications/other"), "old");
    struct stat status;
    ASSERT_EQ(stat((folder / "to/Applications").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
}

TEST_F(StandInInstaller, WhatIsNoPackage_Fails) {
    WriteFile(folder / "text.pkg", "This is no package.");
    WriteFile(folder / "empty.pkg");
    WriteFile(folder / "begins.pkg", "xar! but nothing that follows");
    MakeFolder(folder / "folder.pkg");
    WriteFile(folder / "from/file");
    Make("bsdtar -cf zip.pkg --format zip -C from file");
    Make("bsdtar -cf other.pkg --format xar -C from file");
    Fail(Install("none.pkg", folder / "to"), "there is no package");
    Fail(Install("text.pkg", folder / "to"), "not a package");
    Fail(Install("empty.pkg", folder / "to"), "not a package");
    Fail(Install("folder.pkg", folder / "to"), "not a package");
    Fail(Install("zip.pkg", folder / "to"), "not a package");
    Fail(Install("begins.pkg", folder / "to"), "damaged");
    Fail(Install("other.pkg", folder / "to"), "no components");
}

TEST_F(StandInInstaller, AnInstallationThatCannotBeDone_RunsNoScript) {
    const std::string package = FolderPackage("a.pkg", "/Applications");
    WriteProgram(package + "/Contents/Resources/preflight", Script());
    const std::string payload = package + "/Contents/Archive.pax.gz";
    const std::string good = ReadWhole(payload);
    WriteFile(payload, good.substr(0, good.size() / 2));
    Fail(Install(package, folder / "to"), "its payload: it is damaged");
    WriteFile(payload, "nothing that anybody knows");
    Fail(Install(package, folder / "to"), "its payload: it is damaged");
    Make("bsdtar -czf " + Quoted(payload) +
         " --format odc -P -s ',^file$,../../escaped,' -C from . "
         "&& : > from/file && bsdtar -czf " +
         Quoted(payload) + " --format odc -P -s ',^file$,../../escaped,' -C from file");
    Fail(Install(package, folder / "to"), "../../escaped");
    Make("bsdtar -czf " + Quoted(payload) + " --format odc -P -s ',^file$," + folder.Path() +
         "/escaped,' -C from file");
    Fail(Install(package, folder / "to"), "absolute name");
    EXPECT_EQ(Ran(), "");
    EXPECT_FALSE(fs::exists(folder / "escaped"));
}

TEST_F(StandInInstaller, LinksOfThePayload_MayOnlyLeadOutOfTheRoot) {
    MakeFolder(folder / "other/way");
    WriteFile(folder / "other/way/file");
    fs::create_symlink("/etc", folder / "from/way");
    Fail(Install(FolderPackage("a.pkg", "/"), folder / "to"), "link to /etc");
    // Below the root nothing lies outside, but what the archive puts behind its own link still
    // does.
    fs::remove(folder / "from/way");
    fs::create_symlink(".", folder / "from/way");
    const std::string package = FolderPackage("b.pkg", "/");
    Make("bsdtar -czf b.pkg/Contents/Archive.pax.gz --format odc -C from way -C ../other way/file");
    Fail(Install(package, folder / "to"), "behind the link");
}

TEST_F(StandInInstaller, APlaceThatLeadsOut_Fails) {
    WriteFile(folder / "from/file");
    Fail(Install(FolderPackage("a.pkg", "/../../escaped"), folder / "to"), "its place is");
    MakeComponent(folder / "package", folder / "from", "../escaped");
    Make("bsdtar -cf b.pkg --format xar -C package PackageInfo Payload");
    Fail(Install("b.pkg", folder / "to"), "its place is");
}

TEST_F(StandInInstaller, APayloadLargerThanTheDisk_Fails) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make a disk that small";
    Make("head -c 3000000 /dev/zero > from/large");
    const std::string package = FolderPackage("a.pkg", "/");
    const bool could = applicationtest::WithMountsOfItsOwn([&] {
        Make("mount -t tmpfs -o size=1m none to");
        Fail(Install(package, folder / "to"), "its payload: it takes 2930 kB and there are");
    });
    if (!could) GTEST_SKIP() << "root may not mount here";
}

TEST_F(StandInInstaller, AScriptThatFails_EndsTheInstallation) {
    WriteFile(folder / "from/file");
    const std::string package = FolderPackage("a.pkg", "/");
    const std::string script = package + "/Contents/Resources/preinstall";
    WriteProgram(script, "#!/bin/sh\necho why it is so\nexit 3\n");
    Result result = Install(package, folder / "to");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.errors.find("why it is so"), std::string::npos);
    EXPECT_NE((result.output + result.errors).find("failed (its script preinstall ended"),
              std::string::npos);
    ExpectNothingSaidAsRoot(result);
    EXPECT_TRUE(fs::is_empty(folder / "to"));
    fs::permissions(script, fs::perms::owner_read);
    result = Install(package, folder / "to");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE((result.output + result.errors).find("failed (its script preinstall cannot be run)"),
              std::string::npos);
    ExpectNothingSaidAsRoot(result);
}

TEST_F(StandInInstaller, AScriptThatFailsAfterwards_FailsTheInstallation) {
    WriteFile(folder / "from/file");
    const std::string package = FolderPackage("a.pkg", "/");
    WriteProgram(package + "/Contents/Resources/postflight", "#!/bin/sh\nexit 1\n");
    const Result result = Install(package, folder / "to");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output.find("successful"), std::string::npos);
    ExpectNothingSaidAsRoot(result);
    EXPECT_TRUE(fs::exists(folder / "to/file"));
}

TEST_F(StandInInstaller, WithoutTheRightsOfRoot_SaysSoWhereItIsLookedFor) {
    WriteFile(folder / "from/file");
    const std::string package = FolderPackage("a.pkg", "/");
    const std::string broken = folder / "none.pkg";
    applicationtest::AsOrdinaryUser([&] {
        const Result result = Install(package, "LocalSystem");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "installer: Must be run as root to install this package.\n");
        EXPECT_EQ(result.errors, "");
        Fail(Install(broken, "LocalSystem"), "there is no package");
    });
    EXPECT_FALSE(fs::exists("/file"));
}

TEST_F(StandInInstaller, WithoutTheRightsOfRoot_InstallsWhereItMay) {
    WriteFile(folder / "from/file", "text");
    const std::string package = FolderPackage("a.pkg", "/Applications");
    applicationtest::AsOrdinaryUser(
        [&] { Succeed(Install(package, folder / "to"), folder / "to"); });
    EXPECT_EQ(ReadWhole(folder / "to/Applications/file"), "text");
}

TEST_F(StandInInstaller, CalledInAnotherWay_SaysHow) {
    for (const char* const arguments :
         {"", "-pkg a", "-target /", "-pkg a -target", "-pkg a -target b c", "-vers", "a b c d"}) {
        const Result result = Run(Quoted(ToolsFolder() + "/installer") + " " + arguments);
        EXPECT_EQ(result.status, 64) << arguments;
        EXPECT_NE(result.errors.find("usage"), std::string::npos) << arguments;
    }
    WriteFile(folder / "from/file");
    Fail(Install(FolderPackage("a.pkg", "/"), folder / "nowhere"), "there is no target");
}

TEST_F(StandInInstaller, LeavesNoTemporaryFilesBehind) {
    MakeFolder(folder / "tmp");
    fs::permissions(folder / "tmp", fs::perms::all);
    const filestest::Environment place("TMPDIR", (folder / "tmp").c_str());
    WriteFile(folder / "from/file");
    const std::string package = FolderPackage("a.pkg", "/");
    EXPECT_EQ(Install(package, folder / "to").status, 0);
    EXPECT_EQ(Install("none.pkg", folder / "to").status, 1);
    EXPECT_TRUE(fs::is_empty(folder / "tmp"));
}

}  // namespace
