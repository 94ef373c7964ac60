#include "core/OpenFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "unit/support/ForkedTest.h"

namespace {

TEST(OpenFile, AFileThatIsThere_IsReadOrWritten) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "a");
        std::fputs("b", OpenFile(path, O_WRONLY | O_APPEND, "a").get());
        EXPECT_EQ('a', std::fgetc(OpenFile(path, O_RDONLY, "r").get()));
        EXPECT_EQ("ab", ReadFile(path));
    });
}

TEST(OpenFile, WhatIsOpened_IsNotInherited) {
    InChild([] {
        const std::string path = Home() + "/file";
        WriteFile(path, "");
        const FileOwner file = OpenFile(path, O_RDONLY, "r");
        ASSERT_TRUE(file);
        EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(file.get()), F_GETFD));
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
