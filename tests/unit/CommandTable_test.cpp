#include "commands/CommandTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"

namespace {

Words lastWords;

Status First(const Words& words) {
    lastWords = words;
    return Status::kYes;
}
Status Second(const Words& words) {
    lastWords = words;
    return Status::kNo;
}
Status Third(const Words& words) {
    lastWords = words;
    return Status::kFailure;
}

constexpr Command kTable[] = {
    {"start", kAnyNumberOfArguments, First},
    {"startUp", 0, Second},
    {"stop", 2, Third},
};

struct Result {
    bool wasFound;
    Status status;
};

Result Try(const Words& words) {
    lastWords.clear();
    Status status = Status::kNothingHandled;
    const bool wasFound = RunCommand(kTable, words, status);
    return {wasFound, status};
}

TEST(CommandTable, RunsTheRowWhoseNameBeginsTheFirstWord) {
    EXPECT_EQ(Status::kYes, Try({L"start"}).status);
    EXPECT_EQ(Status::kYes, Try({L"starter", L"a", L"b"}).status);
    EXPECT_THAT(lastWords, testing::ElementsAre(L"starter", L"a", L"b"));
    EXPECT_EQ(Status::kFailure, Try({L"stop", L"a", L"b"}).status);
}

TEST(CommandTable, TriesTheRowsInTheirOrder) {
    // The name of an earlier row hides a longer one that begins with it.
    EXPECT_EQ(Status::kYes, Try({L"startUp"}).status);
}

TEST(CommandTable, KnowsNoOtherWords) {
    for (const wchar_t* const word : {L"", L"star", L"Start", L" start", L"sto", L"x"}) {
        const Result result = Try({word});
        EXPECT_FALSE(result.wasFound);
        EXPECT_EQ(Status::kNothingHandled, result.status);
        EXPECT_TRUE(lastWords.empty());
    }
    EXPECT_FALSE(Try({L"x", L"start"}).wasFound);
}

TEST(CommandTable, ChecksTheNumberOfArgumentsBeforeItRunsAnything) {
    InChild([] {
        for (const Words& words :
             {Words{L"stop"}, Words{L"stop", L"a"}, Words{L"stop", L"a", L"b", L"c"}}) {
            const Result result = Try(words);
            EXPECT_TRUE(result.wasFound);
            EXPECT_EQ(Status::kSyntaxError, result.status);
            EXPECT_TRUE(lastWords.empty());
            EXPECT_EQ("Wrong number of arguments, expected: 2", Printed().back());
        }
    });
}

TEST(CommandTable, CountsEmptyWords) {
    EXPECT_EQ(Status::kFailure, Try({L"stop", L"", L""}).status);
}

Status Add(const Words& words, int number, const std::string& text) {
    EXPECT_EQ(L"add", words[0]);
    return number == 7 && text == "seven" ? Status::kIconReady : Status::kIconMissing;
}

TEST(CommandTable, HandsOverWhatItsHandlersAreTold) {
    constexpr CommandRow<Words, int, const std::string&> kRows[] = {{"add", 0, Add}};
    Status status = Status::kSuccess;
    const std::string seven = "seven";
    EXPECT_TRUE((RunCommand<Words, int, const std::string&>(kRows, {L"add"}, status, 7, seven)));
    EXPECT_EQ(Status::kIconReady, status);
}

TEST(Status, HasTheNumbersOfTheInterface) {
    EXPECT_EQ(0, static_cast<int>(Status::kSuccess));
    EXPECT_EQ(-1, static_cast<int>(Status::kFailure));
    EXPECT_EQ(-2, static_cast<int>(Status::kSyntaxError));
    EXPECT_EQ(-3, static_cast<int>(Status::kStartPenData));
    EXPECT_EQ(-4, static_cast<int>(Status::kStopPenData));
    EXPECT_EQ(-5, static_cast<int>(Status::kCloseClient));
    EXPECT_EQ(-6, static_cast<int>(Status::kEndService));
    EXPECT_EQ(-7, static_cast<int>(Status::kQuitRequested));
    EXPECT_EQ(-8, static_cast<int>(Status::kNothingHandled));
    EXPECT_EQ(-9, static_cast<int>(Status::kYes));
    EXPECT_EQ(-10, static_cast<int>(Status::kNo));
    EXPECT_EQ(-11, static_cast<int>(Status::kIconReady));
    EXPECT_EQ(-12, static_cast<int>(Status::kIconMissing));
}

}  // namespace
