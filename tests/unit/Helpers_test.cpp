#include "core/Helpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <ctime>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "unit/support/ForkedTest.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Texts = std::vector<std::wstring>;

// --- Words

Texts Words(const std::wstring& message) {
    return Helpers::splitCommand(message);
}

TEST(SplitCommand, CutsAtBlanks) {
    EXPECT_THAT(Words(L"platform"), ElementsAre(L"platform"));
    EXPECT_THAT(Words(L"auth key"), ElementsAre(L"auth", L"key"));
    EXPECT_THAT(Words(L"a b c d"), ElementsAre(L"a", L"b", L"c", L"d"));
}

TEST(SplitCommand, OfNothing_IsNoWords) {
    EXPECT_THAT(Words(L""), IsEmpty());
    EXPECT_THAT(Words(L"''"), IsEmpty());
    EXPECT_THAT(Words(L"\"\"\"\""), IsEmpty());
}

TEST(SplitCommand, TwoBlanksInARow_MakeAnEmptyWord) {
    EXPECT_THAT(Words(L"getIcon  /Applications/X.app"),
                ElementsAre(L"getIcon", L"", L"/Applications/X.app"));
    EXPECT_THAT(Words(L"a   b"), ElementsAre(L"a", L"", L"", L"b"));
}

TEST(SplitCommand, ALeadingBlank_MakesAnEmptyFirstWord) {
    EXPECT_THAT(Words(L" exit"), ElementsAre(L"", L"exit"));
    EXPECT_THAT(Words(L" "), ElementsAre(L""));
    EXPECT_THAT(Words(L"   "), ElementsAre(L"", L"", L""));
}

TEST(SplitCommand, ATrailingBlank_MakesNoWord) {
    EXPECT_THAT(Words(L"exit "), ElementsAre(L"exit"));
    EXPECT_THAT(Words(L"exit  "), ElementsAre(L"exit", L""));
}

TEST(SplitCommand, Quotes_KeepBlanksTogether) {
    EXPECT_THAT(Words(L"checkExists '/Volumes/My Disk/file'"),
                ElementsAre(L"checkExists", L"/Volumes/My Disk/file"));
    EXPECT_THAT(Words(L"checkExists \"/Volumes/My Disk/file\" x"),
                ElementsAre(L"checkExists", L"/Volumes/My Disk/file", L"x"));
}

TEST(SplitCommand, TheOtherQuote_IsAnOrdinaryCharacterInside) {
    EXPECT_THAT(Words(L"x 'say \"no\"'"), ElementsAre(L"x", L"say \"no\""));
    EXPECT_THAT(Words(L"x \"it's\" y"), ElementsAre(L"x", L"it's", L"y"));
}

TEST(SplitCommand, AnEmptyQuotedWord_IsKeptBetweenBlanksAndDroppedAtTheEnd) {
    EXPECT_THAT(Words(L"installAirApp id '' x"), ElementsAre(L"installAirApp", L"id", L"", L"x"));
    EXPECT_THAT(Words(L"installAirApp id x ''"), ElementsAre(L"installAirApp", L"id", L"x"));
    EXPECT_THAT(Words(L"x '' "), ElementsAre(L"x", L""));
}

TEST(SplitCommand, AnUnterminatedQuote_TakesTheRest) {
    EXPECT_THAT(Words(L"x 'a b  c "), ElementsAre(L"x", L"a b  c "));
    EXPECT_THAT(Words(L"x '"), ElementsAre(L"x"));
    EXPECT_THAT(Words(L"it's a \"b\""), ElementsAre(L"its a \"b\""));
}

TEST(SplitCommand, QuotesInTheMiddleOfAWord_JoinTheirContentToIt) {
    EXPECT_THAT(Words(L"ab\"c d\"e"), ElementsAre(L"abc de"));
    EXPECT_THAT(Words(L"'a'\"b\"'c'"), ElementsAre(L"abc"));
}

TEST(SplitCommand, OnlyTheBlank_Separates) {
    EXPECT_THAT(Words(L"a\tb\nc\u00A0d"), ElementsAre(L"a\tb\nc\u00A0d"));
}

