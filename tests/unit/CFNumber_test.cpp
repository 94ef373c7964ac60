#include <CoreFoundation/CFNumber.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>

#include "CFTestSupport.h"
#include "CoreFoundation/Number.h"

namespace {

Owned<CFNumberRef> Whole(SInt64 value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value);
}

Owned<CFNumberRef> Real(double value) {
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &value);
}

// What CFNumberGetValue answers and stores.
template <typename T>
struct Got {
    Boolean exact;
    T value;
    bool operator==(const Got& other) const { return exact == other.exact && value == other.value; }
};

template <typename T>
std::ostream& operator<<(std::ostream& out, const Got<T>& got) {
    return out << (got.exact ? "exactly " : "about ") << +got.value;
}

template <typename T>
Got<T> Get(CFNumberRef number, CFNumberType type) {
    // The bytes around the value must stay as they are.
    T around[3];
    std::memset(around, 0x5A, sizeof around);
    const T untouched = around[0];
    const Boolean exact = CFNumberGetValue(number, type, &around[1]);
    EXPECT_EQ(around[0], untouched);
    EXPECT_EQ(around[2], untouched);
    return {exact, around[1]};
}

constexpr SInt64 kLowest = std::numeric_limits<SInt64>::min();
constexpr SInt64 kHighest = std::numeric_limits<SInt64>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

TEST(CFNumber, EveryType_ComesBackAsItWas) {
    const SInt8 one = -128;
    const SInt16 two = -32768;
    const SInt32 four = std::numeric_limits<SInt32>::min();
    const Float32 real = 0.1f;
    for (const CFNumberType type : {kCFNumberSInt8Type, kCFNumberCharType}) {
        const Owned<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, type, &one);
        EXPECT_EQ(Get<SInt8>(number, type), (Got<SInt8>{1, one}));
    }
    for (const CFNumberType type : {kCFNumberSInt16Type, kCFNumberShortType}) {
        const Owned<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, type, &two);
        EXPECT_EQ(Get<SInt16>(number, type), (Got<SInt16>{1, two}));
    }
    for (const CFNumberType type : {kCFNumberSInt32Type, kCFNumberIntType}) {
        const Owned<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, type, &four);
        EXPECT_EQ(Get<SInt32>(number, type), (Got<SInt32>{1, four}));
    }
    for (const CFNumberType type : {kCFNumberSInt64Type, kCFNumberLongType, kCFNumberLongLongType,
                                    kCFNumberCFIndexType, kCFNumberNSIntegerType}) {
        const Owned<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, type, &kLowest);
        EXPECT_EQ(Get<SInt64>(number, type), (Got<SInt64>{1, kLowest}));
    }
    for (const CFNumberType type : {kCFNumberFloat32Type, kCFNumberFloatType}) {
        const Owned<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, type, &real);
        EXPECT_EQ(Get<Float32>(number, type), (Got<Float32>{1, real}));
    }
    const Float64 large = DBL_MAX;
    for (const CFNumberType type :
         {kCFNumberFloat64Type, kCFNumberDoubleType, kCFNumberCGFloatType}) {
        const Owned<CFNumberRef> number = CFNumberCreate(kCFAllocatorDefault, type, &large);
        EXPECT_EQ(Get<Float64>(number, type), (Got<Float64>{1, large}));
    }
}

TEST(CFNumber, AWholeNumber_FitsEveryTypeThatHoldsIt) {
    EXPECT_EQ(Get<SInt8>(Whole(127), kCFNumberSInt8Type), (Got<SInt8>{1, 127}));
    EXPECT_EQ(Get<SInt32>(Whole(0x1234), kCFNumberIntType), (Got<SInt32>{1, 0x1234}));
    EXPECT_EQ(Get<Float32>(Whole(16777216), kCFNumberFloat32Type), (Got<Float32>{1, 16777216.0f}));
    EXPECT_EQ(Get<Float64>(Whole(-3), kCFNumberDoubleType), (Got<Float64>{1, -3.0}));
    EXPECT_EQ(Get<Float64>(Whole(kLowest), kCFNumberDoubleType), (Got<Float64>{1, -0x1p63}));
}

TEST(CFNumber, AWholeNumberBeyondTheType_GivesFalseAndTheLimit) {
    EXPECT_EQ(Get<SInt8>(Whole(128), kCFNumberSInt8Type), (Got<SInt8>{0, 127}));
    EXPECT_EQ(Get<SInt8>(Whole(-129), kCFNumberSInt8Type), (Got<SInt8>{0, -128}));
    EXPECT_EQ(Get<SInt16>(Whole(40000), kCFNumberSInt16Type), (Got<SInt16>{0, 32767}));
    EXPECT_EQ(Get<SInt32>(Whole(kHighest), kCFNumberIntType),
              (Got<SInt32>{0, std::numeric_limits<SInt32>::max()}));
    EXPECT_EQ(Get<SInt32>(Whole(kLowest), kCFNumberIntType),
              (Got<SInt32>{0, std::numeric_limits<SInt32>::min()}));
}

