// In processes of their own, which a signal may end.
#include "tesselctl/Signals.h"

#include <gtest/gtest.h>
#include <signal.h>

#include "unit/support/ForkedTest.h"

namespace {

using tesselctl::Signals;

TEST(TesselctlSignals, AreTakenInTheirOrder) {
    InChild([] {
        Signals signals;
        EXPECT_FALSE(signals.Take());
        raise(SIGWINCH);
        raise(SIGINT);
        EXPECT_EQ(SIGWINCH, signals.Take());
        EXPECT_EQ(SIGINT, signals.Take());
        EXPECT_FALSE(signals.Take());
    });
}

TEST(TesselctlSignals, BehindTheOneToEnd_DoNotKillWhoIsOnTheWayOut) {
    InChild([] {
        {
            Signals signals;
            raise(SIGINT);
            EXPECT_EQ(SIGINT, signals.Take());
        }
        raise(SIGINT);
        raise(SIGTERM);
    });
}

TEST(TesselctlSignals, OfWhichNoneWasToEnd_LeaveTheFormerHandlers) {
    InChild([] {
        {
            Signals signals;
            raise(SIGWINCH);
            EXPECT_EQ(SIGWINCH, signals.Take());
        }
        struct sigaction now = {};
        sigaction(SIGINT, nullptr, &now);
        EXPECT_EQ(SIG_DFL, now.sa_handler);
    });
}

}  // namespace
