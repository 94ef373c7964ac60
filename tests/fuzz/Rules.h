// What the three servers do with what they are sent, as their rules say it: the reference that
// whole sessions are compared with.
//
// A server is told of its clients by the numbers of their sockets, as the service knows them, and
// says what each of them is to receive. Threads: one.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "commands/UTF8Words.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "net/BrowserGuard.h"

// An answer, or the beginning of one whose end is nobody's business.
struct Answer {
    std::string text;
    bool isAll = true;

    bool Fits(std::string_view message) const {
        return isAll ? message == text : message.substr(0, text.size()) == text;
    }
};

class ServerRules {
  public:
    ServerRules() = default;
    virtual ~ServerRules() = default;

    // Whether the server keeps a new connection.
    virtual bool Takes() const { return true; }
    void Connect(int client) { beginnings[client] = ""; }
    // All of BATCH is read at once.
    void Receive(int client, std::string batch) {
        if (!IsBegun(client, batch)) return;
        std::vector<std::string> messages;
        const std::string text = IsUTF8(batch) ? batch : "Utf8 conversion failed";
        for (const char character : text) {
            if (character == '|') {
                messages.push_back(pending);
                pending.clear();
            } else if (character != '\n' && character != '\r' && character != '\0') {
                pending += character;
            }
        }
        for (const std::string& message : messages) {
            if (closed.count(client) != 0) break;
            Handle(client, message);
        }
    }
    virtual void Leave(int client) {
        beginnings.erase(client);
        closed.insert(client);
    }

    // What is to come to each client, the oldest first. Taken by whoever looks.
    std::map<int, std::vector<Answer>> answers;
    // Whom the server has closed. Taken likewise.
    std::set<int> closed;
    // What no message has been made of yet.
    std::string pending;
    // A message was handled that must not be: it would do something to this machine.
    bool isHarmful = false;

  protected:
    virtual void Handle(int client, const std::string& message) = 0;
    void Say(int client, std::string text) { answers[client].push_back({std::move(text), true}); }
    void Begin(int client, std::string text) {
        answers[client].push_back({std::move(text), false});
    }

  private:
    // Whether BATCH is to be handled, and is no browser's.
    bool IsBegun(int client, std::string& batch) {
        const auto found = beginnings.find(client);
        if (found == beginnings.end()) return true;
        batch = found->second + batch;
        switch (TakeFor(batch)) {
            case Beginning::kUndecided:
                found->second = batch;
                return false;
            case Beginning::kBrowser:
                Leave(client);
                return false;
            default:
                beginnings.erase(found);
                return true;
        }
    }

    // What has come from those of whom nothing has been handled.
    std::map<int, std::string> beginnings;
};

class CommandRules final : public ServerRules {
  public:
    explicit CommandRules(std::string itsKey) : key(std::move(itsKey)) {}

    bool Takes() const override { return authorized == kNobody; }
    void Leave(int client) override {
        ServerRules::Leave(client);
        if (client == authorized) authorized = kNobody;
    }

  private:
    static constexpr int kNobody = -1;

