// The file that tells clients the ports and the key.
#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// Of a run whose key file cannot be read, from what it printed.
std::vector<int> PrintedPorts(const Service& service) {
    service.WaitForOutput("waiting for clients\n", 3);
    constexpr char kListening[] = "Listen [";
    std::vector<int> ports;
    for (const std::string& line : Lines(service.Output())) {
        if (line.rfind(kListening, 0) == 0) {
            ports.push_back(std::stoi(line.substr(sizeof kListening - 1)));
        }
    }
    return ports;
}

TEST(KeyFile, HoldsThePortsAndTheKeyInItsExactForm) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    const KeyFile& keys = service.Keys();
    EXPECT_EQ(ReadFile(sandbox.Outside(Service::kKeyFile)),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?> \n"
              "<root> \n"
              "\t<commandPort>" +
                  std::to_string(keys.commandPort) +
                  "</commandPort> \n"
                  "\t<pressurePort>" +
                  std::to_string(keys.pressurePort) +
                  "</pressurePort> \n"
                  "\t<airAppsPort>" +
                  std::to_string(keys.appsPort) +
                  "</airAppsPort> \n"
                  "\t<authKey>" +
                  keys.key +
                  "</authKey> \n"
                  "</root> \n");
    service.WaitForOutput("waiting for clients\n", 3);
    EXPECT_THAT(PrintedPorts(service),
                testing::ElementsAre(keys.commandPort, keys.pressurePort, keys.appsPort));
}

TEST(KeyFile, TheKey_IsAUuidInBraces) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_THAT(service.Keys().key,
                testing::MatchesRegex("\\{[0-9A-Fa-f]{8}(-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\\}"));
}

TEST(KeyFile, EveryStart_MakesANewKeyAndRewritesTheFile) {
    Sandbox sandbox;
    std::string first;
    {
        Service service(sandbox);
        service.WaitUntilListening();
        first = service.Keys().key;
    }
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_NE(service.Keys().key, first);
    EXPECT_THAT(ReadFile(sandbox.Outside(Service::kKeyFile)), Not(HasSubstr(first)));
    Client late = service.ConnectToCommand();
    late.Send("auth " + first + "|");
    late.ExpectClosed();
}

TEST(KeyFile, ALongerOldFile_IsReplacedWhole) {
    Sandbox sandbox;
    sandbox.MakeUsersFile(Service::kKeyFile, std::string(5000, 'x'));
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_THAT(ReadFile(sandbox.Outside(Service::kKeyFile)), Not(HasSubstr("x>x")));
    EXPECT_EQ(CountOf(ReadFile(sandbox.Outside(Service::kKeyFile)), "xxx"), 0U);
}

TEST(KeyFile, AnOldOneInTheDocksFolder_IsDeletedAndNothingElseThere) {
    Sandbox sandbox;
    const std::string dock = std::string(Service::kSupportFolder) + "/Tessel Dock/";
    sandbox.MakeUsersFile(dock + "tesselAuth.key", "old");
    sandbox.MakeUsersFile(dock + "settings.xml", "kept");
    Service service(sandbox);
    service.WaitUntilListening();
    WaitUntil("the old key file is gone",
              [&] { return !std::filesystem::exists(sandbox.Outside(dock + "tesselAuth.key")); });
    EXPECT_EQ(ReadFile(sandbox.Outside(dock + "settings.xml")), "kept");
}

TEST(KeyFile, WhenItCannotBeWritten_TheServiceRunsAndNobodyAuthorizes) {
    Sandbox sandbox;
    sandbox.MakeUsersFolder(Service::kSupportFolder);
    std::filesystem::permissions(sandbox.Outside(Service::kSupportFolder),
                                 std::filesystem::perms(0500));
    Service service(sandbox);
    const std::vector<int> ports = PrintedPorts(service);
    ASSERT_EQ(ports.size(), 3U);
    service.WaitForOutput(
        "Call to Unable to open key authorization file to write:  returned error 13\n");
    EXPECT_FALSE(std::filesystem::exists(sandbox.Outside(Service::kKeyFile)));

    // Words that an empty key could be taken for, among them.
    for (const char* const attempt :
         {"auth x", "auth", "auth ", "auth  ", "auth \"\"", "auth \"\" ", "auth '' ", "auth {}",
          "auth (null)", "auth Error", "auth \"\" \"\""}) {
        Client client(sandbox.Connect(ports[0]));
        client.Send(std::string(attempt) + "|");
        client.ExpectClosed();
    }
    EXPECT_THAT(service.Output(), Not(HasSubstr("Authorization successful.")));

    // The ports that need no key work.
    EXPECT_EQ(Client(sandbox.Connect(ports[2])).Ask("hello"), "Success ");
}

}  // namespace
