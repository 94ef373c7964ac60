#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>

#include "CommandTesting.h"
#include "CoreFoundation/Date.h"
#include "CoreFoundation/Number.h"
#include "CoreFoundation/PropertyList.h"
#include "PropertyListTesting.h"

namespace {

using filestest::InAChild;
using filestest::TemporaryFolder;
using filestest::WriteFile;

constexpr CFPropertyListFormat kXML = kCFPropertyListXMLFormat_v1_0;
constexpr CFPropertyListFormat kBinary = kCFPropertyListBinaryFormat_v1_0;

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

// One of everything, and some twice.
const char kEverything[] =
    "<dict>"
    "<key>text</key><string>a &lt;b&gt; &amp; \"Z\xC3\xBCrich\" \xF0\x9F\x96\x8B</string>"
    "<key>\xC3\xA4 &lt;key&gt;</key><string></string>"
    "<key></key><string>under nothing</string>"
    "<key>lines</key><string> one\n\ttwo\r\nthree </string>"
    "<key>zero</key><integer>0</integer>"
    "<key>small</key><integer>-1</integer>"
    "<key>least</key><integer>-9223372036854775808</integer>"
    "<key>much</key><integer>9223372036854775807</integer>"
    "<key>more</key><integer>9223372036854775808</integer>"
    "<key>most</key><integer>18446744073709551615</integer>"
    "<key>real</key><real>0.1</real><key>tiny</key><real>5e-324</real>"
    "<key>huge</key><real>1.7976931348623157e308</real><key>minus</key><real>-2.5</real>"
    "<key>yes</key><true/><key>no</key><false/>"
    "<key>data</key><data>AP/+AQID</data><key>nothing</key><data></data>"
    "<key>date</key><date>2008-02-29T23:59:59Z</date>"
    "<key>before</key><date>1969-07-20T20:17:40Z</date>"
    "<key>past</key><date>0001-01-01T00:00:00Z</date>"
    "<key>future</key><date>9999-12-31T23:59:59Z</date>"
    "<key>list</key><array><string>one</string><array/><dict/><integer>4</integer>"
    "<string>one</string></array>"
    "<key>deep</key><dict><key>deeper</key><dict><key>deepest</key><true/></dict></dict>"
    "</dict>";

class CFPropertyList : public ::testing::Test {
  protected:
    // Whatever a mirror finds is the test's own.
    TemporaryFolder folder;
    const filestest::Environment home{"HOME", folder.Path().c_str()};
    const std::string path = folder / "list";

    Owned<CFPropertyListRef> Everything() {
        WriteFile(path, XMLDocument(kEverything));
        Owned<CFPropertyListRef> list = ReadList(path);
        EXPECT_NE(list, nullptr);
        return list;
    }
    // The list and what lies beside it; a home also has folders.
    std::size_t Files() {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
            count += entry.is_regular_file();
        }
        return count;
    }
    std::size_t FileCount() {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
    }
};

TEST_F(CFPropertyList, Read_TellsTheFormat) {
    WriteFile(path, XMLDocument("<dict/>"));
    CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
    const Owned<CFPropertyListRef> list = ReadList(path, &format);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(format, kXML);
    ASSERT_GT(WriteList(list, path, kBinary), 0);
    ASSERT_NE(ReadList(path, &format), nullptr);
    EXPECT_EQ(format, kBinary);
    EXPECT_EQ(Content(path).substr(0, 8), "bplist00");
}

TEST_F(CFPropertyList, Read_OfWhatIsNone_IsNullAndLeavesTheFormat) {
    for (const std::string& content :
         {std::string(), std::string("hello"), XMLDocument(""), XMLDocument("<dict>"),
          std::string("bplist00"), std::string(1000, '\0')}) {
        WriteFile(path, content);
        CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
        EXPECT_EQ(ReadList(path, &format), nullptr) << content;
        EXPECT_EQ(format, kCFPropertyListOpenStepFormat);
    }
}

