// How bytes become messages, and replies bytes. Most of it on the ports that ask for no key: the
// framing is the same.
#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Framing : public testing::Test {
  protected:
    Framing() { service.WaitUntilListening(); }

    void ExpectMessage(const std::string& message) const {
        service.WaitForOutput("Processing command:\n" + message + "\n");
    }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(Framing, SeveralMessagesInOnePacket_AreCutAtTheBarsAndTheRestWaits) {
    Client client = service.ConnectToPressure();
    client.Send("aa|bb|cc");
    EXPECT_THAT(client.Receive(), StartsWith("SyntaxError Unknown command - "));
    EXPECT_THAT(client.Receive(), StartsWith("SyntaxError Unknown command - "));
    client.ExpectSilence();
    ExpectMessage("aa");
    ExpectMessage("bb");
    client.Send("dd|");
    client.Receive();
    ExpectMessage("ccdd");
}

TEST_F(Framing, OneByteAPacket_IsTheSameMessage) {
    Client client = service.Authorized();
    for (const char byte : std::string("platform|")) {
        client.Send(std::string(1, byte));
        client.WaitUntilRead(sandbox);
    }
    EXPECT_EQ(client.Receive(), "Success MACOSX");
}

TEST_F(Framing, LineEndsAndNuls_AreDroppedWhereverTheyStand) {
    Client client = service.Authorized();
    EXPECT_EQ(client.Ask(std::string("\r\npl\0at\nfo\rrm\r\n\0", 16)), "Success MACOSX");
    EXPECT_EQ(client.Ask("platform\r\n"), "Success MACOSX");
}

TEST_F(Framing, LineEndsAlone_AreNothingAndLeaveNothing) {
    Client client = service.Authorized();
    client.Send("\r\n\r\n\n");
    client.WaitUntilRead(sandbox);
    client.ExpectSilence();
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(Framing, TwoBarsInARow_AreTwoEmptyMessages) {
    Client client = service.Authorized();
    client.Send("||");
    EXPECT_THAT(client.Receive(), StartsWith("SyntaxError No command found. - "));
    EXPECT_THAT(client.Receive(), StartsWith("SyntaxError No command found. - "));
    client.ExpectSilence();
}

TEST_F(Framing, AReplyWithOtherLetters_LeavesWithQuestionMarks) {
    sandbox.MakeUsersFolder("/Users/Shared/Velto/é🖊ÿ");
    Client client = service.Authorized();
    const std::string expected = "Success DirectoryPermissionsFixed=/Users/Shared/Velto/???|";
    client.Send("fixDirectoryPermissions /Users/Shared/Velto/é🖊ÿ|");
    EXPECT_EQ(client.ReceiveExactBytes(expected.size()), expected);
    client.ExpectSilence();
}

TEST_F(Framing, TwoClientsOfOneServer_ShareTheUnfinishedMessage) {
    Client first = service.ConnectToPressure();
    Client second = service.ConnectToPressure();
    first.Send("foo");
    first.WaitUntilRead(sandbox);
    second.Send("bar|");
    EXPECT_THAT(second.Receive(), StartsWith("SyntaxError Unknown command - "));
    first.ExpectSilence();
    ExpectMessage("foobar");
}

TEST_F(Framing, TheServers_DoNotShareTheUnfinishedMessage) {
    Client pressure = service.ConnectToPressure();
    pressure.Send("foo");
    pressure.WaitUntilRead(sandbox);
    service.ConnectToApps().Ask("bar");
    ExpectMessage("bar");
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(Framing, HalfAMessageOfAClientThatHasGone_BelongsToTheNext) {
    Client first = service.ConnectToPressure();
    first.Send("foo");
    first.WaitUntilRead(sandbox);
    first.Close();
    service.WaitForOutput("error connection closed [" +
                          std::to_string(service.Keys().pressurePort) + "]\n");
    service.ConnectToPressure().Ask("bar");
    ExpectMessage("foobar");
}

TEST_F(Framing, MessagesAroundTheSizeOfAChunk_AreAnsweredAndTheConnectionGoesOn) {
    // A read that fills the service's buffer exactly makes it read again, and there is nothing
    // more.
    for (const std::size_t size : {511U, 512U, 513U, 1023U, 1024U, 1025U, 4096U, 16384U, 16896U}) {
        Client client = service.ConnectToApps();
        EXPECT_EQ(client.Ask(std::string(size - 1, 'x')), "Success ") << size;
        EXPECT_EQ(client.Ask("hello"), "Success ") << size;
    }
    Client client = service.Authorized();
    const std::string padded = "platform " + std::string(512 - 10, 'x');
    EXPECT_EQ(client.Ask(padded), "Success MACOSX");
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(Framing, AFullChunkBehindWhichTheClientCloses_IsStillHandled) {
    Client client = service.ConnectToApps();
    client.Send(std::string(511, 'y') + "|");
    client.ShutDownSending();
    EXPECT_EQ(client.Receive(), "Success ");
    client.ExpectClosed();
    service.WaitForOutput("error connection closed [" + std::to_string(service.Keys().appsPort) +
                          "]\n");
}

TEST_F(Framing, InvalidUtf8_TakesItsWholeBatchWithIt) {
    Client client = service.Authorized();
    client.Send("platform|\xC0|platform|");
    client.WaitUntilRead(sandbox);
    client.ExpectSilence();
    client.Send("|");
    EXPECT_THAT(client.Receive(), StartsWith("SyntaxError Unknown command - "));
    ExpectMessage("Utf8 conversion failed");
    EXPECT_EQ(client.Ask("platform"), "Success MACOSX");
}

TEST_F(Framing, ACharacterCutInTwoByAPause_IsInvalidTwice) {
    Client client = service.ConnectToApps();
    client.Send("caf\xC3");
    client.WaitUntilRead(sandbox);
    client.Send("\xA9");
    client.WaitUntilRead(sandbox);
    client.Send("|");
    client.Receive();
    ExpectMessage("Utf8 conversion failedUtf8 conversion failed");
}

TEST_F(Framing, ACharacterAcrossTheChunksOfOneBatch_IsWhole) {
    Client client = service.Authorized();
    // The two bytes of the letter are bytes 512 and 513.
    const std::string path = "/" + std::string(512 - 14, 'x') + "é";
    client.Ask("checkExists " + path);
    ExpectMessage("checkExists " + path);
}

TEST_F(Framing, EveryKindOfInvalidUtf8_IsSwallowed) {
    Client client = service.ConnectToApps();
    for (const char* const invalid :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xED\xA0\x80", "\xED\xBF\xBF",
          "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFE", "\xFF", "\xE2\x82",
          "\xC3("}) {
        client.Send(std::string(invalid) + "|");
        client.WaitUntilRead(sandbox);
        EXPECT_EQ(client.Ask(""), "Success ") << testing::PrintToString(std::string(invalid));
        EXPECT_THAT(service.Output(), Not(HasSubstr(std::string("command:\n") + invalid)));
    }
}

TEST_F(Framing, AMillionBytesInOneMessage_AreOneMessage) {
    Client client = service.Authorized();
    EXPECT_EQ(client.Ask("platform " + std::string(1000000, 'x')), "Success MACOSX");
}

}  // namespace
