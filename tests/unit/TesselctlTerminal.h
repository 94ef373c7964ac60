// The program on a terminal of the test's own making, which types and reads.
//
// Owner: each test makes its own; the program is killed if the test does not end it. Threads: one.
// Nothing here waits longer than kPatience.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

namespace tesselctltest {

class Terminal {
  public:
    // Runs in the home folder and without a locale, unless the environment says otherwise.
    Terminal(const std::string& home, std::vector<std::string> arguments,
             const std::map<std::string, std::string>& environment = {});
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void Type(const std::string& keys);
    void Resize(unsigned short rows, unsigned short columns);

    // Waits until a text has appeared behind what was waited for before.
    void WaitFor(const std::string& text);
    // The exit status, or 1000 + the signal. Reads what is still said.
    int WaitForEnd();

    bool IsLineMode() const;
    void Signal(int signal) const;
    // All that it has said, escape sequences included.
    const std::string& Screen() const { return screen; }

  private:
    // False when nothing more can come.
    bool ReadMore(int milliseconds);

    int master = -1;
    pid_t child = -1;
    std::string screen;
    std::size_t seen = 0;
};

}  // namespace tesselctltest
