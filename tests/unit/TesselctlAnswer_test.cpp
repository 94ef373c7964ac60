#include "tesselctl/Answer.h"

#include <gtest/gtest.h>

#include "tesselctl/MessageReader.h"

namespace {

using namespace tesselctl;

struct Told {
    int status;
    std::string output;
    std::string complaint;
    bool operator==(const Told& other) const {
        return status == other.status && output == other.output && complaint == other.complaint;
    }
};

std::ostream& operator<<(std::ostream& out, const Told& told) {
    return out << told.status << " [" << told.output << "] [" << told.complaint << ']';
}

Told Tell(const std::string& message) {
    const auto answer = ReadAnswer(message);
    if (!answer) return {-1, {}, {}};
    return {ExitStatusOf(*answer), OutputOf(*answer), ComplaintOf(*answer, "cmd")};
}

const Told kNoAnswer{-1, "", ""};

TEST(TesselctlAnswer, EveryStatusWord_HasItsExitStatusAndOutput) {
    EXPECT_EQ((Told{0, "MACOSX\n", ""}), Tell("Success MACOSX"));
    EXPECT_EQ((Told{0, "", ""}), Tell("Success "));
    EXPECT_EQ((Told{0, "True\n", ""}), Tell("True"));
    EXPECT_EQ((Told{1, "False\n", ""}), Tell("False"));
    EXPECT_EQ((Told{0, "QuitAcknowledged\n", ""}), Tell("QuitAcknowledged"));
    EXPECT_EQ((Told{0, "IconReady\n", ""}), Tell("IconReady"));
    EXPECT_EQ((Told{1, "IconMissing\n", ""}), Tell("IconMissing"));
    EXPECT_EQ((Told{1, "", "cmd failed: a - b"}), Tell("Failure a - b"));
    EXPECT_EQ((Told{2, "", "cmd was not understood: Unknown command - Success"}),
              Tell("SyntaxError Unknown command - Success"));
}

TEST(TesselctlAnswer, OtherMessages_AreNoAnswers) {
    for (const char* message :
         {"CurrentAttachedDevices=", "CurrentAttachedDevices=0X1234 0X0ABC",
          "BroadcastRegisteredChannel=Success x", "BroadcastUnRegisteredChannel=True",
          "ForwardDataToChannel sender True", "PenData.PROXIMITY_IN"}) {
        EXPECT_EQ(kNoAnswer, Tell(message)) << message;
        EXPECT_TRUE(IsNotice(message)) << message;
    }
    for (const char* message :
         {"", "authOk", "Success", "Successful x", "success x", "Truely", "True ", " True",
          "FalseX", "Failure", "SyntaxError", "IconReady "}) {
        EXPECT_EQ(kNoAnswer, Tell(message)) << message;
        EXPECT_FALSE(IsNotice(message)) << message;
    }
}

TEST(TesselctlAnswer, SuccessText_IsPrintedByteForByte) {
    EXPECT_EQ("a?b\x01\xFF  \n", Tell("Success a?b\x01\xFF  ").output);
}

TEST(TesselctlAnswer, AFailureDetail_StaysOnOneLine) {
    EXPECT_EQ("cmd failed: one two three - x", Tell("Failure one\ntwo\tthree - x").complaint);
    EXPECT_EQ("cmd failed: [31m", Tell("Failure \033[31m").complaint.erase(12, 1));
    EXPECT_LT(Tell("Failure " + std::string(100000, 'x')).complaint.size(), 5000U);
}

// Every message of a stream, pen data marked with an asterisk.
std::vector<std::string> ReadAll(MessageReader& reader) {
    std::vector<std::string> messages;
    while (const auto message = reader.Next())
        messages.push_back((message->framed ? "" : "*") + message->text);
    return messages;
}

const std::string kStream = std::string("authOk|CurrentAttachedDevices=|0037\0", 36) +
                            "d640_400 Success MACOSX|m-1_22 " + std::string("0511\0", 5) +
                            "u0_0 |PenData.USE_TIP|True|dead|mud_1 |0123|d1_2|Success d1_2 x|";
const std::vector<std::string> kMessages = {"authOk",
                                            "CurrentAttachedDevices=",
                                            "*0037",
                                            "*d640_400",
                                            "Success MACOSX",
                                            "*m-1_22",
                                            "*0511",
                                            "*u0_0",
                                            "",
                                            "PenData.USE_TIP",
                                            "True",
                                            "dead",
                                            "mud_1 ",
                                            "0123",
                                            "d1_2",
                                            "Success d1_2 x"};

TEST(TesselctlMessageReader, MessagesAndPenData_AreToldApart) {
    MessageReader reader;
    reader.Append(kStream);
    EXPECT_EQ(kMessages, ReadAll(reader));
    EXPECT_EQ(0U, reader.PendingSize());
}

TEST(TesselctlMessageReader, AStreamSplitAnywhere_GivesTheSameMessages) {
    for (std::size_t split = 0; split <= kStream.size(); split++) {
        MessageReader reader;
        reader.Append(kStream.substr(0, split));
        std::vector<std::string> messages = ReadAll(reader);
        reader.Append(kStream.substr(split));
        for (std::string& message : ReadAll(reader))
            messages.push_back(std::move(message));
        ASSERT_EQ(kMessages, messages) << split;
    }
}

TEST(TesselctlMessageReader, AStreamInSingleBytes_GivesTheSameMessages) {
    MessageReader reader;
    std::vector<std::string> messages;
    for (const char byte : kStream) {
        reader.Append({&byte, 1});
        for (std::string& message : ReadAll(reader))
            messages.push_back(std::move(message));
    }
    EXPECT_EQ(kMessages, messages);
}

TEST(TesselctlMessageReader, HalfAMessage_IsKeptAndCanBeSeen) {
    MessageReader reader;
    reader.Append("True|Succ");
    EXPECT_EQ((std::vector<std::string>{"True"}), ReadAll(reader));
    EXPECT_EQ("Succ", reader.Pending());
}

TEST(TesselctlMessageReader, ALongMessageInSmallPieces_CostsLinearTime) {
    MessageReader reader;
    const std::string piece(16, 'x');
    for (int i = 0; i < 1000000; i++) {
        reader.Append(piece);
        ASSERT_FALSE(reader.Next());
    }
    reader.Append("|");
    EXPECT_EQ(16000000U, reader.Next()->text.size());
}

}  // namespace
