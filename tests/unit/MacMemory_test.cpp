#include <CarbonCore/MacMemory.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

TEST(MacMemory, NewPtrClear_GivesZeroedBytes) {
    constexpr Size kSize = 4096;
    // The second block is likely to be the first one again.
    for (int turn = 0; turn < 2; ++turn) {
        const Ptr block = NewPtrClear(kSize);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(std::count(block, block + kSize, '\0'), kSize);
        std::memset(block, 0xFF, kSize);
        DisposePtr(block);
    }
}

TEST(MacMemory, NewPtrClear_OfNoBytes_IsABlock) {
    const Ptr block = NewPtrClear(0);
    EXPECT_NE(block, nullptr);
    DisposePtr(block);
}

TEST(MacMemory, NewPtrClear_OfANegativeSize_GivesNull) {
    EXPECT_EQ(NewPtrClear(-1), nullptr);
}

TEST(MacMemory, NewPtrClear_OfMoreThanThereIs_GivesNull) {
    // Sanitizers end the program at such a size, so they are left out.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_EQ(NewPtrClear(PTRDIFF_MAX - 4096), nullptr);
#else
    GTEST_SKIP();
#endif
}

TEST(MacMemory, DisposePtr_OfNull_DoesNothing) {
    DisposePtr(nullptr);
}

}  // namespace
