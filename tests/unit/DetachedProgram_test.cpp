// Programs that are started to live on their own.

#include "Support/DetachedProgram.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Support/JournalStream.h"
#include "Support/UniqueDescriptor.h"
#include "unit/ApplicationTesting.h"
#include "unit/FilesTesting.h"
#include "unit/support/Waiting.h"

namespace {

using applicationtest::ReadWhole;
using applicationtest::WriteProgram;
using filestest::TemporaryFolder;
using filestest::WriteFile;
using frameworks::DetachedProgram;
using frameworks::StartDetached;
using frameworks::UniqueDescriptor;

// What a shell finds out when it runs SCRIPT on its own.
std::string Told(const std::string& script, DetachedProgram program = {}) {
    const TemporaryFolder folder;
    const std::string told = folder / "told";
    program.words = {
        "/bin/sh", "-c",
        "{ " + script + "\n} > '" + told + ".new' 2>&1; mv '" + told + ".new' '" + told + "'"};
    if (program.environment.empty()) {
        program.environment = {"PATH=/usr/bin:/bin"};
    }
    EXPECT_EQ(StartDetached(program), 0);
    EXPECT_TRUE(WaitUntil([&] { return access(told.c_str(), F_OK) == 0; }));
    return ReadWhole(told);
}

// What a program writes to its standard output.
std::string Printed(std::vector<std::string> words) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueDescriptor ours(ends[0]);
    UniqueDescriptor theirs(ends[1]);
    DetachedProgram program;
    program.words = std::move(words);
    program.output = theirs.Get();
    EXPECT_EQ(StartDetached(program), 0);
    theirs.Close();
    std::string all;
    char piece[256];
    for (ssize_t length = 0; (length = read(ours.Get(), piece, sizeof piece)) > 0;) {
        all.append(piece, static_cast<std::size_t>(length));
    }
    return all;
}

TEST(DetachedProgram, RunsInTheRootFolderInASessionOfItsOwn) {
    EXPECT_EQ(Told("pwd"), "/\n");
    // The session is that of the process in between, which has ended.
    const std::string session = Told("cut -d' ' -f6 /proc/$$/stat");
    EXPECT_GT(std::stoi(session), 0);
    EXPECT_NE(std::stoi(session), getsid(0));
    EXPECT_NE(std::stoi(session), getpid());
}

TEST(DetachedProgram, IsNobodysChildHere) {
    const int parent = std::stoi(Told("cut -d' ' -f4 /proc/$$/stat"));
    EXPECT_NE(parent, getpid());
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(DetachedProgram, HasTheEnvironmentItIsGiven) {
    DetachedProgram program;
    program.environment = {"PATH=/usr/bin:/bin", "ONE=a b", "TWO="};
    EXPECT_EQ(Told("echo \"$ONE|$TWO|${HOME-none}\"", program), "a b||none\n");
}

TEST(DetachedProgram, HasTheStandardDescriptorsAndNoOther) {
    const UniqueDescriptor inherited(open("/dev/null", O_RDONLY));
    // The fourth is the listed folder's.
    EXPECT_EQ(Printed({"/bin/ls", "/proc/self/fd"}), "0\n1\n2\n3\n");
}

TEST(DetachedProgram, ReadsNothing) {
    EXPECT_EQ(Told("cat | wc -c"), "0\n");
}

TEST(DetachedProgram, AnswersSignalsAsUsual) {
    filestest::InAChild([] {
        signal(SIGPIPE, SIG_IGN);
        signal(SIGTERM, SIG_IGN);
        sigset_t some;
        sigemptyset(&some);
        sigaddset(&some, SIGUSR1);
        sigprocmask(SIG_BLOCK, &some, nullptr);
        EXPECT_EQ(Told("grep -E '^Sig(Blk|Ign)' /proc/self/status"),
                  "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
        // Here nothing has changed.
        sigset_t now;
        sigprocmask(SIG_BLOCK, nullptr, &now);
        EXPECT_EQ(sigismember(&now, SIGUSR1), 1);
        EXPECT_EQ(sigismember(&now, SIGUSR2), 0);
    });
}

TEST(DetachedProgram, WritesWhereItIsTold) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueDescriptor ours(ends[0]);
    UniqueDescriptor theirs(ends[1]);
    DetachedProgram program;
    program.words = {"/bin/sh", "-c", "echo out; echo err >&2"};
    program.errors = theirs.Get();
    ASSERT_EQ(StartDetached(program), 0);
    theirs.Close();
    char text[64] = {};
    EXPECT_EQ(read(ours.Get(), text, sizeof text), 4);
    EXPECT_STREQ(text, "err\n");
    EXPECT_EQ(read(ours.Get(), text, sizeof text), 0);
}

TEST(DetachedProgram, ThatCannotBeStarted_SaysWhy) {
    const TemporaryFolder folder;
    WriteFile(folder / "text", "no program");
    WriteProgram(folder / "formless", "no program");
    WriteProgram(folder / "no interpreter", "#!/nowhere/at/all\n");
    DetachedProgram program;
    program.words = {folder / "none"};
    EXPECT_EQ(StartDetached(program), ENOENT);
    program.words = {folder / "text"};
    EXPECT_EQ(StartDetached(program), EACCES);
    program.words = {folder / "formless"};
    EXPECT_EQ(StartDetached(program), ENOEXEC);
    program.words = {folder / "no interpreter"};
    EXPECT_EQ(StartDetached(program), ENOENT);
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(DetachedProgram, AHundred_LeaveNoDescriptorsBehind) {
    const int before = dup(0);
    close(before);
    DetachedProgram program;
    program.words = {"/bin/true"};
    for (int round = 0; round < 100; ++round) {
        ASSERT_EQ(StartDetached(program), 0);
    }
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

// A journal that reads one stream.
class Journal {
  public:
    explicit Journal(std::string itsPath)
        : path(std::move(itsPath)), listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(listening.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(listening.Get(), 1), 0);
    }

    std::string ReadAll() const {
        const UniqueDescriptor stream(accept4(listening.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        std::string all;
        char piece[256];
        for (ssize_t length = 0; (length = read(stream.Get(), piece, sizeof piece)) > 0;) {
            all.append(piece, static_cast<std::size_t>(length));
        }
        return all;
    }

  private:
    const std::string path;
    const UniqueDescriptor listening;
};

TEST(JournalStream, TellsTheJournalWhoWrites) {
    const TemporaryFolder folder;
    const Journal journal(folder / "socket");
    {
        const UniqueDescriptor stream =
            frameworks::OpenJournalStream("My\nProgram", (folder / "socket").c_str());
        ASSERT_TRUE(stream.IsOpen());
        EXPECT_EQ(fcntl(stream.Get(), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_NE(fcntl(stream.Get(), F_GETFD) & FD_CLOEXEC, 0);
        ASSERT_EQ(write(stream.Get(), "hello\n", 6), 6);
    }
    EXPECT_EQ(journal.ReadAll(), "My Program\n\n6\n1\n0\n0\n0\nhello\n");
}

TEST(JournalStream, WithoutAJournal_IsNotOpen) {
    const TemporaryFolder folder;
    EXPECT_FALSE(frameworks::OpenJournalStream("x", (folder / "none").c_str()).IsOpen());
    EXPECT_FALSE(
        frameworks::OpenJournalStream("x", (folder / std::string(200, 'x')).c_str()).IsOpen());
}

}  // namespace
