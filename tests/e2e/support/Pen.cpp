#include "support/Pen.h"

#include <fcntl.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "support/Files.h"
#include "support/Waiting.h"

namespace {

constexpr char kDriverBundle[] = "/Library/Application Support/Tablet/StylusPadDriver.app";
constexpr char kPosterFile[] = "/PenPoster";
constexpr char kRecordings[] = "/recordings";

std::string DriverFile() {
    return std::string(kDriverBundle) + "/Contents/MacOS/" + kDriverName;
}

void WaitUntilItCanBeTapped(Sandbox& sandbox, pid_t pid) {
    const std::string address = "@CGEventTap." + std::to_string(pid) + "\n";
    WaitUntil("process " + std::to_string(pid) + " can be tapped", [&] {
        if (sandbox.StatusIfEnded(pid)) {
            throw Failed("a process that was to be tapped has ended");
        }
        return Contains(sandbox.Read("/proc/net/unix"), address);
    });
}

void Replace(std::string& text, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
}

void WriteWhole(int descriptor, const std::string& bytes) {
    for (std::size_t written = 0; written < bytes.size();) {
        const ssize_t count = write(descriptor, bytes.data() + written, bytes.size() - written);
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            throw Failed(std::string("the poster takes no more: ") + std::strerror(errno));
        }
    }
}

std::string BytesOf(std::uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof number);
}

}  // namespace

std::vector<std::string> PenMounts() {
    const std::string bundle = kDriverBundle;
    std::vector<std::string> mounts;
    AddWayTo(DriverFile(), mounts);
    const std::pair<std::string, std::string> files[] = {
        {E2E_DRIVER, DriverFile()},
        {E2E_DRIVER_INFO, bundle + "/Contents/Info.plist"},
        {E2E_PEN_POSTER, kPosterFile},
        {std::string(E2E_FIXTURES) + "/pen", kRecordings}};
    for (const auto& [outside, inside] : files) {
        mounts.insert(mounts.end(), {"--ro-bind", outside, inside});
    }
    return mounts;
}

std::string StreamOf(const std::string& stroke) {
    std::string stream = ReadFile(std::string(E2E_FIXTURES) + "/pen/" + stroke + ".stream");
    Replace(stream, "\n", "");
    Replace(stream, "\\0", std::string(1, '\0'));
    Replace(stream, "\\s", " ");
    return stream;
}

std::vector<std::string> MessagesOf(const std::string& stream) {
    std::vector<std::string> messages(1);
    for (const char character : stream) {
        if (character == '\0') {
            messages.back() += "\\0";
        } else {
            messages.back() += character;
        }
        if (character == '\0' || character == ' ' || character == '|') {
            messages.emplace_back();
        }
    }
    if (messages.back().empty()) {
        messages.pop_back();
    }
    return messages;
}

std::string WordsOf(const std::string& stream) {
    std::string words;
    for (const std::string& message : MessagesOf(stream)) {
        if (message.back() == '|') {
            words += message;
        }
    }
    return words;
}

pid_t StartReplay(Sandbox& sandbox, const std::string& stroke, const std::string& speed, int taps) {
    Program driver;
    driver.path = DriverFile();
    driver.arguments = {driver.path, "--replay", std::string(kRecordings) + "/" + stroke + ".evemu",
                        "--speed",   speed,      "--screen",
                        "1920x1080", "--taps",   std::to_string(taps)};
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    const Descriptor errors(dup(STDERR_FILENO));
    const pid_t pid = sandbox.Start(driver, nothing.Get(), nothing.Get(), errors.Get());
    WaitUntilItCanBeTapped(sandbox, pid);
    return pid;
}

Poster::Poster(Sandbox& itsSandbox, uid_t user) : sandbox(itsSandbox) {
    Program poster;
    poster.path = kPosterFile;
    poster.arguments = {kPosterFile};
    if (Sandbox::CanSwitchUsers()) {
        poster.identity = Identity::kRoot;
        poster.arguments.push_back(std::to_string(user));
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw Failed("no pipe for a poster");
    }
    const Descriptor reader(ends[0]);
    input = Descriptor(ends[1]);
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    pid = sandbox.Start(poster, reader.Get(), nothing.Get(), nothing.Get());
    WaitUntilItCanBeTapped(sandbox, pid);
}

void Poster::Post(const penEvents::Record& record, std::uint32_t times) {
    Post(std::string(reinterpret_cast<const char*>(&record), sizeof record), times);
}

void Poster::Post(const std::string& packet, std::uint32_t times) {
    WriteWhole(input.Get(),
               BytesOf(static_cast<std::uint32_t>(packet.size())) + BytesOf(times) + packet);
}

void Poster::Kill() {
    sandbox.Kill(pid, SIGKILL);
}

bool Poster::HasEnded() {
    // Its status can be asked for once.
    if (pid != -1 && sandbox.StatusIfEnded(pid)) {
        pid = -1;
    }
    return pid == -1;
}

penEvents::Record Event(penEvents::Type type, double x, double y, double pressure,
                        std::int64_t pointerType, std::int64_t enterProximity) {
    return {penEvents::kVersion, type, x, y, pressure, pointerType, enterProximity};
}