TEST(SplitCommand, NothingIsAnEscape) {
    EXPECT_THAT(Words(L"a\\ b"), ElementsAre(L"a\\", L"b"));
    EXPECT_THAT(Words(L"'a\\'b'"), ElementsAre(L"a\\b"));
}

TEST(SplitCommand, ANul_IsAnOrdinaryCharacter) {
    EXPECT_THAT(Words(std::wstring(L"a\0b '\0 '", 8)),
                ElementsAre(std::wstring(L"a\0b", 3), std::wstring(L"\0 ", 2)));
}

// The rules in another order: first which characters are text and which separate, then the cut.
Texts SlowlySplit(const std::wstring& message) {
    std::vector<std::pair<wchar_t, bool>> marked;  // the character, whether it separates
    for (std::size_t at = 0; at < message.size(); ++at) {
        const wchar_t unit = message[at];
        if (unit == L'\'' || unit == L'"') {
            const std::size_t close = message.find(unit, at + 1);
            const std::size_t end = std::min(close, message.size());
            for (std::size_t inside = at + 1; inside < end; ++inside) {
                marked.emplace_back(message[inside], false);
            }
            at = end;
        } else {
            marked.emplace_back(unit, unit == L' ');
        }
    }
    Texts words(1);
    for (const auto& [unit, separates] : marked) {
        if (separates) {
            words.emplace_back();
        } else {
            words.back() += unit;
        }
    }
    if (words.back().empty()) {
        words.pop_back();
    }
    return words;
}

TEST(SplitCommand, OfEveryShortMessage_IsWhatTheRulesSay) {
    constexpr wchar_t kUnits[] = L"ab '\"";
    constexpr std::size_t kKinds = 5;
    std::vector<std::wstring> messages = {L""};
    for (std::size_t first = 0; first < messages.size(); ++first) {
        const std::wstring message = messages[first];
        ASSERT_EQ(SlowlySplit(message), Helpers::splitCommand(message))
            << Helpers::wstringToString(message);
        for (std::size_t kind = 0; message.size() < 7 && kind < kKinds; ++kind) {
            messages.push_back(message + kUnits[kind]);
        }
    }
    EXPECT_EQ(97656u, messages.size());
}

// --- Messages

using Pieces = std::vector<std::string>;

struct Cut {
    Pieces messages;
    std::string pending;
};

Cut CutInPieces(const Pieces& pieces) {
    Cut cut;
    for (const std::string& piece : pieces) {
        for (std::string& message : Helpers::splitIntoCommands(&cut.pending, piece)) {
            cut.messages.push_back(std::move(message));
        }
    }
    return cut;
}

// Cut by the rules: what is dropped is dropped first.
Cut SlowlyCut(std::string text) {
    const auto isDropped = [](char unit) { return unit == '\n' || unit == '\r' || unit == '\0'; };
    text.erase(std::remove_if(text.begin(), text.end(), isDropped), text.end());
    Cut cut;
    for (std::size_t bar = text.find('|'); bar != std::string::npos; bar = text.find('|')) {
        cut.messages.push_back(text.substr(0, bar));
        text.erase(0, bar + 1);
    }
    cut.pending = text;
    return cut;
}

TEST(SplitIntoCommands, TheRestWaitsForTheNextPacket) {
    std::string pending;
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, "a|b|c"), ElementsAre("a", "b"));
    EXPECT_EQ("c", pending);
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, "d|"), ElementsAre("cd"));
    EXPECT_EQ("", pending);
}

TEST(SplitIntoCommands, LineEndsInsideAMessage_AreDropped) {
    std::string pending;
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, "x\r\n|"), ElementsAre("x"));
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, "\na\rb\nc|\r\n"), ElementsAre("abc"));
    EXPECT_EQ("", pending);
}

TEST(SplitIntoCommands, LineEndsAlone_AreNothingAndLeaveNothing) {
    std::string pending;
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, "\r\n"), IsEmpty());
    EXPECT_EQ("", pending);
}

