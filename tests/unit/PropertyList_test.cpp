#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "CFTestSupport.h"
#include "CoreFoundation/Date.h"
#include "CoreFoundation/PropertyList.h"

namespace {

using frameworks::Containers;
using frameworks::Object;
using frameworks::ReadPropertyList;
using frameworks::Ref;

Ref<const Object> Read(const std::string& bytes) {
    return ReadPropertyList(bytes, Containers::kFrozen);
}

std::string Document(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           content + "\n</plist>\n";
}

std::string Repeated(const std::string& text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    while (count-- > 0) {
        all += text;
    }
    return all;
}

std::string Nested(std::size_t depth) {
    return Document(Repeated("<array>", depth) + Repeated("</array>", depth));
}

CFTypeRef ValueOf(const Ref<const Object>& list, const char* key) {
    if (!list || CFGetTypeID(list.Get()) != CFDictionaryGetTypeID()) return nullptr;
    const Owned<CFStringRef> name = MakeString(key);
    return CFDictionaryGetValue(
        static_cast<const __CFDictionary*>(static_cast<const void*>(list.Get())), name);
}

std::string TextAt(const Ref<const Object>& list, const char* key) {
    const auto* const value = static_cast<CFStringRef>(ValueOf(list, key));
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return "<no text>";
    return TextOf(value);
}

long long NumberAt(const Ref<const Object>& list, const char* key) {
    const auto* const value = static_cast<CFNumberRef>(ValueOf(list, key));
    long long number = -777;
    if (value != nullptr && CFGetTypeID(value) == CFNumberGetTypeID()) {
        CFNumberGetValue(value, kCFNumberLongLongType, &number);
    }
    return number;
}

// Puts a binary property list together, object by object.
class Binary {
  public:
    // The number of the object.
    std::size_t Add(std::string bytes) {
        objects.push_back(std::move(bytes));
        return objects.size() - 1;
    }
    std::size_t AddText(const std::string& text) { return Add(Head(0x50, text.size()) + text); }
    std::size_t AddArray(const std::vector<std::size_t>& members) {
        return Add(Head(0xA0, members.size()) + References(members));
    }
    std::size_t AddDictionary(const std::vector<std::size_t>& keys,
                              const std::vector<std::size_t>& values) {
        return Add(Head(0xD0, keys.size()) + References(keys) + References(values));
    }

    std::string Bytes(std::uint64_t first) const {
        std::string bytes = "bplist00";
        std::string table;
        for (const std::string& object : objects) {
            table += BigEndian(bytes.size(), 4);
            bytes += object;
        }
        const std::size_t tableAt = bytes.size();
        return bytes + table + std::string(6, '\0') + '\x04' + '\x02' +
               BigEndian(objects.size(), 8) + BigEndian(first, 8) + BigEndian(tableAt, 8);
    }

    static std::string BigEndian(std::uint64_t value, int size) {
        std::string bytes;
        for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
            bytes += static_cast<char>(value >> shift & 0xFF);
        }
        return bytes;
    }

  private:
    static std::string Head(int kind, std::size_t count) {
        if (count < 15) return std::string(1, static_cast<char>(kind | static_cast<int>(count)));
        return std::string(1, static_cast<char>(kind | 15)) + '\x13' + BigEndian(count, 8);
    }
    static std::string References(const std::vector<std::size_t>& members) {
        std::string bytes;
        for (const std::size_t member : members) {
            bytes += BigEndian(member, 2);
        }
        return bytes;
    }

    std::vector<std::string> objects;
};

