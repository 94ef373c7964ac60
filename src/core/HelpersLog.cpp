#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>
#include <vector>

#include "core/ASCII.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "core/OpenFile.h"
#include "core/Owners.h"
#include "core/PerThread.h"

namespace {

constexpr off_t kLargestLogFile = 512000;

struct Version {
    int major;
    int minor;
    int candidate;
};
constexpr Version kVersion = {2, 7, 0};

// Never destroyed: the other thread may log while the process ends.
struct Log {
    // Held for one message; recursive, because opening the file for the first message logs as well.
    std::recursive_mutex mutex;
    FileOwner logFile;
    // Only ever goes from true to false.
    bool loggingPossible = true;
    std::string logFilePath;
    std::string sessionId;
};

Log& TheLog() {
    static Log& log = *new Log();
    return log;
}

// The text that a thread has logged last, wide or as UTF-8, as it was given: most are never asked
// for, and a long one is not converted for nothing.
class LastLog {
  public:
    void Set(const std::wstring& text) {
        wide = text;
        isWide = true;
    }
    // Returns where the text is kept.
    const std::string& Set(std::string&& text) {
        utf8 = std::move(text);
        isWide = false;
        return utf8;
    }
    void Set(const std::string& text) {
        utf8 = text;
        isWide = false;
    }
    std::wstring Text() const { return isWide ? wide : UTF32FromUTF8(utf8); }

  private:
    std::wstring wide;
    std::string utf8;
    bool isWide = true;
};

LastLog& LastLogOfThisThread() {
    struct Tag;
    return PerThread<LastLog, Tag>();
}

// Logging must not change what errno tells the client about the operation that failed.
class KeepErrno {
  public:
    KeepErrno() = default;
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;
    ~KeepErrno() { errno = kept; }

  private:
    const int kept = errno;
};

template <typename Value>
std::string Format(const char* fmt, std::size_t room, Value value) {
    std::vector<char> buffer(std::strlen(fmt) + room + 1);
    std::snprintf(buffer.data(), buffer.size(), fmt, value);
    return buffer.data();
}

// strerror_r comes in two forms: POSIX fills the buffer, GNU returns the text.
[[maybe_unused]] const char* ErrorText(int /*status*/, const char* buffer) {
    return buffer;
}
[[maybe_unused]] const char* ErrorText(const char* text, const char* /*buffer*/) {
    return text;
}

// A NUL ends the line, in the file as on standard output.
void WriteToFile(const std::string& utf8) {
    const KeepErrno keepErrno;
    Log& log = TheLog();
    const std::lock_guard<std::recursive_mutex> lock(log.mutex);
    if (!log.loggingPossible) {
        return;
    }
    if (!log.logFile && !Helpers::initFileLogging()) {
        return;
    }
    const std::string line = Helpers::getSessionId() + " - " + utf8.c_str() + "\n";
    // A line that finds no room on the disk is lost; there is no other place to say so.
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), log.logFile.get()));
    static_cast<void>(std::fflush(log.logFile.get()));
}

void WriteLine(const std::string& utf8) {
    WriteToFile(utf8);
    std::puts(utf8.c_str());
}

// By this user, as far as rights go.
bool CanBeRead(const std::string& path) {
    const int descriptor = OpenWithoutWaiting(path, O_RDONLY);
    return descriptor != -1 && close(descriptor) == 0;
}

void LogUTF8(const std::string& text) {
    const KeepErrno keepErrno;
    const std::lock_guard<std::recursive_mutex> lock(TheLog().mutex);
    LastLogOfThisThread().Set(text);
    WriteLine(text);
}

}  // namespace

bool Helpers::initFileLogging() {
    const KeepErrno keepErrno;
    Log& log = TheLog();
    const std::lock_guard<std::recursive_mutex> lock(log.mutex);
    log.logFilePath = replaceTildeWithHomeDir("~/tesselLog.txt");
    if (!CanBeRead(log.logFilePath)) {
        log.loggingPossible = false;
        logprint("Logfile does not exist, not logging");
        return false;
    }
    log.logFile = OpenFile(log.logFilePath, O_WRONLY | O_APPEND, "a");
    struct stat status;
    if (log.logFile && fstat(fileno(log.logFile.get()), &status) == 0 &&
        status.st_size > kLargestLogFile) {
        log.logFile = OpenFile(log.logFilePath, O_WRONLY | O_TRUNC, "w");
    }
    if (!log.logFile) {
        log.loggingPossible = false;
        logprint("Unable to open logfile");
        return false;
    }
    logprint("Log file initialization succeeded.");
    return true;
}

