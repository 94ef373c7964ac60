#include <CoreFoundation/CFArray.h>
#include <gtest/gtest.h>

#include "CFTestSupport.h"
#include "CoreFoundation/Array.h"

namespace {

Owned<CFMutableArrayRef> MakeArray() {
    return CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
}

TEST(CFArray, Append_KeepsTheOrder) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    EXPECT_EQ(CFArrayGetCount(array), 0);
    CFArrayAppendValue(array, CFSTR("one"));
    CFArrayAppendValue(array, CFSTR("two"));
    CFArrayAppendValue(array, CFSTR("one"));
    ASSERT_EQ(CFArrayGetCount(array), 3);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 0), CFSTR("one"));
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), CFSTR("two"));
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 2), CFSTR("one"));
}

TEST(CFArray, TheCapacity_IsOnlyAHint) {
    const Owned<CFMutableArrayRef> array =
        CFArrayCreateMutable(kCFAllocatorDefault, 1, &kCFTypeArrayCallBacks);
    CFArrayAppendValue(array, CFSTR("one"));
    CFArrayAppendValue(array, CFSTR("two"));
    EXPECT_EQ(CFArrayGetCount(array), 2);
}

TEST(CFArray, Remove_ClosesTheGap) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    for (const CFStringRef text : {CFSTR("a"), CFSTR("b"), CFSTR("c")}) {
        CFArrayAppendValue(array, text);
    }
    CFArrayRemoveValueAtIndex(array, 1);
    ASSERT_EQ(CFArrayGetCount(array), 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), CFSTR("c"));
    CFArrayRemoveValueAtIndex(array, 1);
    CFArrayRemoveValueAtIndex(array, 0);
    EXPECT_EQ(CFArrayGetCount(array), 0);
}

TEST(CFArray, AValue_LivesAsLongAsItIsInTheArray) {
    bool destroyed = false;
    const Owned<CFMutableArrayRef> array = MakeArray();
    {
        const Owned<CFTypeRef> probe = new Probe(destroyed);
        CFArrayAppendValue(array, probe);
    }
    EXPECT_FALSE(destroyed);
    CFArrayRemoveValueAtIndex(array, 0);
    EXPECT_TRUE(destroyed);
}

TEST(CFArray, TheEndOfAnArray_ReleasesItsValues) {
    bool destroyed = false;
    {
        const Owned<CFMutableArrayRef> array = MakeArray();
        const Owned<CFTypeRef> probe = new Probe(destroyed);
        CFArrayAppendValue(array, probe);
        CFArrayAppendValue(array, probe);
    }
    EXPECT_TRUE(destroyed);
}

TEST(CFArray, ACopy_SharesValuesAndChangesAlone) {
    bool destroyed = false;
    {
        Owned<CFMutableArrayRef> original = MakeArray();
        {
            const Owned<CFTypeRef> probe = new Probe(destroyed);
            CFArrayAppendValue(original, probe);
        }
        const Owned<CFMutableArrayRef> copy =
            CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, original);
        EXPECT_EQ(CFArrayGetValueAtIndex(copy, 0), CFArrayGetValueAtIndex(original, 0));
        CFArrayAppendValue(copy, CFSTR("more"));
        EXPECT_EQ(CFArrayGetCount(original), 1);
        CFArrayRemoveValueAtIndex(original, 0);
        EXPECT_FALSE(destroyed);
        EXPECT_EQ(CFArrayGetCount(copy), 2);
    }
    EXPECT_TRUE(destroyed);
}

TEST(CFArray, WithoutCallBacks_HoldsPlainPointers) {
    bool destroyed = false;
    const Owned<CFMutableArrayRef> array = CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr);
    {
        const Owned<CFTypeRef> probe = new Probe(destroyed);
        CFArrayAppendValue(array, probe);
    }
    EXPECT_TRUE(destroyed);
    CFArrayAppendValue(array, nullptr);
    EXPECT_EQ(CFArrayGetCount(array), 2);
    EXPECT_EQ(CFArrayGetValueAtIndex(array, 1), nullptr);
}

TEST(CFArray, EqualValuesInTheSameOrder_MakeEqualArrays) {
    const Owned<CFMutableArrayRef> one = MakeArray();
    const Owned<CFMutableArrayRef> other = MakeArray();
    EXPECT_TRUE(CFEqual(one, other));
    CFArrayAppendValue(one, MakeString("text"));
    EXPECT_FALSE(CFEqual(one, other));
    CFArrayAppendValue(other, MakeString("text"));
    EXPECT_TRUE(CFEqual(one, other));
    EXPECT_EQ(CFHash(one), CFHash(other));
    CFArrayAppendValue(one, CFSTR("a"));
    CFArrayAppendValue(one, CFSTR("b"));
    CFArrayAppendValue(other, CFSTR("b"));
    CFArrayAppendValue(other, CFSTR("a"));
    EXPECT_FALSE(CFEqual(one, other));
}