TEST_F(CFPropertyList, Read_OfWhatIsNone_GivesAnErrorText) {
    WriteFile(path, "hello");
    const Owned<CFReadStreamRef> stream =
        CFReadStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    ASSERT_TRUE(CFReadStreamOpen(stream));
    CFStringRef error = nullptr;
    EXPECT_EQ(CFPropertyListCreateFromStream(kCFAllocatorDefault, stream, 0, 0, nullptr, &error),
              nullptr);
    const Owned<CFStringRef> owner(error);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(TextOf(error), "The stream holds no property list.");
}

TEST_F(CFPropertyList, Read_OfTheOldFormat_IsNull) {
    WriteFile(path, "{ key = value; list = ( one, two ); }");
    EXPECT_EQ(ReadList(path), nullptr);
}

TEST_F(CFPropertyList, Read_OfALength_TakesSoMuch) {
    const std::string one = XMLDocument("<string>one</string>");
    WriteFile(path, one + XMLDocument("<string>two</string>"));
    const Owned<CFReadStreamRef> stream =
        CFReadStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    ASSERT_TRUE(CFReadStreamOpen(stream));
    const auto length = static_cast<CFIndex>(one.size());
    for (const char* const text : {"one", "two"}) {
        const Owned<CFPropertyListRef> list = CFPropertyListCreateFromStream(
            kCFAllocatorDefault, stream, length, 0, nullptr, nullptr);
        ASSERT_NE(list, nullptr);
        EXPECT_EQ(TextOf(static_cast<CFStringRef>(CFPropertyListRef(list))), text);
    }
    EXPECT_EQ(
        CFPropertyListCreateFromStream(kCFAllocatorDefault, stream, length, 0, nullptr, nullptr),
        nullptr);
}

TEST_F(CFPropertyList, Read_WithMutableContainers_CanBeChangedAtEveryLevel) {
    for (const CFOptionFlags options : {CFOptionFlags{kCFPropertyListMutableContainers},
                                        CFOptionFlags{kCFPropertyListMutableContainersAndLeaves}}) {
        WriteFile(path, XMLDocument("<dict><key>a</key><array><dict/></array></dict>"));
        const Owned<CFPropertyListRef> list = ReadList(path, nullptr, options);
        auto* const array =
            const_cast<CFMutableArrayRef>(static_cast<CFArrayRef>(ValueAt(list, "a")));
        auto* const inner = const_cast<CFMutableDictionaryRef>(
            static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(array, 0)));
        Set(inner, "b", "c");
        CFArrayAppendValue(array, CFSTR("d"));
        Set(const_cast<CFMutableDictionaryRef>(
                static_cast<CFDictionaryRef>(CFPropertyListRef(list))),
            "e", "f");
        ASSERT_GT(WriteList(list, path, kXML), 0);
        const Owned<CFPropertyListRef> again = ReadList(path);
        EXPECT_TRUE(CFEqual(list, again));
        EXPECT_EQ(TextAt(again, "e"), "f");
    }
}

TEST_F(CFPropertyList, Read_AsImmutable_CannotBeChanged) {
    WriteFile(path, XMLDocument("<dict/>"));
    const Owned<CFPropertyListRef> list = ReadList(path);
    EXPECT_DEATH(Set(const_cast<CFMutableDictionaryRef>(
                         static_cast<CFDictionaryRef>(CFPropertyListRef(list))),
                     "a", "b"),
                 "CFDictionarySetValue: the dictionary is immutable");
}