TEST(SplitIntoCommands, Nuls_AreDropped) {
    std::string pending;
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, std::string("\xC3\xA9|pen\0\0", 8)),
                ElementsAre("\u00E9"));
    EXPECT_EQ("pen", pending);
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, std::string("\0d\0|\0", 5)),
                ElementsAre("pend"));
    EXPECT_EQ("", pending);
}

TEST(SplitIntoCommands, TwoBarsInARow_AreTwoEmptyMessages) {
    std::string pending;
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, "||"), ElementsAre("", ""));
    EXPECT_EQ("", pending);
}

TEST(SplitIntoCommands, NothingReceived_ChangesNothing) {
    std::string pending = "half";
    EXPECT_THAT(Helpers::splitIntoCommands(&pending, ""), IsEmpty());
    EXPECT_EQ("half", pending);
}

TEST(SplitIntoCommands, CutAnywhereInThree_GivesWhatTheWholeGives) {
    using namespace std::string_literals;
    const std::string text = "auth {key}|\r\nplatform|\n||a\0b\r|\u00E9\U0001F58A|rest\n of it"s;
    const Cut whole = CutInPieces({text});
    EXPECT_EQ(SlowlyCut(text).messages, whole.messages);
    EXPECT_EQ(SlowlyCut(text).pending, whole.pending);
    for (std::size_t first = 0; first <= text.size(); ++first) {
        for (std::size_t second = first; second <= text.size(); ++second) {
            const Cut cut = CutInPieces(
                {text.substr(0, first), text.substr(first, second - first), text.substr(second)});
            ASSERT_EQ(whole.messages, cut.messages) << first << ", " << second;
            ASSERT_EQ(whole.pending, cut.pending) << first << ", " << second;
        }
    }
}

TEST(SplitIntoCommands, OfRandomPiecesInRandomPieces_IsWhatTheRulesSay) {
    std::mt19937 random(3);
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        Pieces pieces;
        for (std::size_t piece = 0, count = random() % 6; piece < count; ++piece) {
            std::string part(random() % 12, '|');
            for (char& unit : part) {
                unit = "|ab\n\r\0| \xC3\xA9"[random() % 10];
            }
            text += part;
            pieces.push_back(part);
        }
        const Cut wanted = SlowlyCut(text);
        const Cut cut = CutInPieces(pieces);
        ASSERT_EQ(wanted.messages, cut.messages);
        ASSERT_EQ(wanted.pending, cut.pending);
    }
}

