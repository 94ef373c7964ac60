#include "net/BrowserGuard.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

namespace {

// A line that is not over by then is a browser's: it has the address of the page's choice in it.
constexpr std::size_t kLongestLine = 64u << 10;
// The same for a line whose method is none of those below. A command is not kept back, so this has
// to be found out from what comes first of a longer line.
constexpr std::size_t kLongestUnknownLine = 8u << 10;

// The methods that a browser sends or knows. Others are taken for a request only when the whole
// line is there: "registerChannel /x" is a command.
constexpr std::array<std::string_view, 9> kMethods = {"CONNECT", "DELETE", "GET", "HEAD", "OPTIONS",
                                                      "PATCH",   "POST",   "PUT", "TRACE"};

bool StartsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool IsDigit(char character) {
    return character >= '0' && character <= '9';
}

bool IsMethodCharacter(char character) {
    const bool isLetter =
        (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
    constexpr std::string_view kSigns = "!#$%&'*+-.^_`|~";
    return isLetter || IsDigit(character) || kSigns.find(character) != std::string_view::npos;
}

bool IsTargetCharacter(char character) {
    return static_cast<unsigned char>(character) > ' ' && character != '\x7F';
}

// Takes what stands before the next blank off TEXT; all of it when there is none.
std::string_view NextWord(std::string_view& text) {
    const std::size_t blank = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, blank);
    text.remove_prefix(std::min(blank + 1, text.size()));
    return word;
}

// "HTTP/1.1"
bool IsVersion(std::string_view word) {
    constexpr std::string_view kProtocol = "HTTP/";
    return word.size() == kProtocol.size() + 3 && StartsWith(word, kProtocol) &&
           IsDigit(word[kProtocol.size()]) && word[kProtocol.size() + 1] == '.' &&
           IsDigit(word[kProtocol.size() + 2]);
}

bool IsRequestLine(std::string_view line) {
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    const std::string_view method = NextWord(line);
    const std::string_view target = NextWord(line);
    return !method.empty() && std::all_of(method.begin(), method.end(), IsMethodCharacter) &&
           !target.empty() && std::all_of(target.begin(), target.end(), IsTargetCharacter) &&
           IsVersion(line);
}

// Whether LINE, of which more is to come, goes on as a browser's would behind its method.
bool MayHaveTarget(std::string_view line) {
    if (line.empty()) {
        return true;
    }
    const bool isBrowsers = line.front() == '/' || line.front() == '*' ||
                            StartsWith(line, "http") || StartsWith("http", line);
    const std::string_view target = NextWord(line);
    return isBrowsers && std::all_of(target.begin(), target.end(), IsTargetCharacter) &&
           (line.empty() || StartsWith("HTTP/", line.substr(0, 5)));
}

bool MayBecomeRequest(std::string_view line) {
    return std::any_of(kMethods.begin(), kMethods.end(), [line](std::string_view method) {
        if (line.size() <= method.size()) {
            return StartsWith(method, line);
        }
        return StartsWith(line, method) && line[method.size()] == ' ' &&
               MayHaveTarget(line.substr(method.size() + 1));
    });
}

// Whether LINE is no command: of more than this length they have other things in them.
bool IsEndlessRequest(std::string_view line) {
    const std::string_view method = NextWord(line);
    return std::all_of(method.begin(), method.end(), IsMethodCharacter) && !line.empty() &&
           line.front() == '/' && std::all_of(line.begin(), line.end(), IsTargetCharacter);
}

// The greeting that WebRTC sends to a relay, or behind its length to a peer, in one piece: a
// message of STUN has two bytes of type that begin with two bits of zero, two of length, and the
// cookie. Only as a whole: a client's first bytes may be NULs, which count for nothing.
bool IsGreetingOfWebRTC(std::string_view bytes) {
    constexpr std::string_view kCookie = "\x21\x12\xA4\x42";
    constexpr std::size_t kBeforeCookie = 4;
    constexpr std::size_t kLength = 2;
    const auto isStun = [&](std::size_t start) {
        return bytes.size() >= start + kBeforeCookie + kCookie.size() &&
               static_cast<unsigned char>(bytes[start]) < 0x40 &&
               bytes.substr(start + kBeforeCookie, kCookie.size()) == kCookie;
    };
    return isStun(0) || isStun(kLength);
}

}  // namespace

Beginning TakeFor(std::string_view bytes) {
    constexpr std::string_view kHandshake = "\x16\x03";
    if (bytes.size() < kHandshake.size() && StartsWith(kHandshake, bytes)) {
        return Beginning::kUndecided;
    }
    if (StartsWith(bytes, kHandshake)) {
        return Beginning::kBrowser;
    }
    if (IsGreetingOfWebRTC(bytes)) {
        return Beginning::kBrowser;
    }
    const std::size_t end = bytes.find('\n');
    if (end != std::string_view::npos) {
        return IsRequestLine(bytes.substr(0, end)) ? Beginning::kBrowser : Beginning::kClient;
    }
    if (MayBecomeRequest(bytes)) {
        return bytes.size() >= kLongestLine ? Beginning::kBrowser : Beginning::kUndecided;
    }
    return bytes.size() >= kLongestUnknownLine && IsEndlessRequest(bytes) ? Beginning::kBrowser
                                                                          : Beginning::kClient;
}

void BrowserGuard::Expect(int client) {
    beginnings[client].clear();
}

void BrowserGuard::Forget(int client) {
    beginnings.erase(client);
}

Beginning BrowserGuard::Judge(int client, std::string& batch) {
    const auto found = beginnings.find(client);
    if (found == beginnings.end()) {
        return Beginning::kClient;
    }
    std::string& beginning = found->second;
    if (!beginning.empty()) {
        batch.insert(0, beginning);
    }
    const Beginning judgement = TakeFor(batch);
    if (judgement == Beginning::kUndecided) {
        beginning = std::move(batch);
    } else {
        beginnings.erase(found);
    }
    return judgement;
}
