#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <vector>

#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/PropertyListGuard.h"

namespace frameworks {
namespace {

constexpr std::string_view kWhiteSpace = " \t\r\n";
constexpr std::string_view kCommentStart = "<!--";
constexpr std::string_view kCommentEnd = "-->";
constexpr std::string_view kSectionStart = "<![CDATA[";
constexpr std::string_view kSectionEnd = "]]>";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Those that hold elements, and those that hold text.
constexpr std::string_view kRoot = "plist";
constexpr std::string_view kDictionary = "dict";
constexpr std::string_view kKey = "key";
constexpr std::string_view kDate = "date";
constexpr std::string_view kData = "data";
constexpr std::string_view kInteger = "integer";
constexpr std::string_view kReal = "real";
constexpr std::string_view kTrue = "true";
constexpr std::string_view kFalse = "false";
constexpr std::array<std::string_view, 2> kContainers = {kDictionary, "array"};
constexpr std::array<std::string_view, 8> kLeaves = {kKey,  "string", kData, kDate,
                                                     kTrue, kFalse,   kReal, kInteger};

template <std::size_t count>
bool IsOneOf(const std::array<std::string_view, count>& names, std::string_view name) {
    for (const std::string_view known : names) {
        if (known == name) return true;
    }
    return false;
}

// The digits of TEXT from POSITION on as a number.
int NumberAt(std::string_view text, std::size_t position, std::size_t length) {
    int number = 0;
    for (const char digit : text.substr(position, length)) {
        number = number * 10 + (digit - '0');
    }
    return number;
}

bool IsBetween(int number, int lowest, int highest) {
    return number >= lowest && number <= highest;
}

// Such as "2008-07-31T23:59:59Z". The library looks a month's days up without asking whether there
// is such a month.
bool IsDate(std::string_view text) {
    constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
    if (text.size() != kForm.size()) return false;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char byte = text[position];
        const bool fits =
            kForm[position] == '0' ? byte >= '0' && byte <= '9' : byte == kForm[position];
        if (!fits) return false;
    }
    return IsBetween(NumberAt(text, 5, 2), 1, 12) && IsBetween(NumberAt(text, 8, 2), 1, 31) &&
           IsBetween(NumberAt(text, 11, 2), 0, 23) && IsBetween(NumberAt(text, 14, 2), 0, 59) &&
           IsBetween(NumberAt(text, 17, 2), 0, 60);
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

// TEXT is a whole number, decimal or with "0x" before it; the library takes a decimal one that
// begins with 0 for octal, and what is none for 0. Empty is 0 there and here.
std::optional<std::string> PlainWhole(std::string_view text) {
    text = Trimmed(text);
    if (text.empty()) return std::string();
    const bool isNegative = text.front() == '-';
    if (isNegative || text.front() == '+') {
        text.remove_prefix(1);
    }
    const bool isHexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    if (isHexadecimal) {
        text.remove_prefix(2);
    }
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value, isHexadecimal ? 16 : 10);
    constexpr std::uint64_t kLowest = std::uint64_t{1} << 63;
    if (error != std::errc() || stopped != end || (isNegative && value > kLowest)) {
        return std::nullopt;
    }
    return (isNegative ? "-" : "") + std::to_string(value);
}

// Empty is 0.
bool IsReal(std::string_view text) {
    text = Trimmed(text);
    if (text.empty()) return true;
    if (text.front() == '+') {
        text.remove_prefix(1);
        if (text.substr(0, 1) == "-") return false;
    }
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    // What is too large or too small for a double is the nearest one.
    return stopped == end && (error == std::errc() || error == std::errc::result_out_of_range);
}

// Base64, with white space anywhere. The library leaves out what is none.
bool IsData(std::string_view text) {
    std::size_t count = 0;
    std::size_t padding = 0;
    for (const char byte : text) {
        if (kWhiteSpace.find(byte) != std::string_view::npos) continue;
        const bool isDigit = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                             (byte >= '0' && byte <= '9') || byte == '+' || byte == '/';
        if (!isDigit && byte != '=') return false;
        if (isDigit && padding > 0) return false;
        padding += isDigit ? 0 : 1;
        ++count;
    }
    return count % 4 == 0 && padding <= 2;
}

struct Element {
    std::string_view name;
    // Where its content begins in the plain text.
    std::size_t start;
    // In a dictionary: a key whose value has not come yet.
    bool hasKey = false;
};

struct Tag {
    std::string_view name;
    bool closes = false;
    bool isEmpty = false;
};

class Reader {
  public:
    explicit Reader(std::string_view xml) : rest(xml) { plain.reserve(xml.size()); }

    std::optional<std::string> Read() {
        if (rest.find('\0') != std::string_view::npos) return std::nullopt;
        Skip(kByteOrderMark);
        while (!rest.empty()) {
            if (!ReadPiece()) return std::nullopt;
        }
        if (!open.empty()) return std::nullopt;
        return std::move(plain);
    }

