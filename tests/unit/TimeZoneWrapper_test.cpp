#include "system/TimeZoneWrapper.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "unit/support/ForkedTest.h"

namespace {

void SetZone(const char* zone) {
    ASSERT_EQ(0, setenv("TZ", zone, 1));
}

TEST(LocalTimeZoneName, IsTheSystemsNow) {
    InChild([] {
        SetZone("Europe/Zurich");
        EXPECT_STREQ("Europe/Zurich", GetLocalTimeZoneName());
        SetZone("Asia/Tokyo");
        EXPECT_STREQ("Asia/Tokyo", GetLocalTimeZoneName());
        SetZone("Europe/Zurich");
        EXPECT_STREQ("Europe/Zurich", GetLocalTimeZoneName());
    });
}

TEST(LocalTimeZoneName, OfALongName_IsWhole) {
    InChild([] {
        SetZone("America/Argentina/Buenos_Aires");
        EXPECT_STREQ("America/Argentina/Buenos_Aires", GetLocalTimeZoneName());
    });
}

TEST(LocalTimeZoneName, IsGoodUntilTheNextCall) {
    InChild([] {
        SetZone("Europe/Zurich");
        const char* const name = GetLocalTimeZoneName();
        SetZone("Asia/Tokyo");
        EXPECT_STREQ("Europe/Zurich", name);
    });
}

TEST(LocalTimeZoneName, OfASystemWithoutOne_IsATextAllTheSame) {
    InChild([] {
        unsetenv("TZ");
        EXPECT_NE(nullptr, GetLocalTimeZoneName());
        SetZone("no zone at all");
        EXPECT_NE(nullptr, GetLocalTimeZoneName());
    });
}

}  // namespace