TEST_F(CFPropertyList, EverythingReadFromEitherFormat_IsWrittenInEitherWithoutLoss) {
    const Owned<CFPropertyListRef> list = Everything();
    for (const CFPropertyListFormat first : {kXML, kBinary}) {
        for (const CFPropertyListFormat second : {kXML, kBinary}) {
            const CFIndex written = WriteList(list, path, first);
            ASSERT_GT(written, 0);
            EXPECT_EQ(std::filesystem::file_size(path), static_cast<std::uintmax_t>(written));
            const Owned<CFPropertyListRef> once = ReadList(path);
            ASSERT_NE(once, nullptr);
            EXPECT_TRUE(CFEqual(list, once));
            ASSERT_GT(WriteList(once, path, second), 0);
            CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
            const Owned<CFPropertyListRef> twice = ReadList(path, &format);
            ASSERT_NE(twice, nullptr);
            EXPECT_EQ(format, second);
            EXPECT_TRUE(CFEqual(list, twice));
        }
    }
}

TEST_F(CFPropertyList, TheSameList_IsWrittenAsTheSameBytes) {
    const Owned<CFPropertyListRef> list = Everything();
    for (const CFPropertyListFormat format : {kXML, kBinary}) {
        ASSERT_GT(WriteList(list, path, format), 0);
        const std::string first = Content(path);
        const Owned<CFPropertyListRef> again = ReadList(path);
        ASSERT_GT(WriteList(again, path, format), 0);
        EXPECT_EQ(Content(path), first);
    }
}

TEST_F(CFPropertyList, ATextAlone_IsAList) {
    ASSERT_GT(WriteList(CFSTR("alone"), path, kBinary), 0);
    const Owned<CFPropertyListRef> list = ReadList(path);
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(CFEqual(list, CFSTR("alone")));
}

// --- Numbers and dates

Owned<CFPropertyListRef> ThereAndBack(CFTypeRef value, const std::string& path,
                                      CFPropertyListFormat format) {
    if (WriteList(value, path, format) == 0) return CFPropertyListRef();
    return ReadList(path);
}

TEST_F(CFPropertyList, Numbers_KeepTheirValue) {
    for (const CFPropertyListFormat format : {kXML, kBinary}) {
        for (const long long value :
             {0LL, 1LL, 127LL, 128LL, 255LL, 256LL, 65536LL, 4294967295LL, 4294967296LL, -1LL,
              -128LL, -129LL, -65537LL, std::numeric_limits<long long>::max(),
              std::numeric_limits<long long>::min()}) {
            const Owned<CFNumberRef> number =
                CFNumberCreate(kCFAllocatorDefault, kCFNumberLongLongType, &value);
            const Owned<CFPropertyListRef> back = ThereAndBack(number, path, format);
            ASSERT_NE(back, nullptr) << value;
            EXPECT_TRUE(CFEqual(number, back)) << value;
        }
        for (const double value :
             {0.1, -0.1, 1e300, 5e-324, 1.0 / 3, -1e-10, std::numeric_limits<double>::infinity(),
              -std::numeric_limits<double>::infinity(), std::nan("")}) {
            const Owned<CFNumberRef> number =
                CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &value);
            const Owned<CFPropertyListRef> back = ThereAndBack(number, path, format);
            ASSERT_NE(back, nullptr) << value;
            EXPECT_TRUE(CFEqual(number, back)) << value;
        }
    }
}

// Once they became numbers below zero.
TEST_F(CFPropertyList, NumbersAbove63Bits_KeepTheirValue) {
    for (const UInt64 value : {UInt64{1} << 63, ~UInt64{0}, (UInt64{1} << 63) + 4711}) {
        for (const CFPropertyListFormat format : {kXML, kBinary}) {
            const Owned<CFNumberRef> number = new __CFNumber(value);
            const Owned<CFPropertyListRef> back = ThereAndBack(number, path, format);
            ASSERT_NE(back, nullptr);
            EXPECT_TRUE(CFEqual(number, back));
            long long nearest = 0;
            EXPECT_FALSE(CFNumberGetValue(static_cast<CFNumberRef>(CFPropertyListRef(back)),
                                          kCFNumberLongLongType, &nearest));
            EXPECT_EQ(nearest, std::numeric_limits<long long>::max());
        }
    }
}

