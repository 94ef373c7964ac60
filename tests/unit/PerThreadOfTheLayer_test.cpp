#include <gtest/gtest.h>

#include <thread>

#include "Support/PerThread.h"

namespace {

int living = 0;

struct Counted {
    Counted() { ++living; }
    ~Counted() {
        --living;
        // Who asks while it goes gets it, and no second one.
        sameWhileGoing = &frameworks::PerThread<Counted>() == this;
    }
    int number = 0;
    static bool sameWhileGoing;
};
bool Counted::sameWhileGoing = false;

struct Tag;

TEST(PerThreadOfTheLayer, EveryThread_HasItsOwnUntilItEnds) {
    frameworks::PerThread<Counted>().number = 1;
    std::thread other([] {
        EXPECT_EQ(0, frameworks::PerThread<Counted>().number);
        EXPECT_EQ(2, living);
    });
    other.join();
    EXPECT_EQ(1, living);
    EXPECT_TRUE(Counted::sameWhileGoing);
    EXPECT_EQ(1, frameworks::PerThread<Counted>().number);
}

TEST(PerThreadOfTheLayer, TwoTags_AreTwoValues) {
    frameworks::PerThread<int>() = 1;
    frameworks::PerThread<int, Tag>() = 2;
    EXPECT_EQ(1, frameworks::PerThread<int>());
    EXPECT_EQ(2, (frameworks::PerThread<int, Tag>()));
}

}  // namespace
