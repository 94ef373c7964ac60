#include "Support/ErrnoStatus.h"

#include <CarbonCore/MacErrors.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace {

using frameworks::StatusOfErrno;

TEST(ErrnoStatus, OfAnErrorThatTheMacHasACodeFor_IsThatCode) {
    EXPECT_EQ(StatusOfErrno(0), noErr);
    EXPECT_EQ(StatusOfErrno(ENOENT), fnfErr);
    EXPECT_EQ(StatusOfErrno(ENOTDIR), errFSNotAFolder);
    EXPECT_EQ(StatusOfErrno(EEXIST), dupFNErr);
    EXPECT_EQ(StatusOfErrno(ENOTEMPTY), fBsyErr);
    EXPECT_EQ(StatusOfErrno(EACCES), afpAccessDenied);
    EXPECT_EQ(StatusOfErrno(EPERM), permErr);
    EXPECT_EQ(StatusOfErrno(ENOSPC), dskFulErr);
    EXPECT_EQ(StatusOfErrno(EMFILE), tmfoErr);
    EXPECT_EQ(StatusOfErrno(ENOMEM), memFullErr);
    EXPECT_EQ(StatusOfErrno(ENAMETOOLONG), errFSNameTooLong);
    EXPECT_EQ(StatusOfErrno(ESRCH), procNotFound);
}

TEST(ErrnoStatus, OfAnyOtherError_IsItsNumberFarAboveZero) {
    EXPECT_EQ(StatusOfErrno(ELOOP), 100000 + ELOOP);
    EXPECT_EQ(StatusOfErrno(EXDEV), 100000 + EXDEV);
}

}  // namespace
