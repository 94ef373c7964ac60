// Nobody gets in with anything but the key, and every start has another one.
#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <random>
#include <set>

#include "Counts.h"
#include "support/Files.h"
#include "support/Service.h"

namespace {

std::string RandomKey(std::mt19937& random) {
    static const char kDigits[] = "0123456789abcdef";
    std::string key = "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}";
    for (char& letter : key) {
        if (letter == 'x') {
            letter = kDigits[random() % 16];
        }
    }
    return key;
}

std::string InOtherCase(std::string key) {
    for (char& letter : key) {
        const auto byte = static_cast<unsigned char>(letter);
        letter = static_cast<char>(std::islower(byte) ? std::toupper(byte) : std::tolower(byte));
    }
    return key;
}

bool IsAscii(const std::string& text) {
    return std::none_of(text.begin(), text.end(), [](char letter) { return (letter & 0x80) != 0; });
}

// Bytes that are part of no word: dropped, ending the message, or quoting what stands there.
bool IsOfTheSyntax(int byte) {
    return byte == 0 || byte == '\r' || byte == '\n' || byte == '|' || byte == '"' || byte == '\'';
}

// What follows "auth ". None of them is the key in another spelling of the message.
std::vector<std::string> WrongKeys(const std::string& key, std::size_t count) {
    std::vector<std::string> wrong = {"",
                                      key.substr(1, key.size() - 2),
                                      key.substr(1),
                                      key.substr(0, key.size() - 1),
                                      " " + key,
                                      "  " + key,
                                      key + " " + key,
                                      key + " x",
                                      key + "  ",
                                      key.substr(0, 19) + " " + key.substr(19),
                                      "\"\" " + key,
                                      key + key,
                                      "{}",
                                      "(null)"};
    if (InOtherCase(key) != key) {
        wrong.push_back(InOtherCase(key));
    }
    for (std::size_t length = 1; length < key.size(); ++length) {
        wrong.push_back(key.substr(0, length));
        wrong.push_back(key.substr(length));
    }
    for (std::size_t at = 0; at < key.size(); ++at) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string off = key;
            off[at] = static_cast<char>(off[at] ^ (1 << bit));
            wrong.push_back(off);
        }
    }
    for (int byte = 1; byte < 256; ++byte) {
        if (!IsOfTheSyntax(byte)) {
            wrong.push_back(static_cast<char>(byte) + key);
            if (byte != ' ') {
                wrong.push_back(key + static_cast<char>(byte));
            }
        }
    }
    std::mt19937 random(20);
    std::shuffle(wrong.begin(), wrong.end(), random);
    while (wrong.size() < count) {
        wrong.push_back(RandomKey(random));
    }
    wrong.resize(count);
    return wrong;
}

TEST(Keys, WrongOnes_LetNobodyIn) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    const std::vector<std::string> wrong =
        WrongKeys(service.Keys().key, static_cast<std::size_t>(Count(1000, 10000)));
    for (const std::string& key : wrong) {
        Client client = service.ConnectToCommand();
        client.Send("auth " + key + "|");
        if (!IsAscii(key)) {
            // Of what is no UTF-8 nothing is left, also not the bar behind it.
            client.WaitUntilRead(sandbox);
            client.TrySend("|");
        }
        // With nothing said, as Failed it says what was.
        ASSERT_NO_THROW(client.ExpectClosed()) << testing::PrintToString(key);
    }
    EXPECT_FALSE(Contains(service.Output(), "Authorization successful."));
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
    Say(std::to_string(wrong.size()) +
        " wrong keys: none accepted; the right one accepted behind them");
}

TEST(Keys, OfEveryStart_AreDistinct) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kDock);
    const int starts = Count(20, 1000);
    std::set<std::string> keys;
    for (int start = 0; start < starts; ++start) {
        Service service(sandbox);
        keys.insert(service.WaitUntilListening().Keys().key);
    }
    EXPECT_EQ(keys.size(), static_cast<std::size_t>(starts));
    Say(std::to_string(starts) + " starts: " + std::to_string(keys.size()) + " distinct keys");
}

}  // namespace