double CpuSeconds() {
    timespec time;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// The processor time for one message of LENGTH characters that comes in pieces of 512.
double SecondsForOneMessage(std::size_t length) {
    const std::string piece(512, 'x');
    std::string pending;
    const double start = CpuSeconds();
    for (std::size_t sent = 0; sent < length; sent += piece.size()) {
        EXPECT_THAT(Helpers::splitIntoCommands(&pending, piece), IsEmpty());
    }
    const double seconds = CpuSeconds() - start;
    EXPECT_GE(pending.size(), length);
    return seconds;
}

TEST(SplitIntoCommands, OneMessageInManyPieces_CostsNoMoreThanItsLength) {
    // Ten times as much may cost ten times as much; with every piece going through what is already
    // there it would be a hundred times.
    constexpr std::size_t kLength = 5000000;
    const double one = std::max(SecondsForOneMessage(kLength), 0.001);
    const double ten = SecondsForOneMessage(10 * kLength);
    EXPECT_LT(ten, 40 * one);
}

TEST(SplitIntoCommands, ManyMessagesInOnePiece_CostNoMoreThanTheirLength) {
    const auto seconds = [](std::size_t count) {
        std::string text;
        for (std::size_t i = 0; i < count; ++i) {
            text += "platform|";
        }
        std::string pending;
        const double start = CpuSeconds();
        EXPECT_EQ(count, Helpers::splitIntoCommands(&pending, text).size());
        return CpuSeconds() - start;
    };
    const double one = std::max(seconds(50000), 0.001);
    EXPECT_LT(seconds(500000), 40 * one);
}

// --- Paths

struct Split {
    std::string folder;
    std::string name;
};

Split SplitPath(const std::string& path) {
    Split split = {"folder before", "name before"};
    Helpers::splitPath(path, split.folder, split.name);
    return split;
}

TEST(SplitPath, CutsBehindTheLastSlash) {
    EXPECT_EQ("/Applications/Tessel Dock/", SplitPath("/Applications/Tessel Dock/x.app").folder);
    EXPECT_EQ("x.app", SplitPath("/Applications/Tessel Dock/x.app").name);
    EXPECT_EQ("/", SplitPath("/x").folder);
    EXPECT_EQ("x", SplitPath("/x").name);
}

TEST(SplitPath, OfAFolderWithItsSlash_HasAnEmptyName) {
    EXPECT_EQ("a/b/", SplitPath("a/b/").folder);
    EXPECT_EQ("", SplitPath("a/b/").name);
}

TEST(SplitPath, OfABareFileName_LeavesTheFolderAndEmptiesTheName) {
    EXPECT_EQ("folder before", SplitPath("file").folder);
    EXPECT_EQ("", SplitPath("file").name);
    EXPECT_EQ("folder before", SplitPath("").folder);
    EXPECT_EQ("", SplitPath("").name);
}

TEST(SplitPath, WithOneStringInTwoRoles_StillCutsIt) {
    std::string path = "/a/b";
    std::string name;
    Helpers::splitPath(path, path, name);
    EXPECT_EQ("/a/", path);
    EXPECT_EQ("b", name);
}

TEST(SplitLastPathComponent, IsWhatStandsBehindTheLastSlash) {
    EXPECT_EQ("c", Helpers::splitLastPathComponent("/a/b/c"));
    EXPECT_EQ("", Helpers::splitLastPathComponent("/a/b/"));
    EXPECT_EQ("file", Helpers::splitLastPathComponent("file"));
    EXPECT_EQ("", Helpers::splitLastPathComponent(""));
}

TEST(RemoveExtension, WithoutDot_IsEmpty) {
    EXPECT_EQ("", Helpers::removeExtension("name"));
    EXPECT_EQ("", Helpers::removeExtension(""));
}

TEST(RemoveExtension, CutsAtTheLastDot) {
    EXPECT_EQ("a.b", Helpers::removeExtension("a.b.c"));
    EXPECT_EQ("", Helpers::removeExtension(".profile"));
    EXPECT_EQ("name", Helpers::removeExtension("name."));
    EXPECT_EQ("/a", Helpers::removeExtension("/a.b/c"));
}

TEST(GetExtension, StartsAtTheLastDot) {
    EXPECT_EQ(L".app", Helpers::getExtension(L"/Applications/X.app"));
    EXPECT_EQ(L".c", Helpers::getExtension(L"a.b.c"));
    EXPECT_EQ(L".", Helpers::getExtension(L"name."));
    EXPECT_EQ(L"", Helpers::getExtension(L"name"));
    EXPECT_EQ(L"", Helpers::getExtension(L""));
}

TEST(ReplaceTilde, ReplacesEveryOneByTheHomeFolder) {
    InChild([] {
        EXPECT_EQ(Home() + "/x" + Home(), Helpers::replaceTildeWithHomeDir("~/x~"));
        EXPECT_EQ(Home(), Helpers::replaceTildeWithHomeDir("~"));
        EXPECT_EQ("a" + Home() + Home() + "b", Helpers::replaceTildeWithHomeDir("a~~b"));
        EXPECT_EQ("/no/tilde", Helpers::replaceTildeWithHomeDir("/no/tilde"));
        EXPECT_EQ("", Helpers::replaceTildeWithHomeDir(""));
    });
}

TEST(ReplaceTilde, OfAHomeWithASlashAtItsEnd_HasNone) {
    InChild([] {
        setenv("HOME", (Home() + "/").c_str(), 1);
        EXPECT_EQ(Home() + "/x", Helpers::replaceTildeWithHomeDir("~/x"));
    });
}

TEST(ReplaceTilde, OfAHomeWithATildeInItsName_Ends) {
    InChild([] {
        const std::string home = Home() + "/~a~";
        ASSERT_EQ(0, mkdir(home.c_str(), 0700));
        setenv("HOME", home.c_str(), 1);
        EXPECT_EQ(home + "/x", Helpers::replaceTildeWithHomeDir("~/x"));
    });
}

TEST(ReplaceTilde, WithoutAHome_MarksTheFailure) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root becomes a user without a home";
    }
    InChild([] {
        constexpr uid_t kNoSuchUser = 54321;
        ASSERT_EQ(0, seteuid(kNoSuchUser));
        EXPECT_EQ("[FAIL]/x[FAIL]", Helpers::replaceTildeWithHomeDir("~/x~"));
        EXPECT_EQ("/no/tilde", Helpers::replaceTildeWithHomeDir("/no/tilde"));
        EXPECT_EQ("[FAIL]/Library/Application Support/Velto/", Helpers::getSupportPath());
        ASSERT_EQ(0, seteuid(0));
    });
}

