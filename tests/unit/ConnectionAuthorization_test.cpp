// Every test runs in a process and a home folder of its own: there is one key in a process's life.

#include "net/ConnectionAuthorization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "core/Helpers.h"
#include "unit/support/ForkedTest.h"
#include "unit/support/Kernel.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace {

std::string Support() {
    return Home() + "/Library/Application Support/Velto/";
}

std::string KeyFile() {
    return Support() + "tesselAuth.key";
}

unsigned ModeOf(const std::string& path) {
    struct stat status;
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : ~0u;
}

bool IsOk(const std::string& message) {
    return ConnectionAuthorization::IsAuthorizationOk(Helpers::stringToWString(message));
}

std::vector<std::string> EntriesOf(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

// The end of a full disk, at a place of the test's choice, for as long as there is one.
class FilesNoLongerThan {
  public:
    explicit FilesNoLongerThan(std::size_t bytes) {
        signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
        const rlimit limit = {bytes, before.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    }
    ~FilesNoLongerThan() { setrlimit(RLIMIT_FSIZE, &before); }
    FilesNoLongerThan(const FilesNoLongerThan&) = delete;
    FilesNoLongerThan& operator=(const FilesNoLongerThan&) = delete;

  private:
    rlimit before = {};
};

// Runs BODY behind the log's own first line.
void Quietly(const std::function<void()>& body) {
    InChild([&body] {
        Helpers::logprint("opens the log");
        Printed();
        body();
    });
}

TEST(PassKey, IsAUuidInBracesAndStays) {
    InChild([] {
        const std::string key = ConnectionAuthorization::GetPassKey();
        EXPECT_EQ(38u, key.size());
        EXPECT_EQ('{', key.front());
        EXPECT_EQ('}', key.back());
        EXPECT_EQ(key, ConnectionAuthorization::GetPassKey());
    });
}

TEST(PassKey, MadeAnew_IsAnotherOne) {
    InChild([] {
        const std::string key = ConnectionAuthorization::GetPassKey();
        ConnectionAuthorization::GeneratePassKey();
        EXPECT_NE(key, ConnectionAuthorization::GetPassKey());
        EXPECT_FALSE(IsOk("auth " + key));
        EXPECT_TRUE(IsOk("auth " + ConnectionAuthorization::GetPassKey()));
    });
}

TEST(PassKey, IsAnotherOneInEveryProcess) {
    const auto keyOfAProcess = [] {
        return RunForked([] { std::puts(ConnectionAuthorization::GetPassKey().c_str()); }).output;
    };
    const std::string key = keyOfAProcess();
    EXPECT_EQ(39u, key.size());
    EXPECT_NE(key, keyOfAProcess());
}

TEST(PortsFile, HasItsExactForm) {
    Quietly([] {
        ConnectionAuthorization::WritePassKeyAndPortsFile(3400, 3527, 3655);
        EXPECT_EQ(
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?> \n"
            "<root> \n"
            "\t<commandPort>3400</commandPort> \n"
            "\t<pressurePort>3527</pressurePort> \n"
            "\t<airAppsPort>3655</airAppsPort> \n"
            "\t<authKey>" +
                ConnectionAuthorization::GetPassKey() +
                "</authKey> \n"
                "</root> \n",
            ReadFile(KeyFile()));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST(PortsFile, WithPortsThatCouldNotBeOpened_HasMinusOne) {
    InChild([] {
        ConnectionAuthorization::WritePassKeyAndPortsFile(-1, 3500, -1);
        const std::string text = ReadFile(KeyFile());
        EXPECT_THAT(text, testing::HasSubstr("\t<commandPort>-1</commandPort> \n"));
        EXPECT_THAT(text, testing::HasSubstr("\t<pressurePort>3500</pressurePort> \n"));
        EXPECT_THAT(text, testing::HasSubstr("\t<airAppsPort>-1</airAppsPort> \n"));
    });
}

TEST(PortsFile, BringsItsFoldersForTheUserAlone) {
    InChild([] {
        umask(0);
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_EQ(0700u, ModeOf(Support()));
        EXPECT_EQ(0700u, ModeOf(Support() + "Tessel Dock/"));
        EXPECT_EQ(0666u, ModeOf(KeyFile()));
    });
}

TEST(PortsFile, InAFolderThatOthersCanEnter_IsTheUsersAlone) {
    InChild([] {
        umask(0);
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        ASSERT_EQ(0, chmod(Support().c_str(), 0711));
        ASSERT_EQ(0, chmod(KeyFile().c_str(), 0666));
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_EQ(0600u, ModeOf(KeyFile()));
    });
}

TEST(PortsFile, OfALongerPast_IsReplacedWhole) {
    InChild([] {
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        const std::string text = ReadFile(KeyFile());
        WriteFile(KeyFile(), std::string(10000, 'x'));
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_EQ(text, ReadFile(KeyFile()));
    });
}

TEST(PortsFile, InTheDocksFolder_IsDeletedAndNothingElseThere) {
    InChild([] {
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        const std::string dock = Support() + "Tessel Dock/";
        WriteFile(dock + "tesselAuth.key", "old");
        WriteFile(dock + "settings.xml", "the user's");
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_FALSE(Exists(dock + "tesselAuth.key"));
        EXPECT_EQ("the user's", ReadFile(dock + "settings.xml"));
        EXPECT_TRUE(Exists(KeyFile()));
    });
}

TEST(PortsFile, ThatCannotBeWritten_IsReportedAndLeavesNoKey) {
    Quietly([] {
        // The support folder comes first, so that its own making is not what fails.
        ConnectionAuthorization::CreateDirIfNeeded(Support());
        ASSERT_EQ(0, mkdir(KeyFile().c_str(), 0700));
        Printed();
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_THAT(Printed(), ElementsAre("Call to Unable to open key authorization file to "
                                           "write:  returned error " +
                                           std::to_string(EISDIR)));
        for (const char* const attempt :
             {"auth {}", "auth ''", "auth '' ", "auth \"\" ", "auth", "auth x", "auth Error"}) {
            EXPECT_FALSE(IsOk(attempt)) << attempt;
        }
        const std::wstring nul(L"auth \0", 6);
        EXPECT_FALSE(ConnectionAuthorization::IsAuthorizationOk(nul));
    });
}

TEST(PortsFile, ThatCannotBeWritten_LeavesTheOldOneInTheDocksFolder) {
    InChild([] {
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        const std::string old = Support() + "Tessel Dock/tesselAuth.key";
        WriteFile(old, "old");
        ASSERT_EQ(0, unlink(KeyFile().c_str()));
        ASSERT_EQ(0, mkdir(KeyFile().c_str(), 0700));
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_EQ("old", ReadFile(old));
    });
}

TEST(PortsFile, InAFolderThatCannotBeWritten_IsReportedWithTheSystemsNumber) {
    Quietly([] {
        ConnectionAuthorization::CreateDirIfNeeded(Support());
        ASSERT_EQ(0, chmod(Support().c_str(), 0500));
        GiveUpRootsRights();
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        EXPECT_THAT(Printed(), ElementsAre("Call to Unable to open key authorization file to "
                                           "write:  returned error " +
                                           std::to_string(EACCES)));
        EXPECT_FALSE(Exists(KeyFile()));
        ASSERT_EQ(0, chmod(Support().c_str(), 0700));
    });
}

TEST(PortsFile, OnAFullDisk_StaysAsItWasAndIsReported) {
    Quietly([] {
        ConnectionAuthorization::WritePassKeyAndPortsFile(1, 2, 3);
        const std::string before = ReadFile(KeyFile());
        const std::string key = ConnectionAuthorization::GetPassKey();
        const std::string old = Support() + "Tessel Dock/tesselAuth.key";
        WriteFile(old, "old");
        {
            const FilesNoLongerThan half(before.size() / 2);
            ConnectionAuthorization::WritePassKeyAndPortsFile(4, 5, 6);
        }
        EXPECT_THAT(Printed(), ElementsAre("Call to Unable to open key authorization file to "
                                           "write:  returned error " +
                                           std::to_string(EFBIG)));
        EXPECT_EQ(before, ReadFile(KeyFile()));
        EXPECT_FALSE(IsOk("auth " + key));
        EXPECT_THAT(EntriesOf(Support()), UnorderedElementsAre("tesselAuth.key", "Tessel Dock"));
        EXPECT_EQ("old", ReadFile(old));
    });
}

TEST(PortsFile, ThatIsNewOnAFullDisk_IsNotThereAtAll) {
    InChild([] {
        {
            const FilesNoLongerThan half(100);
            ConnectionAuthorization::WritePassKeyAndPortsFile(4, 5, 6);
        }
        EXPECT_THAT(EntriesOf(Support()), ElementsAre("Tessel Dock"));
    });
}

TEST(CreateDirIfNeeded, SaysWhatMkdirSays) {
    InChild([] {
        const std::string folder = Home() + "/folder";
        EXPECT_EQ(0, ConnectionAuthorization::CreateDirIfNeeded(folder));
        EXPECT_EQ(0700u, ModeOf(folder));
        EXPECT_EQ(-1, ConnectionAuthorization::CreateDirIfNeeded(folder));
        EXPECT_EQ(-1, ConnectionAuthorization::CreateDirIfNeeded(Home() + "/no/folder"));
    });
}

class Authorization : public testing::Test {
  protected:
    // Runs BODY where KEY has been made, and nothing has been printed.
    static void WithAKey(const std::function<void(const std::string& key)>& body) {
        Quietly([&body] { body(ConnectionAuthorization::GetPassKey()); });
    }
};

TEST_F(Authorization, TheWordAuthAndTheKey_Pass) {
    WithAKey([](const std::string& key) {
        EXPECT_TRUE(IsOk("auth " + key));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(Authorization, AnyWordThatBeginsWithAuth_Passes) {
    WithAKey([](const std::string& key) {
        for (const char* const word : {"auth", "authorize", "author", "authenticate", "auth!"}) {
            EXPECT_TRUE(IsOk(word + (" " + key))) << word;
        }
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(Authorization, AnyOtherWord_IsRefusedAndSaid) {
    WithAKey([](const std::string& key) {
        for (const char* const word : {"Auth", "aut", "AUTH", "xauth", "", "platform"}) {
            EXPECT_FALSE(IsOk(word + (" " + key))) << word;
            EXPECT_THAT(Printed(),
                        ElementsAre("Unexpected command, expected authorization attempt."));
        }
    });
}

TEST_F(Authorization, OtherThanTwoWords_AreRefusedSilently) {
    WithAKey([](const std::string& key) {
        for (const std::string& message :
             {std::string(), std::string("auth"), key, "auth " + key + " more", "auth  " + key,
              " auth " + key, "auth " + key + "  ", "auth '" + key, std::string("auth ''")}) {
            // The one with an open quote has two words, and is right.
            EXPECT_EQ(message == "auth '" + key, IsOk(message)) << message;
        }
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(Authorization, AnyOtherKey_IsRefusedSilently) {
    WithAKey([](const std::string& key) {
        std::string upper = key;
        for (char& letter : upper) {
            letter = static_cast<char>(std::toupper(letter));
        }
        // A key without a letter in it has no other case.
        if (upper != key) {
            EXPECT_FALSE(IsOk("auth " + upper));
        }
        for (std::size_t at = 0; at < key.size(); ++at) {
            std::string wrong = key;
            wrong[at] = wrong[at] == '0' ? '1' : '0';
            EXPECT_FALSE(IsOk("auth " + wrong)) << wrong;
            EXPECT_FALSE(IsOk("auth " + key.substr(0, at)));
            EXPECT_FALSE(IsOk("auth " + key.substr(at + 1)));
        }
        EXPECT_FALSE(IsOk("auth " + key + key));
        EXPECT_FALSE(IsOk("auth " + key + "x"));
        EXPECT_THAT(Printed(), IsEmpty());
    });
}

TEST_F(Authorization, TheKeyWithANulBehindIt_IsAnotherKey) {
    WithAKey([](const std::string& key) {
        EXPECT_FALSE(ConnectionAuthorization::IsAuthorizationOk(
            L"auth " + Helpers::stringToWString(key) + std::wstring(1, L'\0')));
    });
}

TEST_F(Authorization, AQuotedKey_IsTheSameWord) {
    WithAKey([](const std::string& key) {
        EXPECT_TRUE(IsOk("auth '" + key + "'"));
        EXPECT_TRUE(IsOk("'auth' \"" + key + "\""));
        EXPECT_TRUE(IsOk("auth " + key + " "));
    });
}

TEST_F(Authorization, AsksOnlyForAKeyThatHasBeenMade) {
    InChild([] {
        EXPECT_FALSE(IsOk("auth " + Helpers::generateUUID()));
        EXPECT_FALSE(IsOk("auth '' "));
        // Asking has not made one.
        const std::string key = ConnectionAuthorization::GetPassKey();
        EXPECT_TRUE(IsOk("auth " + key));
    });
}

}  // namespace
