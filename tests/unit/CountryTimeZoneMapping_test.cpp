#include "system/CountryTimeZoneMapping.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string CodeOf(const std::string& zone) {
    return CountryTimeZoneMapping::GetCountryCode(zone.c_str());
}

struct Zone {
    const char* name;
    const char* code;
};

// Several of every region, its first and its last one among them: names that the search finds at
// all ends.
constexpr Zone kZones[] = {
    {"Africa/Abidjan", "CI"},
    {"Africa/Cairo", "EG"},
    {"Africa/Johannesburg", "ZA"},
    {"Africa/Windhoek", "NA"},
    {"America/Adak", "US"},
    {"America/Argentina/Buenos_Aires", "AR"},
    {"America/Indiana/Indianapolis", "US"},
    {"America/New_York", "US"},
    {"America/North_Dakota/New_Salem", "US"},
    {"America/Sao_Paulo", "BR"},
    {"America/Toronto", "CA"},
    {"America/Yellowknife", "CA"},
    {"Antarctica/Casey", "AQ"},
    {"Antarctica/McMurdo", "AQ"},
    {"Antarctica/South_Pole", "AQ"},
    {"Antarctica/Vostok", "AQ"},
    {"Arctic/Longyearbyen", "SJ"},
    {"Asia/Aden", "YE"},
    {"Asia/Hong_Kong", "HK"},
    {"Asia/Kolkata", "IN"},
    {"Asia/Tokyo", "JP"},
    {"Asia/Yerevan", "AM"},
    {"Atlantic/Azores", "PT"},
    {"Atlantic/Stanley", "FK"},
    {"Australia/Adelaide", "AU"},
    {"Australia/Yancowinna", "AU"},
    {"Brazil/East", "BR"},
    {"Canada/Atlantic", "CA"},
    {"Canada/Yukon", "CA"},
    {"Chile/Continental", "CL"},
    {"Chile/EasterIsland", "CL"},
    {"Europe/Amsterdam", "NL"},
    {"Europe/London", "GB"},
    {"Europe/Zurich", "CH"},
    {"Indian/Antananarivo", "MG"},
    {"Indian/Reunion", "RE"},
    {"Japan", "JP"},
    {"Mexico/BajaNorte", "MX"},
    {"Mexico/General", "MX"},
    {"Mideast/Riyadh87", "SA"},
    {"Mideast/Riyadh88", "SA"},
    {"Pacific/Apia", "WS"},
    {"Pacific/Auckland", "NZ"},
    {"US/Alaska", "US"},
    {"US/Aleutian", "US"},
    {"US/Arizona", "US"},
    {"US/Central", "US"},
    {"US/East-Indiana", "US"},
    {"US/Eastern", "US"},
    {"US/Hawaii", "US"},
    {"US/Indiana-Starke", "US"},
    {"US/Michigan", "US"},
    {"US/Mountain", "US"},
    {"US/Pacific", "US"},
    {"US/Samoa", "US"},
};

TEST(CountryCode, OfAZone_IsThatOfItsCountry) {
    for (const Zone& zone : kZones) {
        EXPECT_EQ(zone.code, CodeOf(zone.name)) << zone.name;
    }
}

TEST(CountryCode, OfTheFirstAndTheLastEntry_IsFound) {
    EXPECT_EQ("CI", CodeOf("Africa/Abidjan"));
    EXPECT_EQ("US", CodeOf("US/Samoa"));
}

TEST(CountryCode, OfNoCountrysZone_IsXX) {
    for (const char* const zone : {"UTC", "GMT", "Etc/GMT+1", "Etc/UTC", "EST5EDT", "GB", "Zulu"}) {
        EXPECT_EQ("XX", CodeOf(zone)) << zone;
    }
}

TEST(CountryCode, OfTheEmptyName_IsXX) {
    EXPECT_EQ("XX", CodeOf(""));
}

TEST(CountryCode, NeedsTheExactName) {
    EXPECT_EQ("XX", CodeOf("europe/london"));
    for (const Zone& zone : kZones) {
        const std::string name = zone.name;
        EXPECT_EQ("XX", CodeOf(name + " ")) << name;
        EXPECT_EQ("XX", CodeOf(" " + name)) << name;
        EXPECT_EQ("XX", CodeOf(name + "/")) << name;
        EXPECT_EQ("XX", CodeOf(name.substr(0, name.size() - 1))) << name;
    }
}

TEST(CountryCode, OfNamesBesideAllEntries_IsXX) {
    for (const char* const zone : {"A", "Africa", "Africa/Abidja", "Africa/Abidjan0", "M", "US",
                                   "US/Samoa0", "US/Samob", "~", "\xFF", "Zzz"}) {
        EXPECT_EQ("XX", CodeOf(zone)) << zone;
    }
}

TEST(CountryCode, IsTheSameOnEveryThread) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (const Zone& zone : kZones) {
                ASSERT_EQ(
                    0, std::strcmp(zone.code, CountryTimeZoneMapping::GetCountryCode(zone.name)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
