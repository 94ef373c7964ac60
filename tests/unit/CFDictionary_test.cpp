#include <CoreFoundation/CFDictionary.h>
#include <gtest/gtest.h>

#include <string>

#include "CFTestSupport.h"
#include "CoreFoundation/Dictionary.h"

namespace {

Owned<CFMutableDictionaryRef> MakeDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

TEST(CFDictionary, AValue_IsFoundByAnEqualKey) {
    const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 0);
    CFDictionarySetValue(dictionary, MakeString("Path"), CFSTR("/Applications/A.app"));
    CFDictionarySetValue(dictionary, CFSTR("Hide"), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 2);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("Path")), CFSTR("/Applications/A.app"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, MakeString("Hide")), kCFBooleanTrue);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("hide")), nullptr);
}

TEST(CFDictionary, Keys_MayBeOfDifferentTypes) {
    const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
    CFDictionarySetValue(dictionary, CFSTR("1"), CFSTR("text"));
    CFDictionarySetValue(dictionary, MakeNumber(1), CFSTR("number"));
    CFDictionarySetValue(dictionary, kCFBooleanTrue, CFSTR("truth"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, MakeNumber(1)), CFSTR("number"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, MakeString("1")), CFSTR("text"));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, kCFBooleanTrue), CFSTR("truth"));
}

TEST(CFDictionary, ManyEntries_AreAllFound) {
    const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
    for (int number = 0; number < 1000; ++number) {
        CFDictionarySetValue(dictionary, MakeString(std::to_string(number).c_str()),
                             MakeNumber(number));
    }
    ASSERT_EQ(CFDictionaryGetCount(dictionary), 1000);
    for (int number = 0; number < 1000; ++number) {
        const auto* value = static_cast<CFNumberRef>(
            CFDictionaryGetValue(dictionary, MakeString(std::to_string(number).c_str())));
        ASSERT_NE(value, nullptr);
        EXPECT_TRUE(CFEqual(value, MakeNumber(number)));
    }
}

TEST(CFDictionary, Replacing_ReleasesTheOldValueAndKeepsTheKey) {
    bool keyDestroyed = false;
    bool secondKeyDestroyed = false;
    bool oldDestroyed = false;
    bool newDestroyed = false;
    {
        const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
        {
            const Owned<CFTypeRef> key = new Probe(keyDestroyed, 7);
            const Owned<CFTypeRef> value = new Probe(oldDestroyed);
            CFDictionarySetValue(dictionary, key, value);
        }
        EXPECT_FALSE(keyDestroyed);
        EXPECT_FALSE(oldDestroyed);
        {
            const Owned<CFTypeRef> equalKey = new Probe(secondKeyDestroyed, 7);
            const Owned<CFTypeRef> value = new Probe(newDestroyed);
            CFDictionarySetValue(dictionary, equalKey, value);
        }
        EXPECT_EQ(CFDictionaryGetCount(dictionary), 1);
        EXPECT_TRUE(oldDestroyed);
        EXPECT_TRUE(secondKeyDestroyed);
        EXPECT_FALSE(keyDestroyed);
        EXPECT_FALSE(newDestroyed);
    }
    EXPECT_TRUE(keyDestroyed);
    EXPECT_TRUE(newDestroyed);
}

TEST(CFDictionary, ReplacingAValueByItself_KeepsIt) {
    bool destroyed = false;
    {
        const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
        {
            const Owned<CFTypeRef> value = new Probe(destroyed);
            CFDictionarySetValue(dictionary, CFSTR("key"), value);
        }
        CFDictionarySetValue(dictionary, CFSTR("key"),
                             CFDictionaryGetValue(dictionary, CFSTR("key")));
        EXPECT_FALSE(destroyed);
    }
    EXPECT_TRUE(destroyed);
}

TEST(CFDictionary, WithoutCallBacks_HoldsPlainPointersByAddress) {
    bool destroyed = false;
    const Owned<CFMutableDictionaryRef> dictionary =
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr);
    const Owned<CFStringRef> key = MakeString("key");
    {
        const Owned<CFTypeRef> value = new Probe(destroyed);
        CFDictionarySetValue(dictionary, key, value);
    }
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(CFDictionaryGetValue(dictionary, MakeString("key")), nullptr);
    EXPECT_NE(CFDictionaryGetValue(dictionary, key), nullptr);
    CFDictionarySetValue(dictionary, nullptr, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(dictionary), 2);
}

TEST(CFDictionary, EqualEntries_MakeEqualDictionaries) {
    const Owned<CFMutableDictionaryRef> one = MakeDictionary();
    const Owned<CFMutableDictionaryRef> other = MakeDictionary();
    CFDictionarySetValue(one, CFSTR("a"), MakeNumber(1));
    CFDictionarySetValue(one, CFSTR("b"), MakeNumber(2));
    CFDictionarySetValue(other, CFSTR("b"), MakeNumber(2));
    EXPECT_FALSE(CFEqual(one, other));
    EXPECT_FALSE(CFEqual(other, one));
    CFDictionarySetValue(other, CFSTR("a"), MakeNumber(1));
    EXPECT_TRUE(CFEqual(one, other));
    EXPECT_EQ(CFHash(one), CFHash(other));
    CFDictionarySetValue(other, CFSTR("a"), MakeNumber(3));
    EXPECT_FALSE(CFEqual(one, other));
}

TEST(CFDictionary, TheSameNumberOfOtherKeys_IsNotEqual) {
    const Owned<CFMutableDictionaryRef> one = MakeDictionary();
    const Owned<CFMutableDictionaryRef> other = MakeDictionary();
    CFDictionarySetValue(one, CFSTR("a"), kCFBooleanTrue);
    CFDictionarySetValue(other, CFSTR("b"), kCFBooleanTrue);
    EXPECT_FALSE(CFEqual(one, other));
}

TEST(CFDictionaryDeathTest, NullReferences_Stop) {
    const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
    EXPECT_DEATH(CFDictionaryGetValue(dictionary, nullptr),
                 "CFDictionaryGetValue: the key is null");
    EXPECT_DEATH(CFDictionarySetValue(dictionary, nullptr, CFSTR("a")),
                 "CFDictionarySetValue: the key is null");
    EXPECT_DEATH(CFDictionarySetValue(dictionary, CFSTR("a"), nullptr),
                 "CFDictionarySetValue: the value is null");
    EXPECT_DEATH(CFDictionaryGetCount(nullptr),
                 "CFDictionaryGetCount: expected a CFDictionary, got a null reference");
    EXPECT_DEATH(CFDictionaryGetValue(reinterpret_cast<CFDictionaryRef>(CFSTR("a")), CFSTR("a")),
                 "CFDictionaryGetValue: expected a CFDictionary, got a CFString");
    EXPECT_DEATH(CFDictionaryCreateMutable(kCFAllocatorDefault, -1, nullptr, nullptr),
                 "CFDictionaryCreateMutable: the capacity -1 is negative");
}

TEST(CFDictionaryDeathTest, AChangeToAnImmutableDictionary_Stops) {
    const Owned<CFMutableDictionaryRef> dictionary = MakeDictionary();
    CFDictionarySetValue(dictionary, CFSTR("a"), kCFBooleanTrue);
    static_cast<CFMutableDictionaryRef>(dictionary)->Freeze();
    EXPECT_EQ(CFDictionaryGetValue(dictionary, CFSTR("a")), kCFBooleanTrue);
    EXPECT_DEATH(CFDictionarySetValue(dictionary, CFSTR("b"), kCFBooleanTrue),
                 "CFDictionarySetValue: the dictionary is immutable");
}

}  // namespace
