#include "tesselctl/KeyFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "tesselctl/Descriptor.h"

namespace tesselctl {
namespace {

// The file has some 230 bytes; this is enough to see that a larger one is something else.
constexpr std::size_t kMostBytes = 4096;

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t' || line.back() == '\r'))
        line.remove_suffix(1);
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t'))
        line.remove_prefix(1);
    return line;
}

std::optional<std::string_view> ValueOf(std::string_view line, const std::string& element) {
    const std::string before = '<' + element + '>';
    const std::string after = "</" + element + '>';
    if (line.size() < before.size() + after.size()) return std::nullopt;
    if (line.substr(0, before.size()) != before) return std::nullopt;
    if (line.substr(line.size() - after.size()) != after) return std::nullopt;
    return line.substr(before.size(), line.size() - before.size() - after.size());
}

std::optional<int> PortOfText(std::string_view text) {
    if (text == "-1") return -1;
    if (text.empty() || text.size() > 5 || text[0] == '0') return std::nullopt;
    int port = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        port = port * 10 + (c - '0');
    }
    return port <= 65535 ? std::optional(port) : std::nullopt;
}

// A UUID between braces.
bool IsKey(std::string_view text) {
    constexpr std::string_view kForm = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    constexpr std::string_view kHexadecimal = "0123456789abcdefABCDEF";
    if (text.size() != kForm.size()) return false;
    for (std::size_t i = 0; i < text.size(); i++) {
        const bool fits = kForm[i] == 'x' ? kHexadecimal.find(text[i]) != std::string_view::npos
                                          : text[i] == kForm[i];
        if (!fits) return false;
    }
    return true;
}

Problem Damaged(const std::string& path, const std::string& why) {
    return {Trouble::kKeyFileDamaged,
            path + " is damaged or not a key file of the service: " + why};
}

}  // namespace

int KeyFile::PortOf(Server server) const {
    switch (server) {
        case Server::kCommand:
            return commandPort;
        case Server::kPressure:
            return pressurePort;
        case Server::kApps:
            return appsPort;
    }
    return -1;
}

std::string KeyFilePath(const std::string& home) {
    return home + "/Library/Application Support/Velto/tesselAuth.key";
}

Result<KeyFile> ParseKeyFile(std::string_view text, const std::string& path) {
    if (text.empty()) return Damaged(path, "it is empty");
    if (TakeLine(text) != R"(<?xml version="1.0" encoding="UTF-8"?>)")
        return Damaged(path, "line 1 is not the expected XML declaration");
    if (TakeLine(text) != "<root>") return Damaged(path, "line 2 is not <root>");
    KeyFile file;
    struct Port {
        const char* element;
        int* port;
    };
    int number = 3;
    for (const Port& expected :
         {Port{"commandPort", &file.commandPort}, Port{"pressurePort", &file.pressurePort},
          Port{"airAppsPort", &file.appsPort}}) {
        const auto value = ValueOf(TakeLine(text), expected.element);
        const auto port = value ? PortOfText(*value) : std::nullopt;
        if (!port)
            return Damaged(path, "line " + std::to_string(number) + " holds no port in <" +
                                     expected.element + ">");
        *expected.port = *port;
        number++;
    }
    const auto key = ValueOf(TakeLine(text), "authKey");
    if (!key || !IsKey(*key)) return Damaged(path, "line 6 holds no key in <authKey>");
    file.key = *key;
    if (TakeLine(text) != "</root>") return Damaged(path, "line 7 is not </root>");
    while (!text.empty())
        if (!TakeLine(text).empty()) return Damaged(path, "something follows </root>");
    return file;
}

Result<KeyFile> ReadKeyFile(const std::string& path) {
    // Non-blocking, so that a pipe of that name does not hold us up.
    const Descriptor file = OpenFile(path.c_str(), O_RDONLY | O_NONBLOCK);
    if (!file.Valid()) {
        if (errno == ENOENT || errno == ENOTDIR)
            return Problem{Trouble::kNoKeyFile, "there is no key file " + path +
                                                    ": no service has been started in this home"};
        return Problem{Trouble::kKeyFileUnreadable,
                       "cannot read the key file " + path + ": " + std::strerror(errno)};
    }
    struct stat status {};
    if (fstat(file.Get(), &status) == 0 && !S_ISREG(status.st_mode))
        return Damaged(path, "it is not a regular file");
    std::string text;
    for (;;) {
        char bytes[512];
        const ssize_t got = read(file.Get(), bytes, sizeof bytes);
        if (got == -1 && errno == EINTR) continue;
        if (got == -1)
            return Problem{Trouble::kKeyFileUnreadable,
                           "cannot read the key file " + path + ": " + std::strerror(errno)};
        if (got == 0) break;
        text.append(bytes, static_cast<std::size_t>(got));
        if (text.size() > kMostBytes) return Damaged(path, "it is too large");
    }
    return ParseKeyFile(text, path);
}

}  // namespace tesselctl
