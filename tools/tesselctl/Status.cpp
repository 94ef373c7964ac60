#include "tesselctl/Status.h"

#include <optional>

#include "tesselctl/ExitStatus.h"
#include "tesselctl/KeyFile.h"
#include "tesselctl/Listener.h"
#include "tesselctl/Session.h"
#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

constexpr const char* kServiceName = "TesselCore";

void Row(std::string_view label, const std::string& value) {
    constexpr std::size_t kColumn = 16;
    std::string line(label);
    line += ':';
    line.resize(std::max(line.size() + 1, kColumn), ' ');
    Say(line + value + '\n');
}

std::string VersionOf(Session& session) {
    const Result<Answer> answer = session.Run("getCoreVersion");
    if (!answer.Ok()) return "unknown (" + answer.GetProblem().text + ')';
    constexpr std::string_view kKey = "CoreVersion=";
    const std::string& text = answer.Value().text;
    if (answer.Value().word != Word::kSuccess || text.compare(0, kKey.size(), kKey) != 0)
        return "unknown (the service did not tell)";
    return text.substr(kKey.size());
}

std::string ProcessOf(const Listener& listener) {
    if (!listener.process) return "unknown";
    return std::to_string(*listener.process) + " (" + listener.name + ')';
}

std::string PortText(int port) {
    if (port == -1) return "none";
    const Listener listener = FindListener(port);
    return std::to_string(port) + (listener.known && !listener.present ? " (nobody listens)" : "");
}

bool Runs(const std::optional<Problem>& problem, const Listener& listener) {
    if (!problem) return true;
    switch (problem->trouble) {
        case Trouble::kBusy:
            return true;
        case Trouble::kSilent:  // perhaps in the middle of an installation
            return listener.process && listener.name == kServiceName;
        default:
            return false;
    }
}

}  // namespace

int ShowStatus(const std::string& home, const Limits& limits) {
    Session session(home, limits);
    const std::optional<Problem> problem = session.Open(Server::kCommand);
    const Result<KeyFile> file = ReadKeyFile(session.KeyFileName());
    const Listener listener = file.Ok() && file.Value().commandPort != -1
                                  ? FindListener(file.Value().commandPort)
                                  : Listener();
    const bool runs = Runs(problem, listener);

    Row("service", runs ? "running" : "not running");
    if (runs) {
        Row("version", problem ? "unknown (" + problem->text + ')' : VersionOf(session));
        Row("process", ProcessOf(listener));
    }
    if (file.Ok()) {
        Row("command port", PortText(file.Value().commandPort));
        Row("pressure port", PortText(file.Value().pressurePort));
        Row("apps port", PortText(file.Value().appsPort));
    }
    Row("key file", session.KeyFileName());
    if (runs) return kExitSuccess;
    Complain(problem->text);
    return kExitNoService;
}

}  // namespace tesselctl
