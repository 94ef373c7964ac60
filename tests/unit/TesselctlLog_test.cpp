#include "tesselctl/Log.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tesselctl/LogReader.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctl;
using namespace tesselctltest;

// What a reader tells until it has nothing more: texts as they are, changes in angle brackets.
std::string Everything(LogReader& reader) {
    std::string told;
    for (;;) {
        const LogUpdate update = reader.Poll();
        switch (update.change) {
            case LogChange::kNothing:
                return told;
            case LogChange::kMore:
                told += update.text;
                break;
            case LogChange::kEmptied:
                told += "<emptied>";
                break;
            case LogChange::kReplaced:
                told += "<replaced>";
                break;
            case LogChange::kGone:
                return told + "<gone>";
        }
    }
}

class TesselctlLog : public testing::Test {
  protected:
    std::string LastLines(std::size_t count) {
        LogReader reader(path);
        if (!reader.Open()) return "<not opened>";
        reader.GoToLastLines(count);
        return Everything(reader);
    }

    TemporaryHome home;
    const std::string path = LogFilePath(home.Path());
};

TEST_F(TesselctlLog, TheLastLines_AreCountedFromTheEnd) {
    WriteFile(path, "1\n2\n3\n");
    EXPECT_EQ("", LastLines(0));
    EXPECT_EQ("3\n", LastLines(1));
    EXPECT_EQ("2\n3\n", LastLines(2));
    EXPECT_EQ("1\n2\n3\n", LastLines(3));
    EXPECT_EQ("1\n2\n3\n", LastLines(4));
}

TEST_F(TesselctlLog, AnUnfinishedLastLine_Counts) {
    WriteFile(path, "1\n2\n3");
    EXPECT_EQ("3", LastLines(1));
    EXPECT_EQ("2\n3", LastLines(2));
}

TEST_F(TesselctlLog, EmptyLinesAndEmptyFiles_AreCountedToo) {
    WriteFile(path, "\n\n\n");
    EXPECT_EQ("\n\n", LastLines(2));
    WriteFile(path, "");
    EXPECT_EQ("", LastLines(2));
}

TEST_F(TesselctlLog, TheLastLinesOfALargeFile_SpanItsPieces) {
    std::string all;
    for (int i = 0; i < 50000; i++)
        all += "line " + std::to_string(i) + "\n";
    WriteFile(path, all);
    EXPECT_EQ(all.substr(all.find("line 10000\n")), LastLines(40000));
    EXPECT_EQ("line 49999\n", LastLines(1));
    EXPECT_EQ(all, LastLines(50000));
}

TEST_F(TesselctlLog, AddedText_IsFollowed) {
    WriteFile(path, "1\n");
    LogReader reader(path);
    ASSERT_TRUE(reader.Open());
    EXPECT_EQ("1\n", Everything(reader));
    AppendFile(path, "2\nha");
    EXPECT_EQ("2\nha", Everything(reader));
    AppendFile(path, "lf\n");
    EXPECT_EQ("lf\n", Everything(reader));
    EXPECT_EQ("", Everything(reader));
}

TEST_F(TesselctlLog, AnEmptiedFile_IsReadFromItsBeginning) {
    WriteFile(path, "old 1\nold 2\n");
    LogReader reader(path);
    ASSERT_TRUE(reader.Open());
    EXPECT_EQ("old 1\nold 2\n", Everything(reader));
    WriteFile(path, "new\n");
    EXPECT_EQ("<emptied>new\n", Everything(reader));
}

TEST_F(TesselctlLog, AnEmptiedFileThatHasGrownPastItsOldEnd_IsNoticedAllTheSame) {
    WriteFile(path, "old 1\nold 2\n");
    LogReader reader(path);
    ASSERT_TRUE(reader.Open());
    reader.GoToLastLines(0);
    EXPECT_EQ("", Everything(reader));
    WriteFile(path, "new 1\nnew 2\nnew 3\n");
    EXPECT_EQ("<emptied>new 1\nnew 2\nnew 3\n", Everything(reader));
}