void Helpers::deInitFileLogging() {
    Log& log = TheLog();
    const std::lock_guard<std::recursive_mutex> lock(log.mutex);
    log.logFile.reset();
    log.loggingPossible = false;
}

void Helpers::writeToLogFile(const std::wstring& msg) {
    WriteToFile(wstringToUtf8(msg));
}

void Helpers::logprint(const std::wstring& msg) {
    const KeepErrno keepErrno;
    const std::lock_guard<std::recursive_mutex> lock(TheLog().mutex);
    LastLogOfThisThread().Set(msg);
    WriteLine(wstringToUtf8(msg));
}

void Helpers::logprint(const std::string& msg) {
    // Each byte is the character of that number. Of ASCII that is what its UTF-8 says, too.
    if (msg.empty() || !IsASCII(msg)) {
        logprint(stringToWString(msg));
        return;
    }
    LogUTF8(msg);
}

void Helpers::logprint(const std::wstring& first, const std::wstring& second) {
    const std::lock_guard<std::recursive_mutex> lock(TheLog().mutex);
    logprint(first);
    logprint(second);
}

void Helpers::logprintUtf8(const std::string& first, const std::string& second) {
    const std::lock_guard<std::recursive_mutex> lock(TheLog().mutex);
    LogUTF8(first);
    LogUTF8(second);
}

const std::string& Helpers::logprintUtf8(std::string&& text) {
    const KeepErrno keepErrno;
    const std::lock_guard<std::recursive_mutex> lock(TheLog().mutex);
    // First, because the first line of all says something about the log by itself.
    WriteLine(text);
    return LastLogOfThisThread().Set(std::move(text));
}

void Helpers::keepLog() {
    TheLog().mutex.lock();
}

void Helpers::logprintf(const char* fmt, int value) {
    constexpr std::size_t kLongestInt = 11;
    logprint(Format(fmt, kLongestInt, value));
}

void Helpers::logprintf(const char* fmt, const std::string& value) {
    logprint(Format(fmt, value.size(), value.c_str()));
}

void Helpers::reportError(int code, const std::wstring& call) {
    logprint(L"Call to " + call + L" returned error " + intToWString(code));
}

void Helpers::reportError(int code, const std::string& call) {
    reportError(code, stringToWString(call));
}

std::wstring Helpers::getLastLog() {
    return LastLogOfThisThread().Text();
}

std::wstring Helpers::getLastError() {
    char buffer[256] = "";
    return stringToWString(ErrorText(strerror_r(errno, buffer, sizeof buffer), buffer));
}

std::string Helpers::getSessionId() {
    Log& log = TheLog();
    const std::lock_guard<std::recursive_mutex> lock(log.mutex);
    if (log.sessionId.empty()) {
        constexpr std::size_t kTagLength = 5;
        char seconds[24];
        const int length =
            std::snprintf(seconds, sizeof seconds, "%05ld", static_cast<long>(std::time(nullptr)));
        log.sessionId = std::string(seconds + length - kTagLength, kTagLength);
    }
    return log.sessionId;
}

void Helpers::printCoreVersion() {
    // Not wprintf: it would turn glibc's standard output into a wide stream, which swallows every
    // later puts.
    std::printf("Tessel Core Mac - Version %d.%02d RC%d (PID: %d)\n", kVersion.major,
                kVersion.minor, kVersion.candidate, static_cast<int>(getpid()));
}

std::wstring Helpers::getCoreVersion() {
    wchar_t version[128];
    std::swprintf(version, sizeof version / sizeof version[0], L"%d.%02d.%d", kVersion.major,
                  kVersion.minor, kVersion.candidate);
    return version;
}
