#include "tesselctl/ApplicationRequest.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "tesselctl/Paths.h"
#include "tesselctl/Printable.h"
#include "tesselctl/Quoting.h"

namespace tesselctl {
namespace {

struct Said {
    std::optional<Kind> kind;
    std::string name;
    std::vector<std::string> words;
};

// The service takes such a text for an empty one.
bool IsBlank(const std::string& text) {
    return text.find_first_not_of(' ') == std::string::npos;
}

std::string ParseWords(Arguments& arguments, Said& said) {
    bool options = true;
    while (!arguments.AtEnd()) {
        std::optional<std::string> value;
        if (!options || !arguments.AtOption()) {
            said.words.push_back(arguments.Take());
        } else if (arguments.TakeFlag("--")) {
            options = false;
        } else if (arguments.TakeFlag("--air")) {
            said.kind = Kind::kAir;
        } else if (arguments.TakeFlag("--native")) {
            said.kind = Kind::kNative;
        } else if (arguments.TakeOption("--name", value)) {
            if (!value || IsBlank(*value)) return Wrong("--name needs a name");
            said.name = *value;
        } else {
            return Wrong("there is no option " + arguments.Peek());
        }
    }
    return {};
}

std::optional<Kind> KindOfPackage(const std::string& package) {
    std::string ending = std::filesystem::path(package).extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
    if (ending == ".air") return Kind::kAir;
    if (ending == ".pkg" || ending == ".mpkg" || ending == ".zip") return Kind::kNative;
    return std::nullopt;
}

// The service hands the path to a shell in quotes, and makes a question mark of every character
// that is not ASCII.
std::string WhyNotToInstall(const std::string& package, Kind kind) {
    const std::string_view quoted = kind == Kind::kAir ? "\"$`\\" : "'";
    for (const char c : package) {
        if (static_cast<unsigned char>(c) >= 0x80)
            return "the service cannot install from a path with characters that are not ASCII: " +
                   Printable(package);
        if (quoted.find(c) != std::string_view::npos)
            return std::string("the service cannot install from a path with the character ") + c +
                   ": " + Printable(package);
    }
    return {};
}

std::string ConcludePackage(const Said& said, ApplicationRequest& request) {
    if (said.words.empty() || said.words[0].empty()) return Wrong("which package?");
    if (said.words.size() > 2) return Wrong("one package and one APP-ID at the most");
    const std::optional<Kind> kind = said.kind ? said.kind : KindOfPackage(said.words[0]);
    if (!kind)
        return Wrong(Printable(said.words[0]) +
                     " ends neither in .air nor in .pkg or .zip: say --air or --native");
    request.kind = *kind;
    request.package = AbsolutePath(said.words[0]);
    if (said.words.size() == 2) request.id = said.words[1];
    if (!request.id.empty() && IsBlank(request.id)) return Wrong("an APP-ID has more than blanks");
    if (request.kind == Kind::kAir && request.id.empty())
        return Wrong("an AIR application needs its APP-ID behind the package");
    if (!Exists(request.package)) return "there is no " + Printable(request.package);
    request.name = !said.name.empty()   ? said.name
                   : request.id.empty() ? FileNameOf(request.package)
                                        : request.id;
    return WhyNotToInstall(request.package, request.kind);
}

std::string ConcludeIdentifier(const Said& said, ApplicationRequest& request) {
    if (said.words.empty() || IsBlank(said.words[0])) return Wrong("which application?");
    if (said.words.size() > 1) return Wrong("one APP-ID at a time");
    request.id = said.words[0];
    request.name = said.name.empty() ? request.id : said.name;
    request.kind = said.kind.value_or(IsAirIdentifier(request.id) ? Kind::kAir : Kind::kNative);
    return {};
}

}  // namespace

std::string ParseApplication(Arguments& arguments, ApplicationRequest& request) {
    Said said;
    std::string wrong = ParseWords(arguments, said);
    if (!wrong.empty()) return wrong;
    const bool takesPackage = request.deed == Deed::kInstall || request.deed == Deed::kUpgrade;
    wrong = takesPackage ? ConcludePackage(said, request) : ConcludeIdentifier(said, request);
    if (!wrong.empty()) return wrong;
    // The service names a script after it.
    if (request.name.find('/') != std::string::npos)
        return "the name must not hold a slash: " + Printable(request.name);
    wrong = WhyUnsendable(request.id, "the APP-ID");
    if (wrong.empty()) wrong = WhyUnsendable(request.name, "the name");
    return wrong.empty() ? WhyUnsendable(request.package, "the path of the package") : wrong;
}

bool IsAirIdentifier(std::string_view id) {
    constexpr std::size_t kPublisherDigits = 40;
    const std::size_t last = id.rfind('.');
    if (last == std::string_view::npos || last < kPublisherDigits + 2) return false;
    const std::string_view number = id.substr(last + 1);
    const std::string_view publisher = id.substr(last - kPublisherDigits, kPublisherDigits);
    return !number.empty() && number.find_first_not_of("0123456789") == std::string_view::npos &&
           publisher.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos &&
           id[last - kPublisherDigits - 1] == '.';
}

}  // namespace tesselctl