TEST_F(TesselctlLog, AReplacedFile_IsReadToItsEndAndThenTheNewOne) {
    WriteFile(path, "old\n");
    LogReader reader(path);
    ASSERT_TRUE(reader.Open());
    EXPECT_EQ("old\n", Everything(reader));
    AppendFile(path, "last\n");
    ASSERT_EQ(0, std::rename(path.c_str(), (path + ".1").c_str()));
    WriteFile(path, "new\n");
    EXPECT_EQ("last\n<replaced>new\n", Everything(reader));
}

TEST_F(TesselctlLog, ADeletedFile_IsWaitedForUntilItIsBack) {
    WriteFile(path, "old\n");
    LogReader reader(path);
    ASSERT_TRUE(reader.Open());
    EXPECT_EQ("old\n", Everything(reader));
    ASSERT_EQ(0, unlink(path.c_str()));
    EXPECT_EQ("<gone>", Everything(reader));
    EXPECT_EQ("", Everything(reader));
    WriteFile(path, "back\n");
    EXPECT_EQ("<replaced>back\n", Everything(reader));
}

TEST_F(TesselctlLog, AFolderOrAPipeOfThatName_IsNoLog) {
    std::filesystem::create_directory(path);
    EXPECT_EQ("<not opened>", LastLines(1));
    std::filesystem::remove(path);
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    EXPECT_EQ("<not opened>", LastLines(1));
}

TEST_F(TesselctlLog, WithoutALogFile_TheCommandSaysHowToSwitchItOn) {
    const Outcome outcome = RunProgram({"--home", home.Path(), "log"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("", outcome.output);
    EXPECT_EQ("tesselctl: there is no log file " + path +
                  "; to switch the log on, run 'tesselctl log --enable' and restart the service\n",
              outcome.errors);
}

TEST_F(TesselctlLog, Enable_MakesAnEmptyFileForTheUserAloneAndKeepsOneThatIsThere) {
    EXPECT_EQ(0, RunProgram({"--home", home.Path(), "log", "--enable"}).status);
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777);
    EXPECT_EQ(0, status.st_size);
    WriteFile(path, "kept\n");
    EXPECT_EQ(0, RunProgram({"--home", home.Path(), "log", "--enable"}).status);
    EXPECT_EQ("kept\n", ReadFile(path));
}

TEST_F(TesselctlLog, EnabledByRoot_TheFileBelongsToTheOwnerOfTheHome) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can make files for others";
    ASSERT_EQ(0, chown(home.Path().c_str(), 65534, 65534));
    EXPECT_EQ(0, RunProgram({"--home", home.Path(), "log", "--enable"}).status);
    struct stat status {};
    ASSERT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(65534U, status.st_uid);
    EXPECT_EQ(65534U, status.st_gid);
}

TEST_F(TesselctlLog, TheCommand_ShowsTwentyLinesUnlessToldOtherwise) {
    std::string all;
    for (int i = 0; i < 30; i++)
        all += std::to_string(i) + "\n";
    WriteFile(path, all);
    const auto show = [&](std::vector<std::string> options) {
        std::vector<std::string> arguments = {"--home", home.Path(), "log"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        return RunProgram(arguments).output;
    };
    EXPECT_EQ(all.substr(all.find("10\n")), show({}));
    EXPECT_EQ("29\n", show({"-n", "1"}));
    EXPECT_EQ("29\n", show({"-n1"}));
    EXPECT_EQ("28\n29\n", show({"--lines=2"}));
    EXPECT_EQ(all, show({"-n", "all"}));
    EXPECT_EQ("", show({"-n", "0"}));
}

TEST_F(TesselctlLog, Following_EndsWhenNobodyReadsAnyMore) {
    WriteFile(path, "1\n2\n");
    // The reader takes one line and goes; nothing is added to the log that would bring the end to
    // light.
    const std::string command = "timeout 20 " TESSELCTL_PROGRAM " --home '" + home.Path() +
                                "' log -f | { read line; echo \"$line\" >'" + home.Path() +
                                "/out'; }";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, std::system(command.c_str()));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
    EXPECT_EQ("1\n", ReadFile(home.Path() + "/out"));
}

}  // namespace
