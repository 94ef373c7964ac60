#include <CoreFoundation/CFData.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "CFTestSupport.h"

namespace {

Owned<CFDataRef> MakeData(const std::string& bytes) {
    return CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                        static_cast<CFIndex>(bytes.size()));
}

TEST(CFData, Create_CopiesItsBytes) {
    UInt8 bytes[] = {1, 0, 255};
    const Owned<CFDataRef> data = CFDataCreate(kCFAllocatorDefault, bytes, 3);
    bytes[0] = 9;
    ASSERT_EQ(CFDataGetLength(data), 3);
    EXPECT_EQ(CFDataGetBytePtr(data)[0], 1);
    EXPECT_EQ(CFDataGetBytePtr(data)[1], 0);
    EXPECT_EQ(CFDataGetBytePtr(data)[2], 255);
}

TEST(CFData, OfNoBytes_HasAPointerAllTheSame) {
    const Owned<CFDataRef> data = CFDataCreate(kCFAllocatorDefault, nullptr, 0);
    EXPECT_EQ(CFDataGetLength(data), 0);
    EXPECT_NE(CFDataGetBytePtr(data), nullptr);
}

TEST(CFData, EqualBytes_AreEqualWithEqualHashes) {
    const Owned<CFDataRef> one = MakeData(std::string("a\0b", 3));
    const Owned<CFDataRef> same = MakeData(std::string("a\0b", 3));
    const Owned<CFDataRef> other = MakeData(std::string("a\0c", 3));
    EXPECT_TRUE(CFEqual(one, same));
    EXPECT_EQ(CFHash(one), CFHash(same));
    EXPECT_FALSE(CFEqual(one, other));
    EXPECT_FALSE(CFEqual(one, MakeData("a")));
}

TEST(CFData, Create_OfMoreThanThereIs_GivesNull) {
    // Sanitizers refuse such a size loudly unless told otherwise, so they are left out.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    const UInt8 byte = 0;
    EXPECT_EQ(CFDataCreate(kCFAllocatorDefault, &byte, PTRDIFF_MAX - 4096), nullptr);
#else
    GTEST_SKIP();
#endif
}

TEST(CFDataDeathTest, ImpossibleArguments_Stop) {
    const UInt8 byte = 0;
    EXPECT_DEATH(CFDataCreate(kCFAllocatorDefault, &byte, -1),
                 "CFDataCreate: the length -1 is negative");
    EXPECT_DEATH(CFDataCreate(kCFAllocatorDefault, nullptr, 1), "CFDataCreate: the bytes are null");
    EXPECT_DEATH(CFDataGetLength(nullptr), "CFDataGetLength: expected a CFData, got a null");
    EXPECT_DEATH(CFDataGetBytePtr(reinterpret_cast<CFDataRef>(CFSTR("text"))),
                 "CFDataGetBytePtr: expected a CFData, got a CFString");
}

}  // namespace