TEST_F(CFPropertyList, Dates_InBinary_KeepEveryBit) {
    for (const double seconds : {0.0, 0.25, -0.5, -1.5, 1e-9, 63113904000.0, -63113904000.0, 1e300,
                                 0.1 + 0.2, -252460800.125}) {
        const Owned<const __CFDate*> date = new __CFDate(seconds);
        const Owned<CFPropertyListRef> back = ThereAndBack(date, path, kBinary);
        ASSERT_NE(back, nullptr) << seconds;
        EXPECT_EQ(frameworks::Checked<__CFDate>(back, "test").Seconds(), seconds);
    }
}

TEST_F(CFPropertyList, Dates_InXML_HaveWholeSeconds) {
    const double dates[][2] = {{0.75, 0},
                               {-0.25, -1},
                               {-1, -1},
                               {63113904000.0, 63113904000.0},
                               {-63113904000.0, -63113904000.0},
                               {252423993599.5, 252423993599.0}};
    for (const auto& [seconds, whole] : dates) {
        const Owned<const __CFDate*> date = new __CFDate(seconds);
        const Owned<CFPropertyListRef> back = ThereAndBack(date, path, kXML);
        ASSERT_NE(back, nullptr) << seconds;
        EXPECT_EQ(frameworks::Checked<__CFDate>(back, "test").Seconds(), whole);
    }
}

TEST_F(CFPropertyList, Dates_OfYearsThatXMLCannotName_AreNotWrittenInXML) {
    WriteFile(path, "old");
    for (const double seconds : {252423993600.0, -63113904000.5, 1e300, -1e300,
                                 std::numeric_limits<double>::infinity(), std::nan("")}) {
        const Owned<const __CFDate*> date = new __CFDate(seconds);
        EXPECT_EQ(WriteList(date, path, kXML), 0) << seconds;
    }
    EXPECT_EQ(Content(path), "old");
}

// --- What cannot be written

TEST_F(CFPropertyList, Write_InTheOldFormat_IsZeroAndLeavesTheFile) {
    WriteFile(path, "old");
    const Owned<CFMutableDictionaryRef> list = MakeDictionary();
    EXPECT_EQ(WriteList(list, path, kCFPropertyListOpenStepFormat), 0);
    EXPECT_EQ(WriteList(list, path, static_cast<CFPropertyListFormat>(7)), 0);
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(FileCount(), 1u);
}

TEST_F(CFPropertyList, Write_OfWhatIsNoPropertyList_IsZeroAndLeavesTheFile) {
    WriteFile(path, "old");
    const Owned<CFURLRef> url = FileURL("/tmp");
    const Owned<CFMutableArrayRef> array = MakeArray();
    CFArrayAppendValue(array, url);
    const Owned<CFMutableDictionaryRef> number = MakeDictionary();
    CFDictionarySetValue(number, MakeNumber(1), CFSTR("x"));
    for (const CFPropertyListFormat format : {kXML, kBinary}) {
        EXPECT_EQ(WriteList(url, path, format), 0);
        EXPECT_EQ(WriteList(array, path, format), 0);
        EXPECT_EQ(WriteList(number, path, format), 0);
    }
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(FileCount(), 1u);
}

TEST_F(CFPropertyList, Write_OfAListThatHoldsItself_IsZero) {
    const Owned<CFMutableArrayRef> array = MakeArray();
    CFArrayAppendValue(array, array);
    EXPECT_EQ(WriteList(array, path, kBinary), 0);
    CFArrayRemoveValueAtIndex(array, 0);
}

TEST_F(CFPropertyList, Write_OfAListThatIsTooDeep_IsZero) {
    for (const std::size_t beyond : {std::size_t{0}, std::size_t{1}}) {
        CFMutableArrayRef outermost = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
        for (std::size_t depth = 1; depth < frameworks::kDeepestPropertyList + beyond; ++depth) {
            const CFMutableArrayRef outer =
                CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
            CFArrayAppendValue(outer, outermost);
            CFRelease(outermost);
            outermost = outer;
        }
        const Owned<CFMutableArrayRef> list(outermost);
        for (const CFPropertyListFormat format : {kXML, kBinary}) {
            EXPECT_EQ(WriteList(list, path, format) > 0, beyond == 0);
        }
    }
}

