#include "support/PropertyLists.h"

#include <unistd.h>

#include <cstdlib>

#include "support/Files.h"
#include "support/Waiting.h"

namespace fs = std::filesystem;

namespace {

constexpr char kBinaryMark[] = "bplist00";

// A file that goes with its owner.
class TemporaryFile {
  public:
    TemporaryFile() {
        const int made = mkstemp(path.data());
        if (made == -1) {
            throw Failed("cannot make " + path);
        }
        close(made);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { unlink(path.c_str()); }

    const std::string& Path() const { return path; }

  private:
    std::string path = (fs::temp_directory_path() / "tesselcore-plist-XXXXXX").string();
};

// LIST in FORMAT. plistutil hands on what is in that format already without looking at it.
std::string Converted(const std::string& list, const std::string& format) {
    const TemporaryFile input;
    const TemporaryFile output;
    WriteFile(input.Path(), list);
    const std::string command =
        "plistutil -i " + input.Path() + " -o " + output.Path() + " -f " + format;
    if (std::system(command.c_str()) != 0 || ReadFile(output.Path()).empty()) {
        throw Failed("plistutil does not understand this list: " + list);
    }
    return ReadFile(output.Path());
}

bool IsBinaryList(const std::string& list) {
    return list.rfind(kBinaryMark, 0) == 0;
}

}  // namespace

std::string PropertyList(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           content + "\n</plist>\n";
}

std::string Binary(const std::string& list) {
    return Converted(list, "bin");
}

std::string ContentOf(const fs::path& file) {
    const std::string list = ReadFile(file);
    const std::string written = Converted(IsBinaryList(list) ? list : Binary(list), "xml");
    std::string content;
    for (const std::string& line : Lines(written)) {
        content += line.substr(std::min(line.find_first_not_of('\t'), line.size()));
    }
    const std::size_t start = content.find('>', content.find("<plist")) + 1;
    return content.substr(start, content.find("</plist>") - start);
}

bool IsBinary(const fs::path& file) {
    return IsBinaryList(ReadFile(file));
}
