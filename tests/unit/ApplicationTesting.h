// What the tests of applications and of files in bulk share: references by path, bundles made of a
// few lines, an ordinary user to be, and programs that end with the test.
//
// Failure: what cannot be made fails the test.
#pragma once

#include <CarbonCore/Files.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace applicationtest {

// All zeros where there is nothing.
FSRef RefOf(const std::string& path);
std::string PathOf(const FSRef& ref);

std::string ReadWhole(const std::string& path);
void MakeFolder(const std::string& path);
// A file that can be run. Nothing is added to TEXT.
void WriteProgram(const std::string& path, const std::string& text);

struct Bundle {
    std::string identifier;
    // The name of the executable; empty leaves it to the name of the bundle.
    std::string executable = "Program";
    std::string version = "1";
    // The text of the executable; empty leaves it out.
    std::string program = "#!/bin/sh\n";
};
// Makes the bundle at PATH, which ends in ".app".
void MakeBundle(const std::string& path, const Bundle& bundle);

// Runs WORK in a child process as a user without rights, whose expectations count here as well.
void AsOrdinaryUser(const std::function<void()>& work);

// Whether WORK could be done. In a child process of root's whose mounts are its own.
bool WithMountsOfItsOwn(const std::function<void()>& work);

// The numbers of the processes that wrote theirs to the files named "pid..." in a folder. They are
// killed when this goes.
class Programs {
  public:
    explicit Programs(std::string itsFolder) : folder(std::move(itsFolder)) {}
    Programs(const Programs&) = delete;
    Programs& operator=(const Programs&) = delete;
    ~Programs();

    std::vector<pid_t> Pids() const;
    // Waits until there are COUNT of them.
    bool Wait(std::size_t count) const;

  private:
    std::string folder;
};

bool IsRunning(pid_t pid);

// The text of a program that leaves its number in FOLDER and stays for a minute.
std::string StayingProgram(const std::string& folder);

}  // namespace applicationtest
