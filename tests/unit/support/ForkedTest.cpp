#include "unit/support/ForkedTest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "unit/support/Kernel.h"
#include "unit/support/Waiting.h"

namespace {

constexpr int kAssertionFailed = 113;

// A file without a name, and what has been read of it.
class Capture {
  public:
    Capture() : file(std::tmpfile()) {}
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;
    ~Capture() { std::fclose(file); }

    int Descriptor() const { return fileno(file); }

    std::string ReadOn() {
        std::string text;
        char part[4096];
        for (;;) {
            const ssize_t length = pread(Descriptor(), part, sizeof part, done);
            if (length <= 0) {
                return text;
            }
            text.append(part, static_cast<std::size_t>(length));
            done += length;
        }
    }

  private:
    std::FILE* const file;
    off_t done = 0;
};

class TemporaryFolder {
  public:
    TemporaryFolder() : path((std::filesystem::temp_directory_path() / "unit.XXXXXX").string()) {
        if (mkdtemp(path.data()) == nullptr) {
            std::perror("mkdtemp");
            std::abort();
        }
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }

    std::string path;
};

// The child's own; empty in a test's process.
struct Here {
    Capture* output = nullptr;
    Capture* errors = nullptr;
    std::string home;
};

Here& TheHere() {
    static Here& here = *new Here();
    return here;
}

class CountFailures : public testing::EmptyTestEventListener {
  public:
    void OnTestPartResult(const testing::TestPartResult& result) override {
        if (result.failed()) {
            ++failures;
        }
    }
    int failures = 0;
};

[[noreturn]] void BeTheChild(const std::function<void()>& body, Capture& output, Capture& errors,
                             const std::string& home) {
    dup2(output.Descriptor(), STDOUT_FILENO);
    dup2(errors.Descriptor(), STDERR_FILENO);
    TheHere() = Here{&output, &errors, home};
    setenv("HOME", home.c_str(), 1);
    // Tests run side by side. Two servers that draw the same port in the same instant both get it,
    // and one of them then cannot listen: so each has a network to itself, or at least ports of its
    // own luck.
    srandom(static_cast<unsigned>(getpid()));
    if (geteuid() == 0) {
        EnterANetworkOfItsOwn();
    }
    auto& count = *new CountFailures();
    testing::UnitTest::GetInstance()->listeners().Append(&count);
    try {
        body();
    } catch (const std::exception& exception) {
        ADD_FAILURE() << "the child's body threw: " << exception.what();
    }
    std::exit(count.failures == 0 ? 0 : kAssertionFailed);
}

// False when it had to be killed.
bool WaitForEnd(pid_t child, int& status) {
    const auto ended = [&] {
        const pid_t result = waitpid(child, &status, WNOHANG);
        return result == child || (result == -1 && errno != EINTR);
    };
    if (WaitUntil(ended, kLongestTest)) {
        return true;
    }
    kill(child, SIGKILL);
    while (waitpid(child, &status, 0) == -1 && errno == EINTR) {
    }
    return false;
}

bool NamesASanitizer(const std::string& errors) {
    return errors.find("Sanitizer:") != std::string::npos ||
           errors.find("runtime error:") != std::string::npos;
}

std::string Told(const Outcome& outcome) {
    return "\n--- the child's output\n" + outcome.output + "--- its errors\n" + outcome.errors +
           "--- its status: " + std::to_string(outcome.status);
}

}  // namespace

Outcome RunForked(const std::function<void()>& body) {
    const TemporaryFolder home;
    Capture output;
    Capture errors;
    // Or the child would print once more what is still waiting.
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == -1) {
        ADD_FAILURE() << "no child: errno " << errno;
        return Outcome();
    }
    if (child == 0) {
        BeTheChild(body, output, errors, home.path);
    }
    int status = 0;
    const bool ended = WaitForEnd(child, status);
    Outcome outcome;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    outcome.output = output.ReadOn();
    outcome.errors = errors.ReadOn();
    if (!ended) {
        ADD_FAILURE() << "the child did not end in time" << Told(outcome);
    } else if (outcome.status == kAssertionFailed || NamesASanitizer(outcome.errors)) {
        ADD_FAILURE() << "in the child:" << Told(outcome);
    }
    return outcome;
}

void InChild(const std::function<void()>& body) {
    const Outcome outcome = RunForked(body);
    // Failed assertions have been told already.
    if (outcome.status != 0 && outcome.status != kAssertionFailed) {
        ADD_FAILURE() << "the child did not come to its end:" << Told(outcome);
    }
}

const std::string& Home() {
    return TheHere().home;
}

std::vector<std::string> Printed() {
    std::fflush(stdout);
    return Lines(TheHere().output->ReadOn());
}

std::string PrintedErrors() {
    return TheHere().errors->ReadOn();
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t from = 0;
    while (from < text.size()) {
        const std::size_t end = std::min(text.find('\n', from), text.size());
        lines.push_back(text.substr(from, end - from));
        from = end + 1;
    }
    return lines;
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    ASSERT_TRUE(file.flush()) << path;
}

bool Exists(const std::string& path) {
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}