// Two arrays of each level in one above: two to the fortieth objects.
TEST_F(CFPropertyList, Write_OfAListThatGrowsByNamingObjectsTwice_IsZero) {
    CFMutableArrayRef outermost = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
    for (int level = 0; level < 40; ++level) {
        const CFMutableArrayRef outer = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
        CFArrayAppendValue(outer, outermost);
        CFArrayAppendValue(outer, outermost);
        CFRelease(outermost);
        outermost = outer;
    }
    const Owned<CFMutableArrayRef> list(outermost);
    EXPECT_EQ(WriteList(list, path, kBinary), 0);
}

TEST_F(CFPropertyList, Write_OfMoreThanCanBeRead_IsZero) {
    const std::string text(frameworks::kLargestPropertyList, 'a');
    EXPECT_EQ(WriteList(MakeString(text.c_str()), path, kXML), 0);
    const std::string less(frameworks::kLargestPropertyList - 1000, 'a');
    EXPECT_GT(WriteList(MakeString(less.c_str()), path, kXML), 0);
    EXPECT_NE(ReadList(path), nullptr);
}

TEST_F(CFPropertyList, Write_ToAStreamThatIsNotOpen_IsZero) {
    const Owned<CFWriteStreamRef> stream =
        CFWriteStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    CFStringRef error = nullptr;
    EXPECT_EQ(CFPropertyListWriteToStream(CFSTR("x"), stream, kXML, &error), 0);
    const Owned<CFStringRef> owner(error);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(TextOf(error), "The file cannot be written.");
    EXPECT_EQ(FileCount(), 0u);
}

TEST_F(CFPropertyList, Write_OnAFullMedium_IsZeroAndLeavesTheFile) {
    WriteFile(path, "old");
    const std::string text(100000, 'a');
    InAChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{1000, 1000};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(WriteList(MakeString(text.c_str()), path, kBinary), 0);
    });
    EXPECT_EQ(Content(path), "old");
    EXPECT_EQ(FileCount(), 1u);
}

TEST_F(CFPropertyList, Write_WhereTheFileWasNoList_KeepsItBeside) {
    for (const char* const kept : {".unreadable", ".unreadable-2"}) {
        const std::string precious = std::string("bplist00 precious ") + kept;
        WriteFile(path, precious);
        ASSERT_EQ(chmod(path.c_str(), 0600), 0);
        ASSERT_EQ(ReadList(path), nullptr);
        EXPECT_GT(WriteList(CFSTR("new"), path, kXML), 0);
        EXPECT_EQ(Content(path + kept), precious);
        EXPECT_TRUE(CFEqual(ReadList(path), CFSTR("new")));
    }
    EXPECT_GT(WriteList(CFSTR("newer"), path, kXML), 0);
    EXPECT_EQ(Files(), 3u) << "what is a list is replaced";
}

TEST_F(CFPropertyList, Write_WhereTheFileWasEmptyOrHasBeenMended_KeepsNothing) {
    WriteFile(path, "");
    ASSERT_EQ(ReadList(path), nullptr);
    EXPECT_GT(WriteList(CFSTR("new"), path, kXML), 0);
    WriteFile(path, "broken");
    ASSERT_EQ(ReadList(path), nullptr);
    WriteFile(path, XMLDocument("<string>mended</string>"));
    ASSERT_NE(ReadList(path), nullptr);
    EXPECT_GT(WriteList(CFSTR("new"), path, kXML), 0);
    EXPECT_EQ(Files(), 1u);
}