TEST(CFArray, WithoutCallBacks_ComparesByAddress) {
    const Owned<CFMutableArrayRef> one = CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr);
    const Owned<CFMutableArrayRef> other = CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr);
    const Owned<CFStringRef> text = MakeString("text");
    const Owned<CFStringRef> sameText = MakeString("text");
    CFArrayAppendValue(one, text);
    CFArrayAppendValue(other, sameText);
    EXPECT_FALSE(CFEqual(one, other));
    CFArrayRemoveValueAtIndex(other, 0);
    CFArrayAppendValue(other, text);
    EXPECT_TRUE(CFEqual(one, other));
    const Owned<CFMutableArrayRef> references = MakeArray();
    CFArrayAppendValue(references, text);
    EXPECT_FALSE(CFEqual(one, references));
}

TEST(CFArray, ItsOwnCallBacks_AreCalledPerValue) {
    static int retained = 0;
    static int released = 0;
    CFArrayCallBacks callBacks = {};
    callBacks.retain = [](CFAllocatorRef, const void* value) {
        ++retained;
        return value;
    };
    callBacks.release = [](CFAllocatorRef, const void*) { ++released; };
    {
        const Owned<CFMutableArrayRef> array =
            CFArrayCreateMutable(kCFAllocatorDefault, 0, &callBacks);
        callBacks.release = nullptr;
        CFArrayAppendValue(array, &retained);
        CFArrayAppendValue(array, &released);
        CFArrayRemoveValueAtIndex(array, 0);
        EXPECT_EQ(retained, 2);
        EXPECT_EQ(released, 1);
    }
    EXPECT_EQ(released, 2);
}

TEST(CFArrayDeathTest, AnIndexOutsideTheArray_Stops) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    EXPECT_DEATH(CFArrayGetValueAtIndex(array, 0),
                 "CFArrayGetValueAtIndex: the index 0 is outside an array of 0");
    CFArrayAppendValue(array, CFSTR("one"));
    EXPECT_DEATH(CFArrayGetValueAtIndex(array, 1),
                 "CFArrayGetValueAtIndex: the index 1 is outside an array of 1");
    EXPECT_DEATH(CFArrayGetValueAtIndex(array, -1),
                 "CFArrayGetValueAtIndex: the index -1 is outside an array of 1");
    EXPECT_DEATH(CFArrayRemoveValueAtIndex(array, 1),
                 "CFArrayRemoveValueAtIndex: the index 1 is outside an array of 1");
}

TEST(CFArrayDeathTest, ANullReferenceAsValue_Stops) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    EXPECT_DEATH(CFArrayAppendValue(array, nullptr), "CFArrayAppendValue: the value is null");
}

TEST(CFArrayDeathTest, AChangeToAnImmutableArray_Stops) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    CFArrayAppendValue(array, CFSTR("one"));
    static_cast<CFMutableArrayRef>(array)->Freeze();
    EXPECT_DEATH(CFArrayAppendValue(array, CFSTR("two")),
                 "CFArrayAppendValue: the array is immutable");
    EXPECT_DEATH(CFArrayRemoveValueAtIndex(array, 0),
                 "CFArrayRemoveValueAtIndex: the array is immutable");
    const Owned<CFMutableArrayRef> copy = CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, array);
    CFArrayAppendValue(copy, CFSTR("two"));
    EXPECT_EQ(CFArrayGetCount(copy), 2);
}

TEST(CFArrayDeathTest, AWrongReference_Stops) {
    auto* wrong = const_cast<CFMutableArrayRef>(reinterpret_cast<CFArrayRef>(CFSTR("text")));
    EXPECT_DEATH(CFArrayGetCount(wrong), "CFArrayGetCount: expected a CFArray, got a CFString");
    EXPECT_DEATH(CFArrayAppendValue(wrong, CFSTR("a")),
                 "CFArrayAppendValue: expected a CFArray, got a CFString");
    EXPECT_DEATH(CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, nullptr),
                 "CFArrayCreateMutableCopy: expected a CFArray, got a null reference");
    EXPECT_DEATH(CFArrayCreateMutable(kCFAllocatorDefault, -1, nullptr),
                 "CFArrayCreateMutable: the capacity -1 is negative");
}

}  // namespace
