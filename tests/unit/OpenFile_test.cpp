#include "core/OpenFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "unit/support/ForkedTest.h"

namespace {

unsigned ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, stat(path.c_str(), &status)) << path;
    return status.st_mode & 07777u;
}

TEST(OpenFile, AFileThatItMakes_HasItsRightsAndIsNotInherited) {
    InChild([] {
        umask(0);
        const std::string path = Home() + "/file";
        const FileOwner file = OpenFile(path, O_WRONLY | O_CREAT | O_EXCL, "w", 0600);
        ASSERT_TRUE(file);
        EXPECT_EQ(0600u, ModeOf(path));
        EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(file.get()), F_GETFD));
        EXPECT_FALSE(OpenFile(path, O_WRONLY | O_CREAT | O_EXCL, "w", 0600));
        EXPECT_EQ(EEXIST, errno);
    });
}

TEST(OpenFile, AFileThatIsThere_IsReadOrWritten) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "a");
        std::fputs("b", OpenFile(path, O_WRONLY | O_APPEND, "a").get());
        EXPECT_EQ('a', std::fgetc(OpenFile(path, O_RDONLY, "r").get()));
        EXPECT_EQ("ab", ReadFile(path));
    });
}

TEST(OpenFile, WhatIsNoFile_IsRefusedWithoutWaiting) {
    InChild([] {
        const std::string fifo = Home() + "/fifo";
        ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
        EXPECT_FALSE(OpenFile(fifo, O_RDONLY, "r"));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_FALSE(OpenFile(fifo, O_WRONLY, "w"));
        EXPECT_EQ(ENXIO, errno);
        const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        EXPECT_FALSE(OpenFile(fifo, O_WRONLY, "w"));
        EXPECT_EQ(EINVAL, errno);
        close(reader);
        EXPECT_FALSE(OpenFile("/dev/null", O_WRONLY, "w"));
        EXPECT_EQ(EINVAL, errno);
        EXPECT_FALSE(OpenFile(Home(), O_RDONLY, "r"));
        EXPECT_FALSE(OpenFile(Home() + "/nothing", O_RDONLY, "r"));
        EXPECT_EQ(ENOENT, errno);
    });
}

}  // namespace
