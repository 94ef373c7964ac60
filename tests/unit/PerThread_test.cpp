#include "core/PerThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

TEST(PerThread, Value_IsMadeOnFirstUseAndKept) {
    struct Tag;
    std::string& value = PerThread<std::string, Tag>();
    EXPECT_EQ("", value);
    value = "kept";
    EXPECT_EQ("kept", (PerThread<std::string, Tag>()));
    EXPECT_EQ(&value, &(PerThread<std::string, Tag>()));
}

TEST(PerThread, Value_IsTheThreadsOwn) {
    struct Tag;
    PerThread<int, Tag>() = 1;
    std::vector<std::thread> threads;
    for (int number = 2; number < 10; ++number) {
        threads.emplace_back([number] {
            int& value = PerThread<int, Tag>();
            EXPECT_EQ(0, value);
            for (int round = 0; round < 1000; ++round) {
                value = number;
                ASSERT_EQ(number, (PerThread<int, Tag>()));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1, (PerThread<int, Tag>()));
}

TEST(PerThread, Tags_TellValuesOfOneTypeApart) {
    struct One;
    struct Other;
    PerThread<int, One>() = 1;
    PerThread<int, Other>() = 2;
    EXPECT_EQ(1, (PerThread<int, One>()));
    EXPECT_EQ(2, (PerThread<int, Other>()));
}

std::atomic<int> alive{0};

struct Counted {
    Counted() { ++alive; }
    ~Counted() { --alive; }
};

TEST(PerThread, Value_GoesWithItsThread) {
    struct Tag;
    std::thread([] {
        PerThread<Counted, Tag>();
        PerThread<Counted, Tag>();
        EXPECT_EQ(1, alive);
    }).join();
    EXPECT_EQ(0, alive);
    for (int round = 0; round < 2000; ++round) {
        // More threads than there are keys: a key a thread would run out.
        std::thread([] { PerThread<Counted, Tag>(); }).join();
    }
    EXPECT_EQ(0, alive);
}

}  // namespace
