#include "load/KeyFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "support/Descriptor.h"
#include "support/Failure.h"

namespace {

std::string ReadWhole(const std::string& path) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char bytes[4096];
    const ssize_t length = file.IsOpen() ? read(file.Get(), bytes, sizeof bytes) : 0;
    return length > 0 ? std::string(bytes, static_cast<std::size_t>(length)) : std::string();
}

std::string ElementOf(const std::string& text, const std::string& name) {
    const std::string open = "<" + name + ">";
    const std::size_t start = text.find(open);
    const std::size_t end = text.find("</" + name + ">");
    if (start == std::string::npos || end == std::string::npos) {
        throw Failure("no " + name + " in the key file");
    }
    return text.substr(start + open.size(), end - start - open.size());
}

int PortOf(const std::string& text, const std::string& name) {
    return std::atoi(ElementOf(text, name).c_str());
}

}  // namespace

std::optional<KeyFile> ReadKeyFile(const std::string& path) {
    const std::string text = ReadWhole(path);
    if (text.find("</root>") == std::string::npos) {
        return std::nullopt;
    }
    return KeyFile{PortOf(text, "commandPort"), PortOf(text, "pressurePort"),
                   PortOf(text, "airAppsPort"), ElementOf(text, "authKey")};
}
