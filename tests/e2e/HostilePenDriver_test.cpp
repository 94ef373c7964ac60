// A process of another user that is called like the tablet's driver and posts what it likes. That
// nobody is tapped when there is no other driver is in Pen_test.cpp.
#include <gmock/gmock.h>

#include "support/Pen.h"
#include "support/Service.h"

namespace {

using testing::StartsWith;

TEST(HostilePenDriver, OfAnotherUser_IsPassedOverForTheUsersOwn) {
    if (!Sandbox::CanSwitchUsers()) {
        GTEST_SKIP() << "only root can be somebody else";
    }
    Sandbox sandbox{PenMounts()};
    Service service(sandbox);
    service.WaitUntilListening();
    // The first of the name, and the last.
    Poster before(sandbox, kStrangerId);
    Poster own(sandbox);
    Poster after(sandbox, kStrangerId);
    Client client = service.ConnectToPressure();
    EXPECT_EQ(client.Ask("listenTablet x PenPoster"), "Success ");
    client.Send("startTablet|getDriverVersion|");
    EXPECT_THAT(client.Receive(), StartsWith("Success DriverVersion="));
    for (int i = 0; i < 100; ++i) {
        before.Post(Event(penEvents::kDown, 6, 6));
        after.Post(Event(penEvents::kUp, 6, 6));
    }
    own.Post(Event(penEvents::kDown, 1, 2));
    EXPECT_EQ(client.ReceiveExactBytes(5), "d1_2 ");
    client.ExpectSilence();
}

}  // namespace
