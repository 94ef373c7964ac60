// The names of result codes.

#include <CarbonCore/Debugging.h>
#include <CarbonCore/MacErrors.h>
#include <LaunchServices/LSInfo.h>
#include <Security/Authorization.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

#include "Support/ErrnoStatus.h"

namespace {

std::string NameOf(OSStatus status) {
    return GetMacOSStatusErrorString(status);
}

TEST(MacErrors, Name_IsThatOfTheConstant) {
    EXPECT_EQ(NameOf(0), "noErr");
    EXPECT_EQ(NameOf(-43), "fnfErr");
    EXPECT_EQ(NameOf(-47), "fBsyErr");
    EXPECT_EQ(NameOf(-50), "paramErr");
    EXPECT_EQ(NameOf(-600), "procNotFound");
    EXPECT_EQ(NameOf(-1417), "errFSNoMoreItems");
    EXPECT_EQ(NameOf(-5000), "afpAccessDenied");
    EXPECT_EQ(NameOf(-10660), "kLSAppInTrashErr");
    EXPECT_EQ(NameOf(-10810), "kLSUnknownErr");
    EXPECT_EQ(NameOf(-10814), "kLSApplicationNotFoundErr");
    EXPECT_EQ(NameOf(-10822), "kLSServerCommunicationErr");
    EXPECT_EQ(NameOf(-10827), "kLSNoExecutableErr");
    EXPECT_EQ(NameOf(-60005), "errAuthorizationDenied");
    EXPECT_EQ(NameOf(-60006), "errAuthorizationCanceled");
}

TEST(MacErrors, Name_OfWhatTheSystemAnswers_IsNeverEmpty) {
    for (int error = 0; error < 134; ++error) {
        // Two numbers that the system has left out.
        if (error == 41 || error == 58) continue;
        EXPECT_NE(NameOf(frameworks::StatusOfErrno(error)), "") << error;
    }
}

TEST(MacErrors, Name_OfAnErrorNumber_IsItsOwn) {
    EXPECT_EQ(NameOf(kPOSIXErrorBase + ELOOP), "kPOSIXErrorELOOP");
    EXPECT_EQ(NameOf(kPOSIXErrorBase + EXDEV), "kPOSIXErrorEXDEV");
}

TEST(MacErrors, Name_OfACodeThatNothingGives_IsEmpty) {
    for (const OSStatus status : {1, 9, 57, 255, -1, -2, -99999, static_cast<int>(kPOSIXErrorBase),
                                  kPOSIXErrorBase + 134, INT_MAX, INT_MIN}) {
        EXPECT_EQ(NameOf(status), "") << status;
    }
}

TEST(MacErrors, Name_IsTheSamePlaceEveryTime) {
    EXPECT_EQ(GetMacOSStatusErrorString(-43), GetMacOSStatusErrorString(-43));
    EXPECT_EQ(GetMacOSStatusErrorString(kPOSIXErrorBase + ELOOP),
              GetMacOSStatusErrorString(kPOSIXErrorBase + ELOOP));
}

}  // namespace