  private:
    bool Skip(std::string_view text) {
        if (rest.substr(0, text.size()) != text) return false;
        rest.remove_prefix(text.size());
        return true;
    }

    // Takes everything up to END, and END itself.
    std::optional<std::string_view> TakeUntil(std::string_view end) {
        const std::size_t position = rest.find(end);
        if (position == std::string_view::npos) return std::nullopt;
        const std::string_view taken = rest.substr(0, position);
        rest.remove_prefix(position + end.size());
        return taken;
    }

    bool IsInLeaf() const { return !open.empty() && IsOneOf(kLeaves, open.back().name); }

    bool ReadPiece() {
        if (Skip(kCommentStart)) return TakeUntil(kCommentEnd).has_value();
        if (Skip(kSectionStart)) return ReadSection();
        if (Skip("<?")) return !IsInLeaf() && TakeUntil("?>");
        if (Skip("<!DOCTYPE")) return SkipDocumentType();
        return rest.front() == '<' ? ReadTag() : ReadText();
    }

    // A section of its own in the middle of the document type is found in no property list.
    bool SkipDocumentType() {
        const std::optional<std::string_view> type = TakeUntil(">");
        return type && open.empty() && type->find('[') == std::string_view::npos;
    }

    bool ReadText() {
        const std::string_view text = rest.substr(0, rest.find('<'));
        rest.remove_prefix(text.size());
        if (!IsInLeaf()) return text.find_first_not_of(kWhiteSpace) == std::string_view::npos;
        plain += text;
        return true;
    }

    bool ReadSection() {
        const std::optional<std::string_view> text = TakeUntil(kSectionEnd);
        if (!text || !IsInLeaf()) return false;
        for (const char byte : *text) {
            switch (byte) {
                case '<':
                    plain += "&lt;";
                    break;
                case '>':
                    plain += "&gt;";
                    break;
                case '&':
                    plain += "&amp;";
                    break;
                default:
                    plain += byte;
            }
        }
        return true;
    }

    std::optional<Tag> TakeTag() {
        Tag tag;
        Skip("<");
        tag.closes = Skip("/");
        tag.name = rest.substr(0, rest.find_first_of(" \t\r\n/>"));
        rest.remove_prefix(tag.name.size());
        const std::optional<std::string_view> attributes = TakeUntil(">");
        if (!attributes || attributes->find('<') != std::string_view::npos) return std::nullopt;
        tag.isEmpty = !attributes->empty() && attributes->back() == '/';
        return tag;
    }

    bool ReadTag() {
        const std::optional<Tag> tag = TakeTag();
        if (!tag) return false;
        if (tag->closes) return !tag->isEmpty && Close(tag->name);
        const bool isContainer = IsOneOf(kContainers, tag->name);
        const bool isRoot = tag->name == kRoot && open.empty();
        if (!(isContainer || isRoot || IsOneOf(kLeaves, tag->name)) || !Belongs(tag->name)) {
            return false;
        }
        if (tag->isEmpty && tag->name == kDate) return false;
        plain += '<';
        plain += tag->name;
        if (tag->isEmpty) {
            plain += "/>";
            return true;
        }
        plain += '>';
        open.push_back({tag->name, plain.size()});
        depth += isContainer ? 1 : 0;
        return depth <= kDeepestPropertyList;
    }

    // Whether an element called NAME may stand here. Keys and values take turns in a dictionary.
    bool Belongs(std::string_view name) {
        if (IsInLeaf()) return false;
        if (open.empty() || open.back().name != kDictionary) return name != kKey;
        bool& hasKey = open.back().hasKey;
        hasKey = !hasKey;
        return hasKey == (name == kKey);
    }

    bool Close(std::string_view name) {
        if (open.empty() || open.back().name != name || open.back().hasKey) return false;
        if (!CheckLeaf(name)) return false;
        open.pop_back();
        depth -= IsOneOf(kContainers, name) ? 1 : 0;
        plain += "</";
        plain += name;
        plain += '>';
        return true;
    }

    // Looks at the text of the element that is about to be closed.
    bool CheckLeaf(std::string_view name) {
        const std::size_t start = open.back().start;
        const std::string_view text = std::string_view(plain).substr(start);
        if (name == kDate) return IsDate(text);
        if (name == kData) return IsData(text);
        if (name == kReal) return IsReal(text);
        if (name == kTrue || name == kFalse) return Trimmed(text).empty();
        if (name != kInteger) return true;
        const std::optional<std::string> whole = PlainWhole(text);
        if (!whole) return false;
        plain.replace(start, std::string::npos, *whole);
        return true;
    }

    std::string_view rest;
    std::string plain;
    std::vector<Element> open;
    // How many of those are containers.
    std::size_t depth = 0;
};

}  // namespace

std::optional<std::string> PlainXMLPropertyList(std::string_view xml) {
    return Reader(xml).Read();
}

}  // namespace frameworks
