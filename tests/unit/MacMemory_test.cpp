#include <CarbonCore/MacMemory.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "CarbonCore/Handle.h"

namespace {

using frameworks::HandleContent;
using frameworks::SetHandleContent;

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

TEST(MacMemory, NewHandle_PointsToAPointerToABlock) {
    constexpr Size kSize = 4096;
    const Handle handle = NewHandle(kSize);
    ASSERT_NE(handle, nullptr);
    ASSERT_NE(*handle, nullptr);
    std::memset(*handle, 'x', kSize);
    EXPECT_EQ(HandleContent(handle), std::string(kSize, 'x'));
    DisposeHandle(handle);
}

TEST(MacMemory, NewHandle_OfNoBytes_IsAHandle) {
    const Handle handle = NewHandle(0);
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(*handle, nullptr);
    EXPECT_EQ(HandleContent(handle), "");
    DisposeHandle(handle);
}

TEST(MacMemory, NewHandle_OfANegativeSize_GivesNull) {
    EXPECT_EQ(NewHandle(-1), nullptr);
}

TEST(MacMemory, NewHandle_OfMoreThanThereIs_GivesNull) {
    // Sanitizers end the program at such a size, so they are left out.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_EQ(NewHandle(PTRDIFF_MAX - 4096), nullptr);
#else
    GTEST_SKIP();
#endif
}

TEST(MacMemory, AHandle_StaysTheSame_WhenItsBlockGrowsAndShrinks) {
    const Handle handle = NewHandle(3);
    ASSERT_NE(handle, nullptr);
    const std::string large(100000, 'y');
    ASSERT_TRUE(SetHandleContent(handle, large));
    EXPECT_EQ(HandleContent(handle), large);
    EXPECT_EQ((*handle)[99999], 'y');
    ASSERT_TRUE(SetHandleContent(handle, ""));
    EXPECT_EQ(HandleContent(handle), "");
    EXPECT_NE(*handle, nullptr);
    DisposeHandle(handle);
}

TEST(MacMemory, DisposeHandle_OfNull_DoesNothing) {
    DisposeHandle(nullptr);
}

}  // namespace
