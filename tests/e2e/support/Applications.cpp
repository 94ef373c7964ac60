#include "support/Applications.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "support/Files.h"
#include "support/Waiting.h"

namespace fs = std::filesystem;

namespace {

void MakeExecutable(const fs::path& path) {
    fs::permissions(path, fs::perms(0755));
}

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char letter : text) {
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return quoted + "'";
}

std::string InfoPlistOf(const Application& application) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
           "<key>CFBundleIdentifier</key><string>" +
           application.identifier + "</string><key>CFBundleExecutable</key><string>" +
           application.executable + "</string></dict></plist>\n";
}

}  // namespace

void MakeApplication(const Sandbox& sandbox, const std::string& path,
                     const Application& application) {
    const std::string name = fs::path(path).stem();
    const std::string program = path + "/Contents/MacOS/" + application.executable;
    sandbox.MakeUsersFile(program, "#!/bin/sh\necho $$ >>" + Quoted("/tmp/" + name + ".pids") +
                                       "\n" + application.program);
    MakeExecutable(sandbox.Outside(program));
    sandbox.MakeUsersFile(path + "/Contents/Info.plist", application.infoPlist.empty()
                                                             ? InfoPlistOf(application)
                                                             : application.infoPlist);
}

std::vector<pid_t> StartsOf(const Sandbox& sandbox, const std::string& name) {
    std::istringstream text(ReadFileIfAny(sandbox.Outside("/tmp/" + name + ".pids")));
    std::vector<pid_t> pids;
    for (pid_t pid = 0; text >> pid;) {
        pids.push_back(pid);
    }
    return pids;
}

bool IsRunning(Sandbox& sandbox, pid_t program) {
    try {
        const std::string status = sandbox.Read("/proc/" + std::to_string(program) + "/status");
        return !Contains(status, "State:\tZ");
    } catch (const Failed&) {
        return false;
    }
}

void InstallTool(const Sandbox& sandbox, const std::string& path, const std::string& does) {
    const fs::path installed = sandbox.Outside(path);
    fs::create_directories(installed.parent_path());
    fs::copy_file(fs::path(E2E_FIXTURES) / "stand-ins/tool", installed,
                  fs::copy_options::overwrite_existing);
    MakeExecutable(installed);
    const fs::path script = sandbox.Outside("/tmp/" + installed.filename().string() + ".does");
    fs::remove(script);
    if (!does.empty()) {
        WriteFile(script, does);
    }
}

std::string CallsOf(const Sandbox& sandbox, const std::string& name) {
    return ReadFileIfAny(sandbox.Outside("/tmp/" + name + ".calls"));
}

void InstallRealTools(const Sandbox& sandbox) {
    const fs::path tools = fs::path(E2E_FIXTURES).parent_path().parent_path() / "frameworks/tools";
    fs::create_directories(sandbox.Outside("/Library/tools"));
    for (const char* const file : {"ditto", "installer", "unpacking.sh"}) {
        fs::copy_file(tools / file, sandbox.Outside("/Library/tools") / file);
        MakeExecutable(sandbox.Outside("/Library/tools") / file);
    }
    // Debian has several, and chooses by a link that the sandbox does not have.
    const fs::path awk = "/etc/alternatives/awk";
    if (fs::is_symlink(awk)) {
        fs::create_directories(sandbox.Outside("/etc/alternatives"));
        fs::create_symlink(fs::read_symlink(awk), sandbox.Outside(awk));
    }
    fs::create_symlink("/Library/tools/ditto", sandbox.Outside("/stand-ins/ditto"));
    fs::create_symlink("/Library/tools/installer", sandbox.Outside("/usr/sbin/installer"));
}

void Protect(const Sandbox& sandbox, const std::string& folder) {
    fs::permissions(sandbox.Outside(folder), fs::perms(0555));
}

Start With(const std::string& variable, const std::string& value) {
    Start start;
    start.environment[variable] = value;
    return start;
}

std::string ApplicationsTest::Printed() {
    // The log is written out before the service waits for the next command: one more command says
    // that it has.
    static const std::string kOneMore = "Processing command:\nplatform\n";
    static const std::string kItsReply = "Success MACOSX|\n";
    client.Ask("platform");
    std::string news = service.Output().substr(seen);
    for (const std::string& last : {kOneMore, kItsReply}) {
        if (news.rfind(last, 0) == 0) {
            news.erase(0, last.size());
            seen += last.size();
        }
    }
    news.resize(std::min(news.size(), news.find(kOneMore)));
    seen += news.size();
    return news;
}

std::string ApplicationsTest::PrintedFor(const std::string& command, const std::string& reply) {
    Printed();
    EXPECT_EQ(Ask(command), reply);
    const std::string start = "Processing command:\n" + command + "\n";
    const std::string end = reply + "|\n";
    std::string all = Printed();
    if (all.size() < start.size() + end.size() || all.rfind(start, 0) != 0 ||
        all.substr(all.size() - end.size()) != end) {
        throw Failed("what was printed for " + command + " is no command and reply: " + all);
    }
    return all.substr(start.size(), all.size() - start.size() - end.size());
}
