// Connections that come and go, in order and with a reset, leave nothing behind.
#include <gmock/gmock.h>

#include "Counts.h"
#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::StartsWith;

constexpr long kMostGrowth = 1024;  // KiB

class Connections : public testing::Test {
  protected:
    Connections() { service.WaitUntilListening().WaitUntilBothThreadsServe(); }

    // In KiB.
    long Memory() const { return std::stol(service.StatusField("VmRSS")); }

    void WaitForDescriptors(std::size_t before) {
        WaitUntil("all connections are closed on the service's side",
                  [&] { return service.OpenDescriptors() == before; });
    }

    // Every other one says something and gets its answer. The service has then accepted all that
    // came before it on that port: it takes ten at a time, and who comes too many waits a second.
    void ConnectAndClose(int number) {
        const bool talks = number % 2 == 1;
        switch (number / 2 % 3) {
            case 0: {
                Client client = service.ConnectToCommand();
                if (talks) {
                    client.Send("auth x|");
                    client.ExpectClosed();
                }
                break;
            }
            case 1: {
                Client client = service.ConnectToPressure();
                if (talks) {
                    EXPECT_THAT(client.Ask("x"), StartsWith("SyntaxError Unknown command - "));
                }
                break;
            }
            default: {
                Client client = service.ConnectToApps();
                if (talks) {
                    EXPECT_EQ(client.Ask("x"), "Success ");
                }
            }
        }
    }

    // `round` is told numbers from 0 on. What is there before and behind is the same.
    template <typename Round>
    void ExpectNothingLeft(const std::string& what, int rounds, Round round) {
        const std::size_t descriptors = service.OpenDescriptors();
        const auto run = [&](int count) {
            for (int number = 0; number < count; ++number) {
                round(number);
            }
            WaitForDescriptors(descriptors);
        };
        run(std::min(rounds, 3000));
        const long before = Memory();
        run(rounds);
        const long after = Memory();
        Say(std::to_string(rounds) + " " + what + ": descriptors " + std::to_string(descriptors) +
            " before, " + std::to_string(service.OpenDescriptors()) + " after; resident memory " +
            std::to_string(before) + " KiB before, " + std::to_string(after) + " KiB after");
        // A sanitizer keeps what is freed.
        if (!kSanitized) {
            EXPECT_LE(after - before, kMostGrowth);
        }
    }

    Sandbox sandbox;
    Service service{sandbox};
};

TEST_F(Connections, ThatComeAndGo_LeaveNothing) {
    ExpectNothingLeft("connects and closes on the three ports", Count(3000, 100000),
                      [this](int number) { ConnectAndClose(number); });
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

TEST_F(Connections, ResetAtAnyByteOfTheHandshake_LeaveNothing) {
    const std::string handshake = "auth " + service.Keys().key + "|";
    const auto cuts = static_cast<int>(handshake.size()) + 1;
    ExpectNothingLeft("resets over the " + std::to_string(cuts) + " cuts of the handshake",
                      Count(450, 10000), [&](int number) {
                          Client client = service.ConnectToCommand();
                          const auto cut = static_cast<std::size_t>(number % cuts);
                          // With the whole key sent, and another one still authorized, the
                          // connection may be closed before it is reset.
                          if (cut > 0) {
                              client.TrySend(handshake.substr(0, cut));
                          }
                          // In every other round the service has read it; otherwise the reset
                          // overtakes it.
                          if (number / cuts % 2 == 1) {
                              client.WaitUntilRead(sandbox);
                          }
                          client.Reset();
                          if (number % 8 == 7) {
                              // As many as may wait to be accepted.
                              service.ConnectToApps().Ask("x");
                          }
                      });
    // What the last of them has left of its message is another one's beginning.
    Client last = service.ConnectToCommand();
    last.Send("|");
    last.ExpectClosed();
    EXPECT_EQ(service.Authorized().Ask("platform"), "Success MACOSX");
}

}  // namespace
