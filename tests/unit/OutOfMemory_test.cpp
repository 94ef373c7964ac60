// Each in a process of its own, whose memory may be little.
#include "core/OutOfMemory.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <limits>
#include <new>
#include <thread>

#include "unit/support/ForkedTest.h"
#include "unit/support/Sanitizers.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// More than a program can have on any machine. The compiler, too, would know that of a constant.
volatile std::size_t impossible = std::numeric_limits<std::size_t>::max() / 2 + 1;

// Memory that the compiler must not think away.
void* volatile kept = nullptr;

class OutOfMemory : public testing::Test {
  protected:
    void SetUp() override {
        if (kAllocationsAreWatched) {
            GTEST_SKIP() << "the sanitizer's own allocator ends the process by itself";
        }
    }
};

TEST_F(OutOfMemory, ARequestThatIsGrantedInTheEnd_OnlyWaits) {
    InChild([] {
        WaitForMemoryWhenThereIsNone();
        static std::new_handler handler = std::get_new_handler();
        static int refused = 0;
        // What operator new does, with an allocator that says no twenty times.
        const auto start = steady_clock::now();
        while (refused < 20) {
            ++refused;
            handler();
        }
        const auto waited = steady_clock::now() - start;
        EXPECT_GE(waited, milliseconds(100));
    });
}

TEST_F(OutOfMemory, ARequestThatStaysInVain_EndsTheProcessAfterASecondAndSaysSo) {
    const auto start = steady_clock::now();
    const Outcome outcome = RunForked([] {
        WaitForMemoryWhenThereIsNone();
        kept = ::operator new(impossible);
    });
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("TesselCore: out of memory\n", outcome.errors);
    EXPECT_GE(steady_clock::now() - start, milliseconds(1000));
}

TEST_F(OutOfMemory, WhatWasPrintedBefore_IsThere) {
    const Outcome outcome = RunForked([] {
        WaitForMemoryWhenThereIsNone();
        std::puts("printed before");
        kept = ::operator new(impossible);
    });
    EXPECT_EQ("printed before\n", outcome.output);
}

// Asks from further down the stack.
[[gnu::noinline]] void AskFromBelow(std::new_handler handler, int depth) {
    volatile char room[64] = {};
    if (depth > 0) {
        AskFromBelow(handler, depth - 1);
    } else {
        handler();
    }
    room[0] = room[1];
}

TEST_F(OutOfMemory, RequestsThatAreRefusedOnceEach_WaitForNothing) {
    InChild([] {
        WaitForMemoryWhenThereIsNone();
        const std::new_handler handler = std::get_new_handler();
        const auto start = steady_clock::now();
        for (int i = 0; i < 1000; ++i) {
            AskFromBelow(handler, i % 2);
        }
        // With a pause each it would be ten seconds.
        EXPECT_LT(steady_clock::now() - start, milliseconds(5000));
    });
}

TEST_F(OutOfMemory, TwoThreadsInVain_EndTheProcess) {
    const Outcome outcome = RunForked([] {
        WaitForMemoryWhenThereIsNone();
        std::thread other([] { kept = ::operator new(impossible); });
        kept = ::operator new(impossible);
        other.join();
    });
    EXPECT_EQ(1, outcome.status);
}

}  // namespace
