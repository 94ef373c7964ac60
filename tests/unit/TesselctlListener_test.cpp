#include "tesselctl/Listener.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

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

// An address as the kernel writes it: as the number that its bytes make on this machine.
std::string InTable(std::uint32_t address) {
    char text[9];
    std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(htonl(address)));
    return text;
}

// A table with a connected socket, a listener on another address and one on ours, all on port 3500
// (0DAC).
std::string Table() {
    const std::string ours = InTable(INADDR_LOOPBACK);
    const std::string other = InTable(INADDR_LOOPBACK + 1);
    const std::string times = " 00000000:00000000 00:00000000 00000000  1000        0 ";
    return "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  "
           "timeout inode\n"
           "   0: " +
           ours + ":0DAC " + ours + ":1000 01" + times +
           "111 1\n"
           "   1: " +
           other + ":0DAC 00000000:0000 0A" + times +
           "222 1\n"
           "   2: " +
           ours + ":0DAC 00000000:0000 0A" + times + "333 1\n";
}

class TesselctlListenerTable : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::create_directories(folder.Path() + "/net");
        WriteFile(folder.Path() + "/net/tcp", Table());
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
