#include "core/Pause.h"

#include <gtest/gtest.h>

#include <chrono>

#include "unit/support/Interruptions.h"

TEST(Pause, ThatIsInterruptedBySignals_LastsAsLongAllTheSame) {
    const Interruptions interruptions;
    const auto start = std::chrono::steady_clock::now();
    Pause(1);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}
