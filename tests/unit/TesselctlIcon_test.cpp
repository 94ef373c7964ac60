// "tesselctl icon": the service's export at its fixed place becomes a file of the user's own.

#include "tesselctl/Icon.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tesselctl/Options.h"
#include "unit/TesselctlTesting.h"

namespace {

using namespace tesselctl;
using namespace tesselctltest;
using namespace std::string_literals;
using Words = std::vector<std::string>;

const std::string kPicture = "\x89PNG\r\n\x1A\n\0picture"s;

class TesselctlIcon : public testing::Test {
  protected:
    TesselctlIcon() { std::filesystem::create_directories(request.bundle); }

    // Runs it in the test itself, because the service's place is a fixed one. What it says goes to
    // the test's own output, and is caught there.
    Outcome Save() {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = SaveIcon(home.Path(), Limits(), request, exported);
        return {status, testing::internal::GetCapturedStdout(),
                testing::internal::GetCapturedStderr()};
    }

    void ServeOn(const ScriptedService& service) {
        home.WriteKeyFile(service.Port(), DeadPort(), DeadPort());
    }

    // Saves the picture when it is asked for the icon of the bundle.
    ScriptedService::Script Exporting() {
        return Authorizing([this](const std::string& command) {
            if (command != "getIcon \"" + request.bundle + '"') return "IconMissing|";
            WriteFile(exported, kPicture);
            return "IconReady|";
        });
    }

    TemporaryHome home;
    IconRequest request{home.Path() + "/My Clock.app", home.Path() + "/icon of clock.png"};
    const std::string exported = home.Path() + "/icon.png";
};

TEST_F(TesselctlIcon, AnIcon_IsPutWhereTheUserWantsIt) {
    ScriptedService service(Exporting());
    ServeOn(service);
    const Outcome outcome = Save();
    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(request.file + "\n", outcome.output);
    EXPECT_EQ("", outcome.errors);
    EXPECT_EQ(kPicture, ReadFile(request.file));
    EXPECT_EQ(kPicture, ReadFile(exported));
}

TEST_F(TesselctlIcon, AnApplicationWithoutOne_IsToldSo) {
    ScriptedService service(Authorizing([](const std::string&) { return "IconMissing|"; }));
    ServeOn(service);
    WriteFile(exported, kPicture);
    const Outcome outcome = Save();
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("tesselctl: " + request.bundle + " has no icon that the service can save\n",
              outcome.errors);
    EXPECT_FALSE(std::filesystem::exists(request.file));
}

TEST_F(TesselctlIcon, WhatLiesAtTheServicesPlace_IsNotBelieved) {
    ScriptedService service(Authorizing([](const std::string&) { return "IconReady|"; }));
    ServeOn(service);
    const std::string beginning =
        "tesselctl: cannot read the icon that the service has saved as " + exported + ": ";
    const auto check = [&](const std::string& why) {
        const Outcome outcome = Save();
        EXPECT_EQ(1, outcome.status);
        EXPECT_EQ(beginning + why + "\n", outcome.errors);
        EXPECT_FALSE(std::filesystem::exists(request.file));
        std::filesystem::remove(exported);
    };
    check("No such file or directory");
    WriteFile(exported, "#!/bin/sh\n");
    check("it is not a PNG file");
    WriteFile(exported, kPicture + std::string(1 << 20, 'x'));
    check("it is too large for an icon");
    ASSERT_EQ(0, mkfifo(exported.c_str(), 0600));
    check("it is not a regular file");
    WriteFile(home.Path() + "/other", kPicture);
    ASSERT_EQ(0, symlink((home.Path() + "/other").c_str(), exported.c_str()));
    check("Too many levels of symbolic links");
}

TEST_F(TesselctlIcon, AFileThatCannotBeWritten_IsToldBeforeTheServiceIsAsked) {
    request.file = home.Path() + "/none/icon.png";
    const Outcome outcome = Save();
    EXPECT_EQ(74, outcome.status);
    EXPECT_EQ("tesselctl: cannot write " + request.file + ": No such file or directory\n",
              outcome.errors);
}

TEST_F(TesselctlIcon, WithoutAService_ItSaysWhy) {
    const Outcome outcome = Save();
    EXPECT_EQ(3, outcome.status);
    EXPECT_EQ("tesselctl: there is no key file ", outcome.errors.substr(0, 32));
}

// What the arguments come to, in this folder.
IconRequest RequestOf(const Words& words) {
    Words all = {"icon"};
    all.insert(all.end(), words.begin(), words.end());
    const ParsedOptions parsed = ParseOptions(all);
    EXPECT_EQ("", parsed.error);
    return parsed.options.icon;
}

std::string ErrorOf(const Words& words) {
    Words all = {"icon"};
    all.insert(all.end(), words.begin(), words.end());
    return ParseOptions(all).error;
}

TEST_F(TesselctlIcon, WithoutAFile_ItHasTheNameOfTheApplication) {
    EXPECT_EQ("My Clock.png", RequestOf({request.bundle}).file);
    EXPECT_EQ(request.bundle, RequestOf({request.bundle + '/'}).bundle);
    EXPECT_EQ("My Clock.png", RequestOf({request.bundle + '/'}).file);
    EXPECT_EQ("x.png", RequestOf({request.bundle, "x.png"}).file);
    EXPECT_EQ(home.Path() + "/My Clock.png", RequestOf({request.bundle, home.Path()}).file);
    const std::string here = std::filesystem::current_path().string();
    EXPECT_EQ(here, RequestOf({"."}).bundle);
}

TEST_F(TesselctlIcon, AnApplicationOfTheUsersOwn_IsFoundByItsName) {
    const std::string bundle = home.Path() + "/Applications/Only Here.app";
    std::filesystem::create_directories(bundle);
    for (const char* const name : {"Only Here", "Only Here.app"}) {
        const ParsedOptions parsed = ParseOptions({"--home", home.Path(), "icon", name});
        EXPECT_EQ("", parsed.error);
        EXPECT_EQ(bundle, parsed.options.icon.bundle);
        EXPECT_EQ("Only Here.png", parsed.options.icon.file);
    }
    EXPECT_NE("", ErrorOf({"Only Here"})) << "it is in no other home";
}

TEST_F(TesselctlIcon, Mistakes_AreToldInOneLine) {
    const std::string help = " (see 'tesselctl --help')";
    EXPECT_EQ("'icon' needs an application" + help, ErrorOf({}));
    EXPECT_EQ("'icon' needs an application" + help, ErrorOf({""}));
    EXPECT_EQ("'icon' does not take --large" + help, ErrorOf({"--large"}));
    EXPECT_EQ("'icon' takes an application and a file" + help, ErrorOf({"a", "b", "c"}));
    EXPECT_EQ("'icon' needs a name for the file" + help, ErrorOf({request.bundle, ""}));
    EXPECT_EQ("there is no /none/^[.app", ErrorOf({"/none/\033.app"}));
    const std::string bar = home.Path() + "/a|b.app";
    WriteFile(bar, "");
    EXPECT_EQ(
        "the path of the application holds a vertical bar, which ends a command and cannot be sent",
        ErrorOf({bar}));
}

}  // namespace
