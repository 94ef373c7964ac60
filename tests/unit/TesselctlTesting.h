// What the tests of tesselctl share: a home folder of their own, a service that plays a script, and
// the program itself run with pipes for its input and output.
//
// Owner: each test makes its own. Threads: a ScriptedService plays every connection on a thread of
// its own; its destructor ends and joins them. Nothing here waits longer than kPatience.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tesselctltest {

constexpr std::chrono::seconds kPatience{20};
constexpr const char* kKey = "{01234567-89ab-cdef-0123-456789abcdef}";

class TemporaryHome {
  public:
    TemporaryHome();
    ~TemporaryHome();
    TemporaryHome(const TemporaryHome&) = delete;
    TemporaryHome& operator=(const TemporaryHome&) = delete;

    const std::string& Path() const { return path; }
    std::string KeyFile() const;
    void WriteKeyFile(int commandPort, int pressurePort, int appsPort,
                      const std::string& key = kKey) const;

  private:
    std::string path;
};

// What a service writes at its start.
std::string KeyFileText(int commandPort, int pressurePort, int appsPort, const std::string& key);

void WriteFile(const std::string& path, const std::string& text);
void AppendFile(const std::string& path, const std::string& text);
std::string ReadFile(const std::string& path);

// A port on which nobody listens or ever will.
int DeadPort();

// One connection, seen from the service.
class Client {
  public:
    explicit Client(int accepted) : socket(accepted) {}
    // Without the bar; "<closed>" when the other side has gone.
    std::string Read();
    void Send(std::string_view bytes);
    // Lets the other side send and say goodbye, so that closing never resets the connection.
    void WaitForGoodbye();
    int Socket() const { return socket; }

  private:
    int socket;
    std::string pending;
};

class ScriptedService {
  public:
    // Plays the script for each connection, with its number from 0 on; closes the connection when
    // it returns.
    using Script = std::function<void(Client&, int)>;

    explicit ScriptedService(Script played);
    ~ScriptedService();
    ScriptedService(const ScriptedService&) = delete;
    ScriptedService& operator=(const ScriptedService&) = delete;

    int Port() const { return port; }
    int Connections();

  private:
    void Accept();

    Script script;
    int port = 0;
    int listener;  // behind the port, which it finds
    std::mutex mutex;
    bool ending = false;
    std::vector<int> sockets;
    std::vector<std::thread> players;
    std::thread acceptor;
};

// Answers the key with authOk and then every command with what `answers` says to it.
ScriptedService::Script Authorizing(std::function<std::string(const std::string&)> answers);

struct Outcome {
    int status;  // the exit status, or 1000 + the signal that killed it
    std::string output;
    std::string errors;
};

Outcome RunProgram(const std::vector<std::string>& arguments, const std::string& input = {});

// The program while it runs, its output and errors in files. It is killed if the test does not end
// it.
class RunningProgram {
  public:
    explicit RunningProgram(const std::vector<std::string>& arguments);
    ~RunningProgram();
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;

    // Until it has said that, on standard output or standard error.
    void WaitForOutput(const std::string& text) const;
    void WaitForErrors(const std::string& text) const;
    void Signal(int signal) const;
    // Waits for its end.
    Outcome Finish();

  private:
    void WaitFor(const std::string& text, const std::string& file) const;

    TemporaryHome folder;
    const std::string output = folder.Path() + "/output";
    const std::string errors = folder.Path() + "/errors";
    int child = -1;
};

}  // namespace tesselctltest