TEST(CFNumber, AWholeNumberWithTooManyDigits_IsNotExactAsAReal) {
    EXPECT_EQ(Get<Float32>(Whole(16777217), kCFNumberFloat32Type), (Got<Float32>{0, 16777216.0f}));
    EXPECT_EQ(Get<Float64>(Whole((1LL << 53) + 1), kCFNumberDoubleType), (Got<Float64>{0, 0x1p53}));
    EXPECT_EQ(Get<Float64>(Whole(kHighest), kCFNumberDoubleType), (Got<Float64>{0, 0x1p63}));
}

TEST(CFNumber, ARealWithoutFraction_IsExactAsAWholeNumber) {
    EXPECT_EQ(Get<SInt32>(Real(-7.0), kCFNumberIntType), (Got<SInt32>{1, -7}));
    EXPECT_EQ(Get<SInt64>(Real(-0x1p63), kCFNumberSInt64Type), (Got<SInt64>{1, kLowest}));
}

TEST(CFNumber, AFraction_GivesFalseAndItsWholePart) {
    EXPECT_EQ(Get<SInt32>(Real(2.75), kCFNumberIntType), (Got<SInt32>{0, 2}));
    EXPECT_EQ(Get<SInt32>(Real(-2.75), kCFNumberIntType), (Got<SInt32>{0, -2}));
    EXPECT_EQ(Get<SInt8>(Real(127.5), kCFNumberSInt8Type), (Got<SInt8>{0, 127}));
}

TEST(CFNumber, ARealBeyondTheType_GivesFalseAndTheLimit) {
    EXPECT_EQ(Get<SInt64>(Real(0x1p63), kCFNumberSInt64Type), (Got<SInt64>{0, kHighest}));
    EXPECT_EQ(Get<SInt64>(Real(-1e300), kCFNumberSInt64Type), (Got<SInt64>{0, kLowest}));
    EXPECT_EQ(Get<SInt8>(Real(kInfinity), kCFNumberSInt8Type), (Got<SInt8>{0, 127}));
    EXPECT_EQ(Get<SInt8>(Real(-kInfinity), kCFNumberSInt8Type), (Got<SInt8>{0, -128}));
    EXPECT_EQ(Get<Float32>(Real(1e300), kCFNumberFloat32Type), (Got<Float32>{0, FLT_MAX}));
    EXPECT_EQ(Get<Float32>(Real(-1e300), kCFNumberFloat32Type), (Got<Float32>{0, -FLT_MAX}));
}

TEST(CFNumber, ARealWithTooManyDigits_IsNotExactAsAShorterOne) {
    EXPECT_EQ(Get<Float32>(Real(0.1), kCFNumberFloat32Type), (Got<Float32>{0, 0.1f}));
    EXPECT_EQ(Get<Float32>(Real(0.5), kCFNumberFloat32Type), (Got<Float32>{1, 0.5f}));
    EXPECT_EQ(Get<Float32>(Real(kInfinity), kCFNumberFloat32Type),
              (Got<Float32>{1, std::numeric_limits<float>::infinity()}));
}

TEST(CFNumber, NotANumber_StaysOneAsARealAndIsZeroOtherwise) {
    float value = 0;
    EXPECT_TRUE(CFNumberGetValue(Real(std::nan("")), kCFNumberFloat32Type, &value));
    EXPECT_TRUE(std::isnan(value));
    EXPECT_EQ(Get<SInt32>(Real(std::nan("")), kCFNumberIntType), (Got<SInt32>{0, 0}));
}

TEST(CFNumber, EqualValues_AreEqualWhateverTheirType) {
    const SInt8 small = 5;
    const Owned<CFNumberRef> byte = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt8Type, &small);
    EXPECT_TRUE(CFEqual(byte, Whole(5)));
    EXPECT_TRUE(CFEqual(byte, Real(5.0)));
    EXPECT_TRUE(CFEqual(Real(5.0), byte));
    EXPECT_EQ(CFHash(byte), CFHash(Whole(5)));
    EXPECT_EQ(CFHash(byte), CFHash(Real(5.0)));
    EXPECT_TRUE(CFEqual(Real(0.25), Real(0.25)));
    EXPECT_EQ(CFHash(Real(0.25)), CFHash(Real(0.25)));
    EXPECT_TRUE(CFEqual(Real(std::nan("")), Real(std::nan(""))));
}