TEST(SupportPath, LiesInTheUsersApplicationSupport) {
    InChild([] {
        EXPECT_EQ(Home() + "/Library/Application Support/Velto/", Helpers::getSupportPath());
    });
}

TEST(TempFolder, IsAFolderOfTheUsersOwnWithASlashAtItsEnd) {
    InChild([] {
        const std::string folder = Helpers::getTempFolder();
        ASSERT_FALSE(folder.empty());
        EXPECT_EQ('/', folder.front());
        EXPECT_EQ('/', folder.back());
        EXPECT_NE('/', folder[folder.size() - 2]);
        struct stat status;
        ASSERT_EQ(0, lstat(folder.substr(0, folder.size() - 1).c_str(), &status));
        EXPECT_TRUE(S_ISDIR(status.st_mode));
        EXPECT_EQ(geteuid(), status.st_uid);
        EXPECT_EQ(0700u, status.st_mode & 07777);
        EXPECT_EQ(folder, Helpers::getTempFolder());
    });
}

TEST(ProcessPath, IsTheCallWithoutItsLastPart) {
    InChild([] {
        Helpers::setProcessPath("/Applications/Tessel Dock/TesselCore");
        EXPECT_EQ(L"/Applications/Tessel Dock", Helpers::getCurrentPath());
        EXPECT_EQ(L"/Applications/Tessel Dock/TesselCore", Helpers::getCurrentProcessImage());
        Helpers::setProcessPath("./TesselCore");
        EXPECT_EQ(L".", Helpers::getCurrentPath());
        Helpers::setProcessPath("/TesselCore");
        EXPECT_EQ(L"", Helpers::getCurrentPath());
    });
}

TEST(ProcessPath, OfABareName_StaysAsItWas) {
    InChild([] {
        EXPECT_EQ(L"", Helpers::getCurrentPath());
        EXPECT_EQ(L"", Helpers::getCurrentProcessImage());
        Helpers::setProcessPath("TesselCore");
        EXPECT_EQ(L"", Helpers::getCurrentPath());
        EXPECT_EQ(L"TesselCore", Helpers::getCurrentProcessImage());
        Helpers::setProcessPath("/a/b");
        Helpers::setProcessPath("b");
        EXPECT_EQ(L"/a", Helpers::getCurrentPath());
    });
}

TEST(ProcessPath, WidensTheBytesOfTheCall) {
    InChild([] {
        Helpers::setProcessPath("/\xE9t\xE9/x");
        EXPECT_EQ(L"/\u00E9t\u00E9", Helpers::getCurrentPath());
    });
}

// --- Ids

TEST(GenerateUUID, IsThirtyEightCharactersWithItsBraces) {
    const std::string id = Helpers::generateUUID();
    ASSERT_EQ(38u, id.size());
    EXPECT_EQ('{', id.front());
    EXPECT_EQ('}', id.back());
    for (std::size_t at = 1; at < 37; ++at) {
        const bool isHyphen = at == 9 || at == 14 || at == 19 || at == 24;
        EXPECT_TRUE(isHyphen ? id[at] == '-' : std::isxdigit(id[at]) != 0) << id << " at " << at;
    }
}

TEST(GenerateUUID, IsAnotherOneEveryTime) {
    std::set<std::string> ids;
    for (int i = 0; i < 1000; ++i) {
        ids.insert(Helpers::generateUUID());
    }
    EXPECT_EQ(1000u, ids.size());
}

}  // namespace
