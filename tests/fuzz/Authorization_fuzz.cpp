// The pass key: a message is accepted if it is two words, of which the first begins with "auth" and
// the second is the key, and in no other case.
//
// The key is another one in each run, so an input has marks where it, or something like it, is to
// stand: 0x01 is the key, 0x02 and a byte so many of its characters, 0x03 and a byte the key with
// that bit turned over.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Require.h"
#include "Surroundings.h"
#include "WordsOf.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "net/ConnectionAuthorization.h"

namespace {

std::string WithKey(Bytes input, std::string key) {
    std::string text;
    while (!input.AreAll()) {
        const std::uint8_t byte = input.TakeByte();
        switch (byte) {
            case 1:
                text += key;
                break;
            case 2:
                text += key.substr(0, input.TakeByte());
                break;
            case 3: {
                const std::uint8_t bit = input.TakeByte();
                std::string other = key;
                char& changed = other[bit / 8 % other.size()];
                changed = static_cast<char>(changed ^ 1 << bit % 8);
                text += other;
                break;
            }
            default:
                text += static_cast<char>(byte);
        }
    }
    return text;
}

template <typename Text>
bool IsRight(const Text& message, const std::string& key) {
    const std::vector<Text> words = WordsOf(message);
    const std::string_view attempt = "auth";
    return words.size() == 2 &&
           words[0].substr(0, attempt.size()) == Text(attempt.begin(), attempt.end()) &&
           words[1] == Text(key.begin(), key.end());
}

void BeforeThereIsAKey() {
    for (const wchar_t* const message : {L"auth ", L"auth ''", L"auth '' ", L"auth \" \"", L""}) {
        Require(!ConnectionAuthorization::IsAuthorizationOk(message),
                "nothing is right before there is a key");
    }
    Require(!ConnectionAuthorization::IsAuthorizationOk(std::wstring(L"auth \0", 6)),
            "not even the end of a text is right before there is a key");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string& key = []() -> const std::string& {
        Surroundings::Home();
        BeforeThereIsAKey();
        return *new std::string(ConnectionAuthorization::GetPassKey());
    }();
    const std::string message = WithKey(Bytes(data, size), key);
    if (IsUTF8(message)) {
        Require(ConnectionAuthorization::IsAuthorizationOk(UTF32FromUTF8(message)) ==
                    IsRight(message, key),
                "a message is right if it has the key, and then only");
    }
    // Any units at all, most of them no characters.
    std::wstring wide;
    for (const char byte : message) {
        wide += static_cast<wchar_t>(byte);
    }
    Require(ConnectionAuthorization::IsAuthorizationOk(wide) == IsRight(wide, key),
            "also of units that are no characters");
    Require(ConnectionAuthorization::GetPassKey() == key, "the key stays");
    return 0;
}