    void Handle(int client, const std::string& message) override {
        const UTF8Words words(message);
        if (authorized != kNobody) {
            Run(client, words);
        } else if (words.size() == 2 && words[0].substr(0, 4) == "auth" && words[1] == key) {
            authorized = client;
            Say(client, "authOk");
            Begin(client, "CurrentAttachedDevices=");
        } else {
            Leave(client);
        }
    }
    void Run(int client, const UTF8Words& words) {
        struct Row {
            std::string_view name;
            // -1 for any number of arguments.
            int arguments;
            const char* answer;
        };
        static constexpr Row kRows[] = {{"dockUpdateFinished", -1, "Success "},
                                        {"getCommonUserDir", -1, "Success CommonUserDir="},
                                        {"getCoreVersion", -1, "Success CoreVersion="},
                                        {"createUUID", 0, "Success UUID={"},
                                        {"checkExists", 1, ""},
                                        {"platform", -1, "Success MACOSX"},
                                        {"getLocalCountryCode", 0, "Success LocalCountryCode="}};
        static constexpr std::string_view kHarmful[] = {
            "exit",      "update",      "setAsStartup", "removeAsStartup", "getIcon",
            "userCan",   "fix",         "startProcess", "associate",       "unassociate",
            "uninstall", "install",     "upgrade",      "isAir",           "isNative",
            "startAir",  "startNative", "stopNative"};
        if (!words.empty()) {
            for (const std::string_view name : kHarmful) {
                if (words[0].substr(0, name.size()) == name) isHarmful = true;
            }
            for (const Row& row : kRows) {
                if (words[0].substr(0, row.name.size()) != row.name) continue;
                const bool fits = row.arguments == -1 ||
                                  words.size() == static_cast<std::size_t>(row.arguments) + 1;
                Begin(client, fits ? row.answer : "SyntaxError Wrong number of arguments");
                return;
            }
        }
        Begin(client,
              words.empty() ? "SyntaxError No command found." : "SyntaxError Unknown command");
    }

    std::string key;
    int authorized = kNobody;
};

class PressureRules final : public ServerRules {
  private:
    void Handle(int client, const std::string& message) override {
        const UTF8Words words(message);
        const auto begins = [&words](std::string_view name) {
            return words[0].substr(0, name.size()) == name;
        };
        if (words.empty()) {
            Begin(client, "SyntaxError No command found.");
        } else if (begins("startTablet") || begins("stopTablet")) {
            // Nothing is said.
        } else if (begins("listenTablet") || begins("stopListenTablet")) {
            // Whether there is such a process is not known here.
            Begin(client, words.size() == 3 ? "" : "SyntaxError Wrong number of arguments");
        } else {
            Begin(client, begins("getDriverVersion") ? "Success DriverVersion="
                                                     : "SyntaxError Unknown command");
        }
    }
};

class ChannelRules final : public ServerRules {
  public:
    void Leave(int client) override {
        ServerRules::Leave(client);
        const auto found = channels.find(client);
        if (found == channels.end()) return;
        const std::string name = found->second;
        channels.erase(found);
        Tell("BroadcastUnRegisteredChannel=" + Helpers::utf8ToString(name));
    }

  private:
    void Handle(int client, const std::string& message) override {
        const UTF8Words words(message);
        const auto is = [&words](std::string_view name, std::size_t arguments) {
            return words[0].substr(0, name.size()) == name && words.size() == arguments + 1;
        };
        if (words.empty()) {
            Begin(client, "SyntaxError No command found.");
        } else if (is("registerChannel", 1)) {
            channels.erase(client);
            Tell("BroadcastRegisteredChannel=" + Helpers::utf8ToString(words[1]));
            channels[client] = words[1];
            Say(client, "Success ChannelRegistered=true");
        } else if (is("sendDataToChannel", 3)) {
            Send(client, words);
        } else if (words[0].substr(0, 15) == "registerChannel" ||
                   words[0].substr(0, 17) == "sendDataToChannel") {
            Begin(client, "SyntaxError Wrong number of arguments");
        } else {
            Say(client, "Success ");
        }
    }
    void Tell(const std::string& text) {
        for (const auto& [client, name] : channels)
            Say(client, text);
    }
    void Send(int client, const UTF8Words& words) {
        const std::string tag = Helpers::utf8ToString(words[3]);
        for (const auto& [target, name] : channels) {
            if (name != words[1] || channels.count(client) == 0) continue;
            Say(target, "ForwardDataToChannel " + Helpers::utf8ToString(channels[client]) + " " +
                            Helpers::utf8ToString(words[2]));
            Say(client, "Success DataSentToChannel=" + tag);
            return;
        }
        Say(client, "Success DataSentToChannelError=" + tag);
    }

    std::map<int, std::string> channels;
};