TEST(PropertyList, XML_GivesEachKindOfObject) {
    const Ref<const Object> list =
        Read(Document("<dict>"
                      "<key>text</key><string>a &lt;b&gt; &amp; Z&#xFC;rich</string>"
                      "<key>whole</key><integer>-42</integer>"
                      "<key>large</key><integer>9223372036854775807</integer>"
                      "<key>real</key><real>1.5</real>"
                      "<key>yes</key><true/><key>no</key><false/>"
                      "<key>data</key><data>AQID\n  BA==</data>"
                      "<key>date</key><date>2001-01-02T00:00:00Z</date>"
                      "<key>list</key><array><string>one</string><integer>2</integer></array>"
                      "<key>empty</key><string></string>"
                      "</dict>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(TextAt(list, "text"), "a <b> & Z\xC3\xBCrich");
    EXPECT_EQ(NumberAt(list, "whole"), -42);
    EXPECT_EQ(NumberAt(list, "large"), 9223372036854775807LL);
    double real = 0;
    EXPECT_TRUE(CFNumberGetValue(static_cast<CFNumberRef>(ValueOf(list, "real")),
                                 kCFNumberDoubleType, &real));
    EXPECT_EQ(real, 1.5);
    EXPECT_EQ(ValueOf(list, "yes"), kCFBooleanTrue);
    EXPECT_EQ(ValueOf(list, "no"), kCFBooleanFalse);
    const auto* const data = static_cast<CFDataRef>(ValueOf(list, "data"));
    ASSERT_EQ(CFDataGetLength(data), 4);
    EXPECT_EQ(CFDataGetBytePtr(data)[3], 4);
    EXPECT_EQ(frameworks::Checked<__CFDate>(ValueOf(list, "date"), "test").Seconds(), 86400);
    const auto* const array = static_cast<CFArrayRef>(ValueOf(list, "list"));
    ASSERT_EQ(CFArrayGetCount(array), 2);
    EXPECT_EQ(TextOf(static_cast<CFStringRef>(CFArrayGetValueAtIndex(array, 0))), "one");
    EXPECT_EQ(TextAt(list, "empty"), "");
}

TEST(PropertyList, XML_WithCommentsAttributesAndSections_IsReadAsUsual) {
    const Ref<const Object> list = Read(
        "\xEF\xBB\xBF<?xml version=\"1.0\"?><!-- <dict> --><plist version='1.0'><dict a=\"1\">"
        "<!-- </dict> --><key>a<!-- b -->c</key><string><![CDATA[<dict> & ]]>x</string>"
        "</dict></plist><!-- the end -->");
    EXPECT_EQ(TextAt(list, "ac"), "<dict> & x");
}

TEST(PropertyList, XML_OfOneTextAlone_IsThatText) {
    const Ref<const Object> list = Read(Document("<string>alone</string>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(CFGetTypeID(list.Get()), CFStringGetTypeID());
}

TEST(PropertyList, XML_ThatIsMalformed_IsNothing) {
    for (const char* const text :
         {"",
          " ",
          "text",
          "<",
          "<plist",
          "<plist>",
          "<plist></plist>",
          "<plist><dict></plist>",
          "<plist><dict></array></plist>",
          "<plist><array></dict></plist>",
          "<plist><string>a</plist>",
          "<plist><string>a<b/></string></plist>",
          "<plist><unknown/></plist>",
          "<plist><array>text</array></plist>",
          "<plist><dict><string>no key</string></dict></plist>",
          "<plist><dict><key>no value</key></dict></plist>",
          "<plist><!-- </plist>",
          "<plist><string><![CDATA[ </string></plist>",
          "<plist><string>&unknown;</string></plist>",
          "<plist><string>&#0;</string></plist>",
          "<plist><plist><dict/></plist></plist>",
          "<!DOCTYPE plist [<!ENTITY a \"b\">]><plist><string>&a;</string></plist>",
          "</array></array><plist><dict/></plist>",
          "<plist><array></plist></array>"}) {
        EXPECT_FALSE(Read(text)) << text;
    }
    EXPECT_FALSE(Read(std::string("<plist><string>a\0b</string></plist>", 35)));
    EXPECT_FALSE(Read(Document("<string>\xFF</string>")));
}

TEST(PropertyList, XML_AtTheLimitOfDepth_IsRead_AndBeyondIsNot) {
    EXPECT_TRUE(Read(Nested(frameworks::kDeepestPropertyList)));
    EXPECT_FALSE(Read(Nested(frameworks::kDeepestPropertyList + 1)));
    EXPECT_TRUE(Read(Document(Repeated("<dict><key>k</key>", frameworks::kDeepestPropertyList) +
                              "<string>x</string>" +
                              Repeated("</dict>", frameworks::kDeepestPropertyList))));
}

// Once the stack overflowed when such a list was given up.
TEST(PropertyList, XML_NestedAHundredThousandDeep_IsRefused) {
    EXPECT_FALSE(Read(Nested(100000)));
    EXPECT_FALSE(Read(Document(Repeated("<array>", 100000))));
    // Ends that only seem to be ones must not hide the depth.
    for (const char* const level :
         {"<array><!-- </array> -->", "<array x='</array>'>", "<array><?x </array> ?>",
          "<array ></array x><array>", "<array><string>a<![CDATA[</string></array>]]></string>"}) {
        EXPECT_FALSE(Read(Document(Repeated(level, 100000)))) << level;
    }
}

TEST(PropertyList, XML_WithADateThatIsNone_IsRefused) {
    for (const char* const date :
         {"<date/>", "<date></date>", "<date>today</date>", "<date>2008-13-01T00:00:00Z</date>",
          "<date>2008-00-01T00:00:00Z</date>", "<date>2008-99-01T00:00:00Z</date>",
          "<date>2008-01-00T00:00:00Z</date>", "<date>2008-01-01T24:00:00Z</date>",
          "<date>2008-01-01 00:00:00Z</date>", "<date>2008-01-01T00:00:00</date>",
          "<date>-999999999-01-01T00:00:00Z</date>"}) {
        EXPECT_FALSE(Read(Document(date))) << date;
    }
}

// The library takes what is no number for 0, a leading 0 for octal, and leaves out what is no digit
// of data: a list would be written back as another one.
TEST(PropertyList, XML_WithNumbersAndDataThatAreNone_IsRefused) {
    for (const char* const leaf :
         {"<integer>abc</integer>", "<integer>1x</integer>", "<integer>1 2</integer>",
          "<integer>--1</integer>", "<integer>0x</integer>", "<integer>1.5</integer>",
          "<integer>18446744073709551616</integer>", "<integer>-9223372036854775809</integer>",
          "<real>abc</real>", "<real>1.5x</real>", "<real>1,5</real>", "<real>+-1</real>",
          "<data>A!==</data>", "<data>AQI</data>", "<data>AQ==AQ==</data>", "<data>====</data>",
          "<true>no</true>", "<false>x</false>"}) {
        EXPECT_FALSE(Read(Document(leaf))) << leaf;
    }
}

TEST(PropertyList, XML_WithNumbersInEveryForm_IsRead) {
    const Ref<const Object> list =
        Read(Document("<dict><key>octal</key><integer>010</integer>"
                      "<key>hexadecimal</key><integer>0xfF</integer>"
                      "<key>negative</key><integer>-0X10</integer>"
                      "<key>plus</key><integer> +5\n</integer>"
                      "<key>real</key><real> -1e3 </real></dict>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(NumberAt(list, "octal"), 10);
    EXPECT_EQ(NumberAt(list, "hexadecimal"), 255);
    EXPECT_EQ(NumberAt(list, "negative"), -16);
    EXPECT_EQ(NumberAt(list, "plus"), 5);
    EXPECT_EQ(NumberAt(list, "real"), -1000);
    for (const char* const real : {"nan", "inf", "-inf", "+infinity", "1e999", "1e-999", ".5"}) {
        EXPECT_TRUE(Read(Document("<real>" + std::string(real) + "</real>"))) << real;
    }
}

TEST(PropertyList, XML_WithEmptyLeaves_IsRead) {
    const Ref<const Object> list =
        Read(Document("<array><string/><integer/><real/><data/><data></data><true></true>"
                      "<integer></integer></array>"));
    ASSERT_TRUE(list);
    const auto* const array = static_cast<CFArrayRef>(static_cast<const void*>(list.Get()));
    EXPECT_EQ(CFArrayGetCount(array), 7);
    EXPECT_EQ(CFDataGetLength(static_cast<CFDataRef>(CFArrayGetValueAtIndex(array, 3))), 0);
}

TEST(PropertyList, LargerThanTheLimit_IsRefused) {
    EXPECT_FALSE(Read(
        Document("<string>" + std::string(frameworks::kLargestPropertyList, 'a') + "</string>")));
}

TEST(PropertyList, ManyNeighbours_AreNotDepth) {
    const Ref<const Object> list =
        Read(Document("<array>" + Repeated("<dict/>", 100000) + "</array>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(CFArrayGetCount(static_cast<CFArrayRef>(static_cast<const void*>(list.Get()))),
              100000);
}

TEST(PropertyList, Frozen_CannotBeChanged_AndMutable_Can) {
    const std::string text = Document("<dict><key>a</key><array/></dict>");
    const Ref<const Object> frozen = ReadPropertyList(text, Containers::kFrozen);
    auto* const array = const_cast<__CFArray*>(static_cast<CFArrayRef>(ValueOf(frozen, "a")));
    EXPECT_DEATH(CFArrayAppendValue(array, CFSTR("x")), "CFArrayAppendValue");
    const Ref<const Object> open = ReadPropertyList(text, Containers::kMutable);
    auto* const changed = const_cast<__CFArray*>(static_cast<CFArrayRef>(ValueOf(open, "a")));
    CFArrayAppendValue(changed, CFSTR("x"));
    EXPECT_EQ(CFArrayGetCount(changed), 1);
}

TEST(PropertyList, Binary_GivesEachKindOfObject) {
    Binary list;
    const std::size_t text = list.AddText("text");
    const std::size_t wide = list.Add(std::string("\x62\x00\x5A\x00\xFC", 5));
    const std::size_t number = list.AddText("number");
    const std::size_t minusTwo = list.Add("\x13" + Binary::BigEndian(~std::uint64_t{1}, 8));
    const std::size_t real = list.AddText("real");
    const std::size_t half = list.Add(std::string("\x22\x3F\x00\x00\x00", 5));
    const std::size_t yes = list.AddText("yes");
    const std::size_t isTrue = list.Add("\x09");
    const std::size_t data = list.AddText("data");
    const std::size_t bytes = list.Add("\x42\x01\x02");
    const std::size_t longText = list.AddText("long");
    const std::size_t twenty = list.AddText("twenty letters long!");
    const std::size_t first = list.AddDictionary({text, number, real, yes, data, longText},
                                                 {wide, minusTwo, half, isTrue, bytes, twenty});
    const Ref<const Object> read = Read(list.Bytes(first));
    ASSERT_TRUE(read);
    EXPECT_EQ(TextAt(read, "text"), "Z\xC3\xBC");
    EXPECT_EQ(NumberAt(read, "number"), -2);
    EXPECT_EQ(ValueOf(read, "yes"), kCFBooleanTrue);
    EXPECT_EQ(CFDataGetLength(static_cast<CFDataRef>(ValueOf(read, "data"))), 2);
    EXPECT_EQ(TextAt(read, "long"), "twenty letters long!");
    float value = 0;
    CFNumberGetValue(static_cast<CFNumberRef>(ValueOf(read, "real")), kCFNumberFloatType, &value);
    EXPECT_EQ(value, 0.5f);
}

TEST(PropertyList, Binary_ThatHoldsItself_IsRefused) {
    Binary own;
    own.AddArray({0});
    EXPECT_FALSE(Read(own.Bytes(0)));
    Binary circle;
    circle.AddArray({1});
    circle.AddArray({2});
    circle.AddArray({0});
    EXPECT_FALSE(Read(circle.Bytes(0)));
}

TEST(PropertyList, Binary_AtTheLimitOfDepth_IsRead_AndBeyondIsNot) {
    for (const std::size_t beyond : {0U, 1U}) {
        Binary list;
        list.AddText("at the bottom");
        for (std::size_t depth = 0; depth < frameworks::kDeepestPropertyList + beyond; ++depth) {
            list.AddArray({depth});
        }
        const Ref<const Object> read = Read(list.Bytes(frameworks::kDeepestPropertyList + beyond));
        EXPECT_EQ(bool(read), beyond == 0);
    }
}

// A short way down that is known already must not hide that a long way leads there too.
TEST(PropertyList, Binary_WithAShortAndALongWayToTheSameObject_CountsTheLongOne) {
    Binary list;
    const std::size_t half = frameworks::kDeepestPropertyList / 2;
    list.AddText("at the bottom");
    for (std::size_t depth = 0; depth < half; ++depth) {
        list.AddArray({depth});
    }
    const std::size_t lower = half;
    for (std::size_t depth = lower; depth < lower + half; ++depth) {
        list.AddArray({depth});
    }
    const std::size_t upper = lower + half;
    EXPECT_FALSE(Read(list.Bytes(list.AddArray({lower, upper}))));
}

// Thirty objects that stand for two to the thirtieth.
TEST(PropertyList, Binary_ThatGrowsByNamingObjectsTwice_IsRefused) {
    Binary list;
    list.AddText("x");
    for (std::size_t level = 0; level < 30; ++level) {
        list.AddArray({level, level});
    }
    EXPECT_FALSE(Read(list.Bytes(30)));
}

TEST(PropertyList, Binary_ThatNamesALargeTextManyTimes_IsRefused) {
    Binary list;
    const std::size_t text = list.AddText(std::string(std::size_t{1} << 20, 'a'));
    EXPECT_FALSE(Read(list.Bytes(list.AddArray(std::vector<std::size_t>(100, text)))));
}

// Once the library ended the program over it.
TEST(PropertyList, Binary_WithNULInAKey_IsRefused) {
    Binary list;
    const std::size_t key = list.Add(std::string("\x62\x00k\x00\x00", 5));
    EXPECT_FALSE(Read(list.Bytes(list.AddDictionary({key}, {list.AddText("value")}))));
}

// Once the text was cut off there, and written back so.
TEST(PropertyList, Binary_WithNULInAText_IsRefused) {
    Binary list;
    list.AddText(std::string("a\0b", 3));
    EXPECT_FALSE(Read(list.Bytes(0)));
    Binary wide;
    wide.Add(std::string("\x62\x00\x61\x00\x00", 5));
    EXPECT_FALSE(Read(wide.Bytes(0)));
}

TEST(PropertyList, Binary_WithANumberOfSixteenBytes_IsReadWhenItFitsInEight) {
    for (const std::uint64_t upper : {0U, 1U}) {
        Binary list;
        list.Add("\x14" + Binary::BigEndian(upper, 8) + Binary::BigEndian(~std::uint64_t{0}, 8));
        EXPECT_EQ(bool(Read(list.Bytes(0))), upper == 0);
    }
}

TEST(PropertyList, Binary_CutAnywhere_IsRefusedWithoutAReadBeyondItsEnd) {
    Binary list;
    const std::size_t key = list.AddText("key");
    const std::size_t value = list.AddText("value");
    const std::string whole = list.Bytes(list.AddDictionary({key}, {value}));
    ASSERT_TRUE(Read(whole));
    for (std::size_t length = 0; length < whole.size(); ++length) {
        // On the heap and no longer than said, so that a sanitizer sees what lies behind.
        const std::vector<char> cut(whole.begin(),
                                    whole.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(
            ReadPropertyList(std::string_view(cut.data(), cut.size()), Containers::kFrozen))
            << length;
    }
}

TEST(PropertyList, Binary_WithAnyByteChanged_IsReadOrRefused) {
    Binary list;
    const std::size_t key = list.AddText("key");
    const std::size_t array = list.AddArray({key, list.Add("\x10\x07"), list.Add("\x09")});
    const std::string whole = list.Bytes(list.AddDictionary({key}, {array}));
    std::size_t refused = 0;
    for (std::size_t position = 0; position < whole.size(); ++position) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string changed = whole;
            changed[position] = static_cast<char>(changed[position] ^ 1 << bit);
            refused += Read(changed) ? 0 : 1;
        }
    }
    EXPECT_GT(refused, whole.size());
}

TEST(PropertyList, Binary_WithCountsAndOffsetsOutOfRange_IsRefused) {
    for (const char* const hugeCount :
         {"\xAF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "\xDF\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF",
          "\x4F\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", "\x6F\x13\x80\x01\x01\x01\x01\x01\x01\x01"}) {
        Binary list;
        list.Add(hugeCount);
        EXPECT_FALSE(Read(list.Bytes(0)));
    }
    Binary outside;
    outside.AddArray({7});
    EXPECT_FALSE(Read(outside.Bytes(0)));
    EXPECT_FALSE(Read(outside.Bytes(9)));
}

}  // namespace
