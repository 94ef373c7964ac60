// One run of the service in a sandbox: started by the constructor, ended by the destructor if the
// test has not ended it.
//
// Beyond what a test asserts, every run is held to this: it ends only when it is told to, with the
// exit status of that, and no sanitizer has anything to say. When the test fails, the end of what
// the service printed and logged is shown. Throws Failed.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "support/Client.h"
#include "support/Sandbox.h"

struct Exit {
    // The number of the signal that killed it, or 0.
    int signal = 0;
    int status = 0;

    static Exit Status(int status) { return {0, status}; }
    static Exit Signal(int signal) { return {signal, 0}; }
    bool operator==(const Exit& other) const {
        return signal == other.signal && status == other.status;
    }
};
std::ostream& operator<<(std::ostream& stream, const Exit& exit);

struct Start {
    Identity identity = Identity::kUser;
    // Added to what every start has: HOME, USER, PATH, TZ and the like. An empty value takes a
    // variable away.
    std::map<std::string, std::string> environment;
    // Those that are there and hold nothing.
    std::vector<std::string> emptyVariables;
    // What the program is called with as its own name; its path when empty.
    std::string name;
    // Beside the user's own.
    std::vector<gid_t> groups;
    int openFiles = 0;
    std::vector<int> ignoredSignals;
    std::vector<int> closedDescriptors;
    // /dev/null when none is given.
    int standardInput = -1;
};

// What the service tells its clients in the key file.
struct KeyFile {
    int commandPort = 0;
    int pressurePort = 0;
    int appsPort = 0;
    std::string key;
};
KeyFile ParseKeyFile(const std::string& text);

class Service {
  public:
    // Does not wait for anything.
    explicit Service(Sandbox& sandbox, Start start = {});
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    static constexpr char kSupportFolder[] = "/Users/anna/Library/Application Support/Velto";
    static constexpr char kKeyFile[] =
        "/Users/anna/Library/Application Support/Velto/tesselAuth.key";
    static constexpr char kLogFile[] = "/Users/anna/tesselLog.txt";
    // Without it the service of an administrator removes itself at its start.
    static constexpr char kDock[] = "/Applications/Tessel Dock/Tessel Dock.app";

    // Until the key file of this run is there and all three ports are listened on. Reads the
    // kernel's table instead of connecting: a connection of the harness would leave its traces in
    // the service.
    Service& WaitUntilListening();
    const KeyFile& Keys() const { return keys; }

    // Until the main thread has begun to serve, and so has opened all that it keeps open: clients
    // can connect, and the pressure thread answers them, before that. Leaves one "deinit client"
    // behind.
    void WaitUntilTheMainThreadServes();
    // The same for the pressure thread, too, by a client of each; both have gone.
    void WaitUntilBothThreadsServe();
    // Until standard output holds `text`, or holds it `times` times.
    void WaitForOutput(const std::string& text, std::size_t times = 1) const;
    void WaitForErrors(const std::string& text) const;
    // With all that belongs to what has been answered: an answer is sent before its lines are
    // written, and they are before a thread waits again. Of a service that never rests, what there
    // is after a second.
    std::string Output() const;
    // What there is.
    std::string OutputSoFar() const;
    std::string Errors() const;
    std::string Log() const;

    Client ConnectToCommand() const { return Client(sandbox.Connect(keys.commandPort)); }
    Client ConnectToPressure() const { return Client(sandbox.Connect(keys.pressurePort)); }
    Client ConnectToApps() const { return Client(sandbox.Connect(keys.appsPort)); }
    // A client of the command port that has presented the key.
    Client Authorized() const;
    // Throws when the service does not let it in.
    void Authorize(Client& client) const;

    pid_t Pid() const { return pid; }
    // One field of /proc/PID/status, as text without surrounding white space.
    std::string StatusField(const std::string& name) const;
    std::size_t OpenDescriptors() const;
    // Of all threads, user and system.
    std::chrono::milliseconds ProcessorTime() const;

    void Signal(int signal) const;
    bool Running();
    Exit WaitForExit();
    // Ends it with that signal.
    Exit Stop(int signal);

  private:
    bool IsAsleep() const;
    void CheckSanitizers() const;
    void ShowWhatHappened() const;

    Sandbox& sandbox;
    std::string name;
    std::string oldKeyFile;
    std::string keyFilePath;
    std::string logFilePath;
    pid_t pid = -1;
    bool ended = false;
    Exit exit;
    KeyFile keys;
};
