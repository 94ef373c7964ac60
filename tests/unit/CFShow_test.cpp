#include <CoreFoundation/CoreFoundation.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CFTestSupport.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

std::string Shown(CFTypeRef object) {
    testing::internal::CaptureStderr();
    CFShow(object);
    return testing::internal::GetCapturedStderr();
}

TEST(CFShow, AString_ShowsAsItsTextAndALineFeed) {
    EXPECT_EQ(Shown(CFSTR("Performed user switch")), "Performed user switch\n");
    EXPECT_EQ(Shown(CFSTR("")), "\n");
}

TEST(CFShow, AStringThatEndsInALineFeed_GetsNoSecondOne) {
    EXPECT_EQ(Shown(CFSTR("line\n")), "line\n");
}

TEST(CFShow, PercentSignsAndQuotes_AreNothingSpecial) {
    EXPECT_EQ(Shown(CFSTR("100%s \"done\" %n")), "100%s \"done\" %n\n");
}

TEST(CFShow, CharactersOutsideAscii_ShowAsUTF16Escapes) {
    EXPECT_EQ(Shown(CFSTR("Z\xC3\xBCrich")), "Z\\u00fcrich\n");
    EXPECT_EQ(Shown(CFSTR("\xE2\x82\xAC")), "\\u20ac\n");
    EXPECT_EQ(Shown(CFSTR("\xF0\x9F\x98\x80!")), "\\ud83d\\ude00!\n");
}

TEST(CFShow, Null_ShowsAsNull) {
    EXPECT_EQ(Shown(nullptr), "(null)\n");
}

TEST(CFShow, SimpleValues_ShowTypeAddressAndValue) {
    const UInt8 bytes[] = {0x00, 0x7F, 0xFF};
    const Owned<CFDataRef> data = CFDataCreate(kCFAllocatorDefault, bytes, 3);
    const Owned<CFNumberRef> number = MakeNumber(-42);
    const double half = 0.5;
    const Owned<CFNumberRef> real = CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &half);
    const Owned<CFURLRef> url =
        CFURLCreateWithString(kCFAllocatorDefault, CFSTR("file:///tmp"), nullptr);
    EXPECT_THAT(Shown(kCFBooleanTrue), MatchesRegex("<CFBoolean 0x[0-9a-f]+>.value = true.\n"));
    EXPECT_THAT(Shown(kCFBooleanFalse), MatchesRegex("<CFBoolean 0x[0-9a-f]+>.value = false.\n"));
    EXPECT_THAT(Shown(number), MatchesRegex("<CFNumber 0x[0-9a-f]+>.value = -42.\n"));
    EXPECT_THAT(Shown(real), MatchesRegex("<CFNumber 0x[0-9a-f]+>.value = 0\\.5.\n"));
    EXPECT_THAT(Shown(data), MatchesRegex("<CFData 0x[0-9a-f]+>.length = 3, bytes = 0x007fff.\n"));
    EXPECT_THAT(Shown(url), MatchesRegex("<CFURL 0x[0-9a-f]+>.string = file:///tmp.\n"));
}

TEST(CFShow, LongData_ShowsItsBeginning) {
    const std::string bytes(33, 'A');
    const Owned<CFDataRef> data =
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()), 33);
    std::string beginning;
    for (int count = 0; count < 32; ++count) {
        beginning += "41";
    }
    EXPECT_THAT(Shown(data), HasSubstr("{length = 33, bytes = 0x" + beginning + " ...}"));
}

TEST(CFShow, AnObjectWithoutContents_ShowsTypeAndAddress) {
    bool destroyed = false;
    const Owned<CFTypeRef> probe = new Probe(destroyed);
    EXPECT_THAT(Shown(probe), MatchesRegex("<Probe 0x[0-9a-f]+>\n"));
}

TEST(CFShow, NestedCollections_ShowTheirValues) {
    const Owned<CFMutableArrayRef> items =
        CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    const Owned<CFMutableDictionaryRef> item = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(item, CFSTR("Hide"), kCFBooleanTrue);
    CFArrayAppendValue(items, item);
    CFArrayAppendValue(items, CFSTR("M\xC3\xBCller"));
    EXPECT_THAT(
        Shown(items),
        MatchesRegex("<CFArray 0x[0-9a-f]+>.count = 2, values = \\(\n"
                     "\t0 : <CFDictionary 0x[0-9a-f]+>.count = 1, entries = \\(\n"
                     "\t<CFString 0x[0-9a-f]+>.contents = \"Hide\". = "
                     "<CFBoolean 0x[0-9a-f]+>.value = true.\n\\).\n"
                     "\t1 : <CFString 0x[0-9a-f]+>.contents = \"M\\\\u00fcller\".\n\\).\n"));
}

TEST(CFShow, PlainPointers_ShowAsAddresses) {
    const Owned<CFMutableArrayRef> array = CFArrayCreateMutable(kCFAllocatorDefault, 0, nullptr);
    CFArrayAppendValue(array, reinterpret_cast<const void*>(0x1234));
    EXPECT_THAT(Shown(array), HasSubstr("\t0 : 0x1234\n"));
}

}  // namespace
