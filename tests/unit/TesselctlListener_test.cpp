#include "tesselctl/Listener.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "unit/TesselctlTesting.h"

namespace {

using tesselctl::FindListener;
using tesselctl::Listener;
using namespace tesselctltest;

TEST(TesselctlListener, AListenerOfOurOwn_IsFoundWithItsProcess) {
    const ScriptedService service([](Client&, int) {});
    const Listener listener = FindListener(service.Port());
    EXPECT_TRUE(listener.known);
    EXPECT_TRUE(listener.present);
    ASSERT_TRUE(listener.process);
    EXPECT_EQ(getpid(), *listener.process);
    std::string name = ReadFile("/proc/self/comm");
    name.pop_back();
    EXPECT_EQ(name, listener.name);
}

TEST(TesselctlListener, APortWithoutAListener_HasNone) {
    const Listener listener = FindListener(DeadPort());
    EXPECT_TRUE(listener.known);
    EXPECT_FALSE(listener.present);
    EXPECT_FALSE(listener.process);
}

// A table with a connected socket, a listener on another address and one on ours, all on port 3500
// (0DAC).
constexpr const char* kTable =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
    "inode\n"
    "   0: 0100007F:0DAC 0100007F:1000 01 00000000:00000000 00:00000000 00000000  1000        0 "
    "111 1\n"
    "   1: 0200007F:0DAC 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 "
    "222 1\n"
    "   2: 0100007F:0DAC 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1000        0 "
    "333 1\n";

class TesselctlListenerTable : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(folder.Path() + "/net");
        WriteFile(folder.Path() + "/net/tcp", kTable);
    }
    void AddProcess(const std::string& id, const std::string& name, const std::string& socket) {
        std::filesystem::create_directories(folder.Path() + '/' + id + "/fd");
        WriteFile(folder.Path() + '/' + id + "/comm", name + '\n');
        std::filesystem::create_symlink(socket, folder.Path() + '/' + id + "/fd/7");
    }
    TemporaryHome folder;
};

TEST_F(TesselctlListenerTable, TheSocketThatListensOnLoopback_DecidesTheProcess) {
    AddProcess("100", "connected", "socket:[111]");
    AddProcess("200", "elsewhere", "socket:[222]");
    AddProcess("300", "TesselCore", "socket:[333]");
    const Listener listener = FindListener(3500, folder.Path());
    ASSERT_TRUE(listener.process);
    EXPECT_EQ(300, *listener.process);
    EXPECT_EQ("TesselCore", listener.name);
}

TEST_F(TesselctlListenerTable, AProcessThatIsNotOursToSee_LeavesAListenerWithoutProcess) {
    AddProcess("100", "connected", "socket:[111]");
    const Listener listener = FindListener(3500, folder.Path());
    EXPECT_TRUE(listener.present);
    EXPECT_FALSE(listener.process);
}

TEST(TesselctlListener, WithoutATable_NothingIsKnown) {
    const TemporaryHome empty;
    EXPECT_FALSE(FindListener(3500, empty.Path()).known);
}

}  // namespace