TEST(CFNumber, DifferentValues_AreNotEqual) {
    EXPECT_FALSE(CFEqual(Whole(5), Whole(6)));
    EXPECT_FALSE(CFEqual(Whole(5), Real(5.5)));
    // As doubles these two would be the same.
    EXPECT_FALSE(CFEqual(Whole((1LL << 53) + 1), Real(0x1p53)));
    EXPECT_FALSE(CFEqual(Whole(kHighest), Real(0x1p63)));
    EXPECT_FALSE(CFEqual(Real(0.0), Real(-0.0)));
    EXPECT_FALSE(CFEqual(Whole(0), Real(-0.0)));
    EXPECT_FALSE(CFEqual(Real(std::nan("")), Real(1.0)));
    EXPECT_FALSE(CFEqual(Real(std::nan("")), Whole(0)));
}

TEST(CFBoolean, GetValue_TellsTrueFromFalse) {
    EXPECT_EQ(CFBooleanGetValue(kCFBooleanTrue), 1);
    EXPECT_EQ(CFBooleanGetValue(kCFBooleanFalse), 0);
}

TEST(CFNumberDeathTest, AnUnknownType_Stops) {
    SInt64 value = 0;
    EXPECT_DEATH(CFNumberCreate(kCFAllocatorDefault, static_cast<CFNumberType>(17), &value),
                 "CFNumberCreate: there is no number type 17");
    EXPECT_DEATH(CFNumberGetValue(Whole(1), static_cast<CFNumberType>(0), &value),
                 "CFNumberGetValue: there is no number type 0");
}

TEST(CFNumberDeathTest, NullAndWrongReferences_Stop) {
    int value = 0;
    EXPECT_DEATH(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, nullptr),
                 "CFNumberCreate: the value pointer is null");
    EXPECT_DEATH(CFNumberGetValue(Whole(1), kCFNumberIntType, nullptr),
                 "CFNumberGetValue: the value pointer is null");
    EXPECT_DEATH(CFNumberGetValue(nullptr, kCFNumberIntType, &value),
                 "CFNumberGetValue: expected a CFNumber, got a null reference");
    EXPECT_DEATH(
        CFNumberGetValue(reinterpret_cast<CFNumberRef>(kCFBooleanTrue), kCFNumberIntType, &value),
        "CFNumberGetValue: expected a CFNumber, got a CFBoolean");
    EXPECT_DEATH(CFBooleanGetValue(reinterpret_cast<CFBooleanRef>(CFSTR("true"))),
                 "CFBooleanGetValue: expected a CFBoolean, got a CFString");
}

// Those of a property list may have all 64 bits without a sign.
TEST(CFNumber, AboveWhatHasRoomBesideASign_IsLargeAndPositive) {
    const UInt64 most = ~UInt64{0};
    const Owned<CFNumberRef> number = new __CFNumber(most);
    long long whole = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberLongLongType, &whole));
    EXPECT_EQ(whole, std::numeric_limits<long long>::max());
    int small = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberIntType, &small));
    EXPECT_EQ(small, std::numeric_limits<int>::max());
    double real = 0;
    EXPECT_FALSE(CFNumberGetValue(number, kCFNumberDoubleType, &real));
    EXPECT_EQ(real, 0x1p64);
}

TEST(CFNumber, Large_EqualsNothingButItsOwnValue) {
    const Owned<CFNumberRef> large = new __CFNumber(UInt64{1} << 63);
    const Owned<CFNumberRef> same = new __CFNumber(UInt64{1} << 63);
    const double value = 0x1p63;
    const Owned<CFNumberRef> real = CFNumberCreate(nullptr, kCFNumberDoubleType, &value);
    const long long least = std::numeric_limits<long long>::min();
    const Owned<CFNumberRef> sameBits = CFNumberCreate(nullptr, kCFNumberLongLongType, &least);
    EXPECT_TRUE(CFEqual(large, same));
    EXPECT_EQ(CFHash(large), CFHash(same));
    EXPECT_TRUE(CFEqual(large, real));
    EXPECT_TRUE(CFEqual(real, large));
    EXPECT_EQ(CFHash(large), CFHash(real));
    EXPECT_FALSE(CFEqual(large, sameBits));
    EXPECT_FALSE(CFEqual(sameBits, large));
    double back = 0;
    EXPECT_TRUE(CFNumberGetValue(large, kCFNumberDoubleType, &back));
    EXPECT_EQ(back, value);
    // One that has room is as any other.
    const Owned<CFNumberRef> seven = new __CFNumber(UInt64{7});
    EXPECT_TRUE(CFEqual(seven, MakeNumber(7)));
}

}  // namespace
