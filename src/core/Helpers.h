// What every other part of the service uses: logging, conversions between the three forms of text,
// paths, the user's identity and rights. All members are static.
//
// Text: a wide string holds UTF-32, an 8-bit string UTF-8 or raw bytes, as each function says.
// Conversions never fail loudly: a text that cannot be converted becomes one of the fixed texts
// "Utf8 conversion failed", "Error", "[FAIL]" or
// "?", which then travels on as data.
//
// Threads: logging and the conversions may be used on every thread; the last logged text is kept
// per thread, so that no client is told what happened on the other one. The rest belongs to the
// main thread.
//
// The class is implemented in one file per subject: Helpers.cpp (words, paths and ids),
// HelpersText.cpp, HelpersLog.cpp and HelpersUser.cpp.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

class Helpers {
  public:
    Helpers() = delete;

    // --- Logging: standard output always, "~/tesselLog.txt" only when the user has created it.
    // errno is left as it was, because the text of a client's error reply is made of it after
    // logging.

    // (Re)opens the log file; true when a file is open. Empties a file of more than 512000 bytes.
    static bool initFileLogging();
    // Closes the log file; from now on only standard output is written to.
    static void deInitFileLogging();
    // Writes one line to the log file alone.
    static void writeToLogFile(const std::wstring& msg);
    static void logprint(const std::wstring& msg);
    static void logprint(const std::string& msg);
    // Two lines that stay together, whatever the other thread logs.
    static void logprint(const std::wstring& first, const std::wstring& second);
    static void logprintUtf8(const std::string& first, const std::string& second);
    // Keeps TEXT, which is UTF-8, as the last logged text without copying it. The result is that
    // text, until this thread logs again.
    static const std::string& logprintUtf8(std::string&& text);
    // From now on nobody but this thread logs: the others wait at their next line. Only for a
    // process that ends.
    static void keepLog();
    // FMT is a printf format with one placeholder, %d or %s.
    static void logprintf(const char* fmt, int value);
    static void logprintf(const char* fmt, const std::string& value);
    static void reportError(int code, const std::wstring& call);
    static void reportError(int code, const std::string& call);
    // The text that this thread logged last.
    static std::wstring getLastLog();
    // The system's text for errno.
    static std::wstring getLastError();
    // The tag of this run's lines: the last 5 digits of the time of the first line, in seconds.
    static std::string getSessionId();
    static void printCoreVersion();
    static std::wstring getCoreVersion();

    // --- Text

    // Strict UTF-8 decoding. The result has source.size() + 1 units: the text, then NUL units.
    static std::wstring wstringFromUtf8(const std::string& source);
    // Strict UTF-8 encoding; an empty text gives one NUL byte.
    static std::string wstringToUtf8(const std::wstring& source);
    // Each byte becomes the character of the same number.
    static std::wstring stringToWString(const std::string& source);
    // Each unit becomes a byte; what is not ASCII becomes "?".
    static std::string wstringToString(const std::wstring& source);
    // The same for a text that is UTF-8: each of its characters becomes a byte.
    static std::string utf8ToString(std::string_view source);
    // The caller releases the result, which ends at the first NUL.
    static CFStringRef wstringToCFString(const std::wstring& source);
    // UTF-8 in memory of the Memory Manager, which the caller frees with DisposePtr; null for a
    // null input, and for a text whose UTF-8 form is longer than twice its UTF-16 form.
    static char* copy_CFStringRefToCString(CFStringRef source);
    static std::string intToString(int value);
    static std::wstring intToWString(int value);
    // True for nothing but blanks, up to the end or to a NUL unit.
    static bool isNullOrEmpty(const std::wstring& text);
    // Whether TEXT begins with PREFIX; a NUL unit in both ends the comparison.
    static bool str_prefix(const std::wstring& prefix, const std::wstring& text);
    static bool str_prefix(const char* prefix, const std::wstring& text);
    static bool str_prefix(const char* prefix, std::string_view text);
    static std::string replace(const std::string& text, const std::string& what,
                               const std::string& with);
    static std::string fixPercentageSign(const std::string& text);

    // --- The command language (8-bit messages are UTF-8)

    // Cuts RECEIVED, behind what is left in *PENDING, at vertical bars; *PENDING keeps the
    // unfinished rest.
    static std::vector<std::string> splitIntoCommands(std::string* pending, std::string received);
    // Splits one message into words.
    static std::vector<std::wstring> splitCommand(const std::wstring& message);

    // --- Paths (8-bit paths are UTF-8)

    // Every "~" becomes the user's home folder, or "[FAIL]" when there is none.
    static std::string replaceTildeWithHomeDir(const std::string& text);
    // FOLDER becomes everything up to the last "/", NAME the rest; without a "/" FOLDER stays and
    // NAME becomes empty.
    static void splitPath(const std::string& path, std::string& folder, std::string& name);
    static std::string splitLastPathComponent(const std::string& path);
    // The text before the last "."; empty when there is none.
    static std::string removeExtension(const std::string& name);
    // From the last "." on, or empty.
    static std::wstring getExtension(const std::wstring& path);
    // Remembers how the program was called.
    static void setProcessPath(const std::string& argv0);
    static std::wstring getCurrentPath();
    static std::wstring getCurrentProcessImage();
    // The bundle at PATH, which the caller releases; null when there is nothing.
    static CFBundleRef getBundleRef(const std::string& path);
    // Both with a "/" at the end.
    static std::string getTempFolder();
    static std::string getSupportPath();

    // --- The user, and ids

    // A new random UUID in braces.
    static std::string generateUUID();
    // The user at the console; 0 when nobody is logged in there.
    static uid_t GetCurrentUserUID();
    // Whether that user is an administrator; asked once per user and run of the service.
    static bool isUserAdminType();
};
