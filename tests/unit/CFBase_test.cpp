#include <CoreFoundation/CFBase.h>
#include <CoreGraphics/CGGeometry.h>
#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "CFTestSupport.h"

namespace {

// Read while static variables are being initialised, in no known order with those of the layer.
const Boolean trueBeforeMain = CFBooleanGetValue(kCFBooleanTrue);
const CFStringRef literalBeforeMain = CFSTR("made before main");

TEST(CFBase, TypesAreThoseOfAMacWithTheSameWordLength) {
    EXPECT_EQ(sizeof(CFIndex), sizeof(void*));
    EXPECT_EQ(sizeof(CGFloat), sizeof(void*));
    EXPECT_EQ(sizeof(UInt32), 4u);
    EXPECT_EQ(sizeof(OSStatus), 4u);
    EXPECT_EQ(sizeof(OSErr), 2u);
    EXPECT_EQ(sizeof(Boolean), 1u);
    EXPECT_EQ(sizeof(ProcessSerialNumber), 8u);
    EXPECT_TRUE((std::is_same_v<SInt64, long long>));
    EXPECT_TRUE((std::is_same_v<Size, long>));
}

TEST(CFBase, Release_OfTheLastReference_Destroys) {
    bool destroyed = false;
    const CFTypeRef probe = new Probe(destroyed);
    EXPECT_EQ(CFRetain(probe), probe);
    CFRelease(probe);
    EXPECT_FALSE(destroyed);
    CFRelease(probe);
    EXPECT_TRUE(destroyed);
}

TEST(CFBase, RetainAndRelease_FromManyThreads_Balance) {
    bool destroyed = false;
    const CFTypeRef probe = new Probe(destroyed);
    std::vector<std::thread> threads;
    for (int count = 0; count < 4; ++count) {
        threads.emplace_back([probe] {
            for (int turn = 0; turn < 10000; ++turn) {
                CFRetain(probe);
                CFRelease(probe);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(destroyed);
    CFRelease(probe);
    EXPECT_TRUE(destroyed);
}

TEST(CFBase, Release_OfAConstant_ChangesNothing) {
    const CFStringRef literal = CFSTR("released too often");
    for (int turn = 0; turn < 3; ++turn) {
        CFRelease(literal);
        CFRelease(kCFBooleanTrue);
    }
    EXPECT_EQ(TextOf(literal), "released too often");
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
}

TEST(CFBase, Constants_AreUsableBeforeMain) {
    EXPECT_EQ(trueBeforeMain, 1);
    EXPECT_EQ(TextOf(literalBeforeMain), "made before main");
}

TEST(CFBase, TypeIDs_AreDifferentForEveryType) {
    const std::set<CFTypeID> ids = {
        CFStringGetTypeID(), CFDataGetTypeID(),    CFArrayGetTypeID(), CFDictionaryGetTypeID(),
        CFNumberGetTypeID(), CFBooleanGetTypeID(), CFURLGetTypeID(),   CFTimeZoneGetTypeID()};
    EXPECT_EQ(ids.size(), 8u);
    EXPECT_EQ(ids.count(0), 0u);
}

TEST(CFBase, GetTypeID_TellsTheTypeOfEveryObject) {
    const Owned<CFStringRef> string = MakeString("text");
    const Owned<CFNumberRef> number = MakeNumber(1);
    const Owned<CFDataRef> data = CFDataCreate(kCFAllocatorDefault, nullptr, 0);
    const Owned<CFMutableArrayRef> array =
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    const Owned<CFMutableDictionaryRef> dictionary = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    const Owned<CFURLRef> url =
        CFURLCreateWithString(kCFAllocatorDefault, CFSTR("file:///"), nullptr);
    const Owned<CFTimeZoneRef> zone = CFTimeZoneCopySystem();
    EXPECT_EQ(CFGetTypeID(string), CFStringGetTypeID());
    EXPECT_EQ(CFGetTypeID(CFSTR("literal")), CFStringGetTypeID());
    EXPECT_EQ(CFGetTypeID(number), CFNumberGetTypeID());
    EXPECT_EQ(CFGetTypeID(data), CFDataGetTypeID());
    EXPECT_EQ(CFGetTypeID(array), CFArrayGetTypeID());
    EXPECT_EQ(CFGetTypeID(dictionary), CFDictionaryGetTypeID());
    EXPECT_EQ(CFGetTypeID(url), CFURLGetTypeID());
    EXPECT_EQ(CFGetTypeID(zone), CFTimeZoneGetTypeID());
    EXPECT_EQ(CFGetTypeID(kCFBooleanFalse), CFBooleanGetTypeID());
}

TEST(CFBase, Equal_AcrossTypes_IsFalse) {
    const Owned<CFStringRef> string = MakeString("1");
    const Owned<CFNumberRef> number = MakeNumber(1);
    const Owned<CFDataRef> data =
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>("1"), 1);
    EXPECT_FALSE(CFEqual(string, number));
    EXPECT_FALSE(CFEqual(string, data));
    EXPECT_FALSE(CFEqual(number, kCFBooleanTrue));
    EXPECT_TRUE(CFEqual(number, number));
}

TEST(CFBase, Equal_OfTypesWithoutContents_IsIdentity) {
    EXPECT_TRUE(CFEqual(kCFBooleanTrue, kCFBooleanTrue));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_NE(CFHash(kCFBooleanTrue), CFHash(kCFBooleanFalse));
}

TEST(CFBaseDeathTest, ANullReference_StopsWithTheNameOfTheCall) {
    EXPECT_DEATH(CFRetain(nullptr), "CFRetain: expected an object, got a null reference");
    EXPECT_DEATH(CFRelease(nullptr), "CFRelease: expected an object, got a null reference");
    EXPECT_DEATH(CFGetTypeID(nullptr), "CFGetTypeID: expected an object, got a null reference");
    EXPECT_DEATH(CFHash(nullptr), "CFHash: expected an object, got a null reference");
    EXPECT_DEATH(CFEqual(kCFBooleanTrue, nullptr), "CFEqual: expected an object, got a null");
    EXPECT_DEATH(CFEqual(nullptr, kCFBooleanTrue), "CFEqual: expected an object, got a null");
}

TEST(CFBaseDeathTest, AReferenceOfAnotherType_StopsWithTheCallAndBothTypes) {
    const auto* wrong = reinterpret_cast<CFStringRef>(kCFBooleanTrue);
    EXPECT_DEATH(CFStringGetLength(wrong),
                 "^CFStringGetLength: expected a CFString, got a CFBoolean\n$");
    EXPECT_DEATH(CFStringGetLength(nullptr),
                 "^CFStringGetLength: expected a CFString, got a null reference\n$");
}

}  // namespace
