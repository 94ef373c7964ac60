// The country, from wherever this system keeps its time zone, as it is at the moment of the
// question.
#include <gmock/gmock.h>

#include "support/Files.h"
#include "support/Service.h"

namespace {

using testing::StartsWith;

constexpr char kQuestion[] = "getLocalCountryCode";

std::string Answer(const std::string& country) {
    return "Success LocalCountryCode=" + country;
}

void SetLocalTimeLink(const Sandbox& sandbox, const std::string& zone) {
    const std::filesystem::path link = sandbox.Outside("/etc/localtime");
    std::filesystem::remove(link);
    std::filesystem::create_symlink("/usr/share/zoneinfo/" + zone, link);
}

TEST(CountryCode, OfTZ_IsFoundByItsExactName) {
    const std::pair<const char*, const char*> zones[] = {
        {"Europe/London", "GB"}, {"America/New_York", "US"},
        {"Japan", "JP"},         {"Africa/Abidjan", "CI"},
        {"US/Samoa", "US"},      {"Europe/Zurich", "CH"},
        {"UTC", "XX"},           {"GMT", "XX"},
        {"Etc/GMT+1", "XX"},     {"europe/london", "XX"}};
    for (const auto& [zone, country] : zones) {
        Sandbox sandbox;
        Start start;
        start.environment["TZ"] = zone;
        Service service(sandbox, start);
        service.WaitUntilListening();
        EXPECT_EQ(service.Authorized().Ask(kQuestion), Answer(country)) << zone;
    }
}

TEST(CountryCode, OfAColonAndAName_IsThatOfTheName) {
    Sandbox sandbox;
    Start start;
    start.environment["TZ"] = ":Europe/Zurich";
    Service service(sandbox, start);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask(kQuestion), Answer("CH"));
}

TEST(CountryCode, TheZoneAndTheCountry_AreLogged) {
    Sandbox sandbox;
    Start start;
    start.environment["TZ"] = "Europe/Zurich";
    Service service(sandbox, start);
    service.WaitUntilListening();
    service.Authorized().Ask(kQuestion);
    service.WaitForOutput("Time zone: Europe/Zurich\nCountry code: CH\n");
}

TEST(CountryCode, TheSystemsLink_IsFollowedWhileTheServiceRuns) {
    Sandbox sandbox;
    SetLocalTimeLink(sandbox, "Europe/Zurich");
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    EXPECT_EQ(client.Ask(kQuestion), Answer("CH"));
    SetLocalTimeLink(sandbox, "Asia/Tokyo");
    EXPECT_EQ(client.Ask(kQuestion), Answer("JP"));
    SetLocalTimeLink(sandbox, "America/Argentina/Buenos_Aires");
    EXPECT_EQ(client.Ask(kQuestion), Answer("AR"));
    SetLocalTimeLink(sandbox, "Etc/UTC");
    EXPECT_EQ(client.Ask(kQuestion), Answer("XX"));
}

TEST(CountryCode, ARelativeLink_CountsAsWell) {
    Sandbox sandbox;
    std::filesystem::create_symlink("../usr/share/zoneinfo/Europe/Oslo",
                                    sandbox.Outside("/etc/localtime"));
    Service service(sandbox);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask(kQuestion), Answer("NO"));
}

TEST(CountryCode, WithoutALink_TheTimeZoneFileTellsAndIsReadAnew) {
    Sandbox sandbox;
    WriteFile(sandbox.Outside("/etc/timezone"), "Europe/London\n");
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    EXPECT_EQ(client.Ask(kQuestion), Answer("GB"));
    WriteFile(sandbox.Outside("/etc/timezone"), "Pacific/Auckland\n");
    EXPECT_EQ(client.Ask(kQuestion), Answer("NZ"));
}

TEST(CountryCode, TZ_GoesBeforeTheLinkAndTheLinkBeforeTheFile) {
    Sandbox sandbox;
    SetLocalTimeLink(sandbox, "Europe/Zurich");
    WriteFile(sandbox.Outside("/etc/timezone"), "Asia/Tokyo\n");
    {
        Service service(sandbox);
        service.WaitUntilListening();
        EXPECT_EQ(service.Authorized().Ask(kQuestion), Answer("CH"));
    }
    Start start;
    start.environment["TZ"] = "Africa/Cairo";
    Service service(sandbox, start);
    service.WaitUntilListening();
    EXPECT_EQ(service.Authorized().Ask(kQuestion), Answer("EG"));
}

TEST(CountryCode, WithNoZoneAnywhere_IsUnknown) {
    Sandbox sandbox;
    Service service(sandbox);
    service.WaitUntilListening();
    Client client = service.Authorized();
    EXPECT_EQ(client.Ask(kQuestion), Answer("XX"));
    EXPECT_THAT(client.Ask(std::string(kQuestion) + " x"),
                StartsWith("SyntaxError Wrong number of arguments, expected: 0 - "));
}

}  // namespace