TEST_F(CFPropertyList, Write_WhereWhatWasNoListCannotBeKept_IsZeroAndLeavesTheFile) {
    WriteFile(path, "precious");
    WriteFile(path + ".unreadable");
    for (int number = 2; number <= 100; ++number) {
        WriteFile(path + ".unreadable-" + std::to_string(number));
    }
    ASSERT_EQ(ReadList(path), nullptr);
    EXPECT_EQ(WriteList(CFSTR("new"), path, kXML), 0);
    EXPECT_EQ(Content(path), "precious");
    EXPECT_EQ(Files(), 101u);
}

TEST_F(CFPropertyList, Write_WhereTheListCouldNotBeRead_IsZeroAndLeavesTheFile) {
    WriteFile(path, "precious");
    ASSERT_EQ(chmod(path.c_str(), 0222), 0);
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
    InAChild([this] {
        constexpr uid_t kNobody = 65534;
        if (geteuid() == 0) {
            ASSERT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
            ASSERT_EQ(access(path.c_str(), W_OK), 0);
        }
        ASSERT_EQ(ReadList(path), nullptr);
        EXPECT_EQ(WriteList(CFSTR("new"), path, kXML), 0);
    });
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(Content(path), "precious");
    // Out of reach for a while only.
    InAChild([this] {
        rlimit files = {0, 0};
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
        const rlimit none = {0, files.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
        ASSERT_EQ(ReadList(path), nullptr);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
        EXPECT_EQ(WriteList(CFSTR("new"), path, kXML), 0);
        EXPECT_EQ(Content(path), "precious");
        WriteFile(path, XMLDocument("<string>x</string>"));
        ASSERT_NE(ReadList(path), nullptr);
        EXPECT_GT(WriteList(CFSTR("new"), path, kXML), 0);
    });
}

TEST_F(CFPropertyList, Write_ThroughALink_KeepsTheLinkAndTheMode) {
    WriteFile(folder / "real", "old");
    ASSERT_EQ(chmod((folder / "real").c_str(), 0640), 0);
    ASSERT_EQ(symlink("real", path.c_str()), 0);
    ASSERT_GT(WriteList(CFSTR("new"), path, kXML), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_TRUE(CFEqual(ReadList(folder / "real"), CFSTR("new")));
}

// --- Other people's tools

TEST_F(CFPropertyList, WhatPlistutilHasConverted_IsRead) {
    const Owned<CFPropertyListRef> list = Everything();
    const std::string xml = folder / "in.xml";
    WriteFile(xml, XMLDocument(kEverything));
    const CommandResult made =
        RunCommand("plistutil -i " + Quoted(xml) + " -o " + Quoted(path) + " -f bin 2>&1");
    ASSERT_EQ(made.status, 0) << made.output;
    CFPropertyListFormat format = kXML;
    const Owned<CFPropertyListRef> read = ReadList(path, &format);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(format, kBinary);
    EXPECT_TRUE(CFEqual(list, read));
}

TEST_F(CFPropertyList, WhatIsWritten_IsReadByPlistutil) {
    const Owned<CFPropertyListRef> list = Everything();
    for (const CFPropertyListFormat format : {kXML, kBinary}) {
        ASSERT_GT(WriteList(list, path, format), 0);
        const std::string there = folder / "there";
        const CommandResult converted =
            RunCommand("plistutil -i " + Quoted(path) + " -o " + Quoted(there) + " -f " +
                       (format == kXML ? "bin" : "xml") + " 2>&1");
        ASSERT_EQ(converted.status, 0) << converted.output;
        EXPECT_NE(Content(there).find(format == kXML ? "bplist00" : "<plist"), std::string::npos);
        if (format == kXML) {
            EXPECT_TRUE(CFEqual(list, ReadList(there)));
        } else {
            EXPECT_NE(Content(there).find("under nothing"), std::string::npos);
        }
    }
}

TEST_F(CFPropertyList, WhatIsWritten_IsReadByPython) {
    const Owned<CFPropertyListRef> list = Everything();
    for (const CFPropertyListFormat format : {kXML, kBinary}) {
        ASSERT_GT(WriteList(list, path, format), 0);
        const CommandResult read = RunCommand(
            "python3 -c 'import plistlib,sys; l=plistlib.load(open(sys.argv[1],\"rb\")); "
            "print(l[\"most\"], l[\"least\"], l[\"real\"], l[\"list\"], l[\"past\"].year, "
            "list(l[\"data\"]), len(l))' " +
            Quoted(path) + " 2>&1");
        EXPECT_EQ(read.output,
                  "18446744073709551615 -9223372036854775808 0.1 ['one', [], {}, 4, 'one'] 1 "
                  "[0, 255, 254, 1, 2, 3] 24\n");
    }
}

// --- Bad input

// A file of a user's must not be taken for an empty one because it is damaged.
TEST_F(CFPropertyList, CutAnywhere_IsReadWholeOrNotAtAll) {
    const Owned<CFPropertyListRef> list = Everything();
    for (const CFPropertyListFormat format : {kXML, kBinary}) {
        ASSERT_GT(WriteList(list, path, format), 0);
        const std::string whole = Content(path);
        for (std::size_t length = 0; length < whole.size(); length += format == kXML ? 31 : 3) {
            WriteFile(path, whole.substr(0, length));
            const Owned<CFPropertyListRef> cut = ReadList(path);
            EXPECT_TRUE(cut == nullptr || CFEqual(cut, list)) << length;
        }
    }
}

TEST_F(CFPropertyList, RandomBytes_AreRefused) {
    std::mt19937 random(4711);
    for (int round = 0; round < 500; ++round) {
        std::string bytes = round % 3 == 0 ? "bplist00" : round % 3 == 1 ? "<plist>" : "";
        for (std::size_t count = random() % 300; count > 0; --count) {
            bytes += static_cast<char>(random());
        }
        WriteFile(path, bytes);
        EXPECT_EQ(ReadList(path), nullptr) << round;
        EXPECT_EQ(Content(path), bytes);
    }
}

TEST_F(CFPropertyList, TenThousandHandlers_AreReadAndWritten) {
    std::string handlers;
    for (int number = 0; number < 10000; ++number) {
        const std::string digits = std::to_string(number);
        handlers += "<dict><key>LSHandlerContentTag</key><string>ext" + digits +
                    "</string><key>LSHandlerContentTagClass</key>"
                    "<string>public.filename-extension</string>"
                    "<key>LSHandlerRoleAll</key><string>org.example.app" +
                    digits + "</string></dict>";
    }
    WriteFile(path,
              XMLDocument("<dict><key>LSHandlers</key><array>" + handlers + "</array></dict>"));
    const Owned<CFPropertyListRef> list = ReadList(path);
    ASSERT_NE(list, nullptr);
    for (const CFPropertyListFormat format : {kBinary, kXML}) {
        ASSERT_GT(WriteList(list, path, format), 0);
        EXPECT_TRUE(CFEqual(list, ReadList(path)));
    }
}

TEST_F(CFPropertyList, OfANullOrOtherReference_Stops) {
    EXPECT_DEATH(CFPropertyListCreateFromStream(nullptr, nullptr, 0, 0, nullptr, nullptr),
                 "CFPropertyListCreateFromStream: expected a CFReadStream");
    const Owned<CFWriteStreamRef> stream =
        CFWriteStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    EXPECT_DEATH(CFPropertyListWriteToStream(nullptr, stream, kXML, nullptr),
                 "CFPropertyListWriteToStream: expected an object, got a null reference");
    EXPECT_DEATH(CFPropertyListWriteToStream(CFSTR("x"), nullptr, kXML, nullptr),
                 "CFPropertyListWriteToStream: expected a CFWriteStream");
    const Owned<CFReadStreamRef> reader =
        CFReadStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    EXPECT_DEATH(CFPropertyListCreateFromStream(nullptr, reader, -1, 0, nullptr, nullptr),
                 "CFPropertyListCreateFromStream: the length -1 is negative");
}

}  // namespace
