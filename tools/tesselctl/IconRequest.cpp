#include "tesselctl/IconRequest.h"

#include "tesselctl/Paths.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Quoting.h"

namespace tesselctl {
namespace {

constexpr const char* kApplications = "/Applications/";
constexpr std::string_view kBundleEnding = ".app";

bool EndsWith(const std::string& text, std::string_view ending) {
    return text.size() > ending.size() &&
           text.compare(text.size() - ending.size(), ending.size(), ending) == 0;
}

std::string FindBundle(const std::string& said, const std::string& home) {
    std::string here = AbsolutePath(said);
    if (Exists(here) || said.find('/') != std::string::npos) return here;
    std::string name = said;
    if (!EndsWith(said, kBundleEnding)) name += kBundleEnding;
    for (const std::string& folder : {std::string(), AbsolutePath(home)}) {
        std::string installed = folder + kApplications + name;
        if (Exists(installed)) return installed;
    }
    return here;
}

// "/Applications/Clock.app" is Clock.
std::string NameOf(const std::string& bundle) {
    std::string name = FileNameOf(bundle);
    if (EndsWith(name, kBundleEnding)) name.erase(name.size() - kBundleEnding.size());
    return name;
}

}  // namespace

std::string ParseIcon(Arguments& arguments, const std::string& home, IconRequest& request) {
    if (arguments.AtOption()) return Wrong("'icon' does not take " + arguments.Peek());
    const std::vector<std::string> words = arguments.Rest();
    if (words.empty() || words[0].empty()) return Wrong("'icon' needs an application");
    if (words.size() > 2) return Wrong("'icon' takes an application and a file");
    request.bundle = FindBundle(words[0], home);
    if (!Exists(request.bundle)) return "there is no " + Printable(request.bundle);
    std::string wrong = WhyUnsendable(request.bundle, "the path of the application");
    if (!wrong.empty()) return wrong;
    const std::string fileName = NameOf(request.bundle) + ".png";
    request.file = words.size() == 2 ? words[1] : fileName;
    if (request.file.empty()) return Wrong("'icon' needs a name for the file");
    if (IsFolder(request.file)) request.file += '/' + fileName;
    return {};
}

}  // namespace tesselctl
