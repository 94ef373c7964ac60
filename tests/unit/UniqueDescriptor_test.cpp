#include "Support/UniqueDescriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include "Support/DescriptorIdentity.h"

namespace {

using frameworks::IdentityOf;
using frameworks::UniqueDescriptor;

int OpenNull() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool IsOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

TEST(UniqueDescriptor, AtItsEnd_ClosesAndLeavesErrno) {
    const int number = OpenNull();
    {
        const UniqueDescriptor owner(number);
        EXPECT_TRUE(owner.IsOpen());
        EXPECT_TRUE(IsOpen(number));
        errno = EDOM;
    }
    EXPECT_EQ(errno, EDOM);
    EXPECT_FALSE(IsOpen(number));
}

TEST(UniqueDescriptor, Moved_ClosesOnceAndWithTheNewOwner) {
    const int number = OpenNull();
    UniqueDescriptor first(number);
    {
        UniqueDescriptor second(std::move(first));
        EXPECT_FALSE(first.IsOpen());
        EXPECT_EQ(second.Get(), number);
    }
    EXPECT_FALSE(IsOpen(number));
}

TEST(UniqueDescriptor, Leaked_StaysOpen) {
    UniqueDescriptor owner(OpenNull());
    const int number = owner.Leak();
    owner.Close();
    EXPECT_TRUE(IsOpen(number));
    close(number);
}

TEST(UniqueDescriptor, OfACallThatFailed_IsNotOpen) {
    const UniqueDescriptor none(open("/nonexistent", O_RDONLY | O_CLOEXEC));
    EXPECT_FALSE(none.IsOpen());
}

TEST(DescriptorIdentity, OfCopies_IsTheSameAndOfOthersAnother) {
    int pair[2];
    ASSERT_EQ(pipe2(pair, O_CLOEXEC), 0);
    int another[2];
    ASSERT_EQ(pipe2(another, O_CLOEXEC), 0);
    const UniqueDescriptor owners[] = {UniqueDescriptor(pair[0]), UniqueDescriptor(pair[1]),
                                       UniqueDescriptor(another[0]), UniqueDescriptor(another[1]),
                                       UniqueDescriptor(dup(pair[0]))};
    EXPECT_TRUE(IdentityOf(pair[0]) == IdentityOf(owners[4].Get()));
    EXPECT_FALSE(IdentityOf(pair[0]) == IdentityOf(another[0]));
    EXPECT_FALSE(IdentityOf(-1));
    // -100 would mean the current folder to the system call behind it.
    EXPECT_FALSE(IdentityOf(-100));
}

}  // namespace
