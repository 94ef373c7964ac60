// Who may command, and who is turned away.
#include <gmock/gmock.h>

#include <cctype>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Authorization : public testing::Test {
  protected:
    Authorization() { service.WaitUntilListening(); }

    const std::string& Key() const { return service.Keys().key; }

    // Sends it as a new client's first words and sees the connection closed without a word.
    void ExpectRefusal(const std::string& bytes) {
        Client client = service.ConnectToCommand();
        client.Send(bytes);
        client.ExpectClosed();
        ++refusals;
        service.WaitForOutput("Authorization failed!\ndeinit client\n", refusals);
    }

    std::string ClosedLine() const {
        return "error connection closed [" + std::to_string(service.Keys().commandPort) + "]\n";
    }

    static constexpr char kUnexpected[] = "Unexpected command, expected authorization attempt.\n";

    Sandbox sandbox;
    Service service{sandbox};
    std::size_t refusals = 0;
};

TEST_F(Authorization, TheKey_IsAnsweredAuthOk) {
    Client client = service.ConnectToCommand();
    client.Send("auth " + Key() + "|");
    const std::string answer = "authOk|CurrentAttachedDevices=|";
    EXPECT_EQ(client.ReceiveExactBytes(answer.size()), answer);
    service.WaitForOutput("Authorization successful.\nauthOk|\nCurrentAttachedDevices=|\n");
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(Authorization, AnyWordThatBeginsWithAuth_Passes) {
    std::size_t closed = 0;
    for (const char* const word : {"auth", "authenticate", "author", "auth\t"}) {
        Client client = service.ConnectToCommand();
        EXPECT_EQ(client.Ask(word + (" " + Key())), "authOk") << word;
        client.Close();
        service.WaitForOutput(ClosedLine(), ++closed);
    }
}

TEST_F(Authorization, AQuotedKey_Passes) {
    EXPECT_EQ(service.ConnectToCommand().Ask("auth \"" + Key() + "\""), "authOk");
}

TEST_F(Authorization, ATrailingBlankAndLineEnds_DoNoHarm) {
    EXPECT_EQ(service.ConnectToCommand().Ask("auth " + Key() + " \r\n"), "authOk");
}

TEST_F(Authorization, AnotherFirstWordOfTwo_IsRefusedAndSaid) {
    ExpectRefusal("Auth " + Key() + "|");
    service.WaitForOutput(kUnexpected);
    ExpectRefusal("platform x|");
    service.WaitForOutput(kUnexpected, 2);
    ExpectRefusal(" " + Key() + "|");
    service.WaitForOutput(kUnexpected, 3);
}

TEST_F(Authorization, OtherThanTwoWords_AreRefusedSilently) {
    ExpectRefusal("auth " + Key() + " x|");
    ExpectRefusal("auth  " + Key() + "|");
    ExpectRefusal("auth|");
    ExpectRefusal("auth" + Key() + "|");
    ExpectRefusal("platform|");
    ExpectRefusal("|");
    EXPECT_THAT(service.Output(), Not(HasSubstr(kUnexpected)));
}

TEST_F(Authorization, AnyOtherKey_IsRefused) {
    std::string otherCase = Key();
    for (char& letter : otherCase) {
        const auto byte = static_cast<unsigned char>(letter);
        letter = static_cast<char>(std::isupper(byte) ? std::tolower(byte) : std::toupper(byte));
    }
    if (otherCase != Key()) {
        ExpectRefusal("auth " + otherCase + "|");
    }
    ExpectRefusal("auth " + Key().substr(0, 37) + "|");
    ExpectRefusal("auth " + Key() + "x|");
    ExpectRefusal("auth x" + Key() + "|");
    ExpectRefusal("auth " + Key().substr(1, 36) + "|");
    ExpectRefusal("auth \"\" |");
    ExpectRefusal("auth  |");
    ExpectRefusal("auth {00000000-0000-0000-0000-000000000000}|");
    EXPECT_THAT(service.Output(), Not(HasSubstr("Authorization successful.")));
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(Authorization, WhatFollowsARefusedAttempt_IsNotHandled) {
    ExpectRefusal("auth nonsense|auth " + Key() + "|platform|");
    EXPECT_THAT(service.Output(), Not(HasSubstr("MACOSX")));
}

TEST_F(Authorization, AttemptAndCommandsInOnePacket_AreBothHandled) {
    Client client = service.ConnectToCommand();
    client.Send("auth " + Key() + "|platform|getCommonUserDir|");
    EXPECT_EQ(client.Receive(), "authOk");
    EXPECT_EQ(client.Receive(), "CurrentAttachedDevices=");
    EXPECT_EQ(client.Receive(), "Success MACOSX");
    EXPECT_EQ(client.Receive(), "Success CommonUserDir=/Users/Shared/Velto/");
}

TEST_F(Authorization, WhileAClientIsAuthorized_FurtherOnesAreClosedUnread) {
    Client authorized = service.Authorized();
    const std::size_t connections = CountOf(service.Output(), "New connection: ");
    for (int i = 0; i < 5; ++i) {
        Client late = service.ConnectToCommand();
        late.TrySend("auth " + Key() + "|platform|");
        late.ExpectClosed();
    }
    EXPECT_EQ(authorized.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(CountOf(service.Output(), "New connection: "), connections);
    EXPECT_EQ(CountOf(service.Output(), "Processing command:\nauth "), 1U);
}

TEST_F(Authorization, AfterTheAuthorizedClientHasGone_TheNextMustAuthorizeAgain) {
    service.Authorized().Close();
    service.WaitForOutput(ClosedLine());
    ExpectRefusal("platform|");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(Authorization, AClientThatWasThereBefore_IsServedWithoutAKeyMeanwhile) {
    Client early = service.ConnectToCommand();
    // In the order of their numbers: the early one has been accepted when the later one is.
    Client authorized = service.Authorized();
    EXPECT_EQ(early.Ask("platform"), "Success MACOSX");
    EXPECT_EQ(authorized.Ask("platform"), "Success MACOSX");
    authorized.Close();
    service.WaitForOutput(ClosedLine());
    early.Send("platform|");
    early.ExpectClosed();
}

TEST_F(Authorization, WhenSuchAClientGoes_TheAuthorizedOneStaysSo) {
    Client early = service.ConnectToCommand();
    Client authorized = service.Authorized();
    EXPECT_EQ(early.Ask("platform"), "Success MACOSX");
    early.Close();
    service.WaitForOutput(ClosedLine());
    EXPECT_EQ(authorized.Ask("platform"), "Success MACOSX");
    Client late = service.ConnectToCommand();
    late.ExpectClosed();
}

TEST_F(Authorization, AnAttemptOfAnAuthorizedClient_IsAnUnknownCommand) {
    Client client = service.Authorized();
    EXPECT_THAT(client.Ask("auth " + Key()), StartsWith("SyntaxError Unknown command - "));
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(Authorization, UnauthorizedClients_MayWaitBesideEachOther) {
    Client first = service.ConnectToCommand();
    Client second = service.ConnectToCommand();
    first.ExpectSilence();
    second.Send("nonsense|");
    second.ExpectClosed();
    EXPECT_EQ(first.Ask("auth " + Key()), "authOk");
}

TEST_F(Authorization, AClientThatBreaksOffInItsAttempt_SpoilsTheNextOnesAttempt) {
    // The unfinished message belongs to the server, so the next client's first message begins with
    // it.
    Client broken = service.ConnectToCommand();
    broken.Send("auth {123");
    broken.WaitUntilRead(sandbox);
    broken.Close();
    service.WaitForOutput(ClosedLine());
    ExpectRefusal("auth " + Key() + "|");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(Authorization, ThePressureAndAppsPorts_AskForNoKeyAndTurnNobodyAway) {
    Client authorized = service.Authorized();
    Client pressures[] = {service.ConnectToPressure(), service.ConnectToPressure()};
    for (Client& client : pressures) {
        EXPECT_THAT(client.Ask("nonsense"), StartsWith("SyntaxError Unknown command - "));
    }
    Client apps[] = {service.ConnectToApps(), service.ConnectToApps()};
    for (Client& client : apps) {
        EXPECT_EQ(client.Ask("nonsense"), "Success ");
    }
}

TEST_F(Authorization, ANewConnection_IsLoggedWithItsNumberPortAndServer) {
    const Client command = service.ConnectToCommand();
    const Client pressure = service.ConnectToPressure();
    const Client apps = service.ConnectToApps();
    const auto line = [](int port, const char* name) {
        return ", port=" + std::to_string(port) + ", name=" + name + "\n";
    };
    service.WaitForOutput(line(service.Keys().commandPort, "Command Server"));
    service.WaitForOutput(line(service.Keys().pressurePort, "Pressure Server"));
    service.WaitForOutput(line(service.Keys().appsPort, "Apps Communication Server"));
    EXPECT_EQ(CountOf(service.Output(), "New connection: id="), 3U);
}

}  // namespace
