// A TCP server on 127.0.0.1: finds a port, takes in what clients send, passes each message to its
// command handler and answers with what came of it. As it stands it is the command server, which
// obeys only a client that has presented the pass key; the pressure and the apps-communication
// server derive from it.
//
// Owner: ConnectionManager, for the life of the process. Descriptors of clients belong to Outbox,
// the listening one to the server. Threads: a server's callbacks run on the thread whose run loop
// carries its sockets, and so must every call to it, with the exception of the PressureReplier
// operations of a server that is handed to the tablet manager. Failure: logged and told by the
// result; nothing throws.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <map>
#include <string>

#include "commands/Status.h"
#include "net/BrowserGuard.h"
#include "net/PressureReplier.h"

// Whether everything that is received is logged as it comes.
extern bool displayLogMessages;

class Server : public PressureReplier {
  public:
    // Ends every message, in both directions.
    static constexpr char kTerminator = '|';

    // Slots 0 to 3. All send in one call and return 0 on success, -1 on failure.
    int replyTabletEvent(const std::string& text) override;
    int replyPressure(int value) override;
    int reply(const std::wstring& text) override;
    int replyCursor(const std::wstring& text) override;
    // Slots 4 to 8. The first returns whether the accepted connection is to be kept.
    virtual int serverCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                               const void* data, void* info);
    // Closes the current client, and with CLOSESERVER the listener, too.
    virtual void deinit(bool closeServer);
    // MESSAGE is UTF-8, as it came.
    virtual Status handleCommand(int client, const std::string& message);
    virtual bool isCommandServer() const;
    virtual std::string name() const;

    // Opens the listener; the port, or -1.
    int init();
    int getServerFD() const;
    // Called when a client can be read; INFO points to its socket number. Always 1.
    int clientCallBack(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                       const void* data, void* info);
    // Reads, frames and executes what CLIENT has sent; what became of the last command.
    Status handleReceive(int client);
    int reply(const std::wstring& text, int socket);

    // The client that pen data goes to, or -1. Belongs to the thread of the pressure server.
    static int activePressureListener;

  protected:
    static constexpr int kNobody = -1;
    // TEXT as it goes over the wire: one byte a character, "?" for what has none, and the bar that
    // ends it.
    static std::string Frame(const std::wstring& text);

    int authorizedClient = 0;
    int serverSocket = -1;
    int currentClient = 0;
    int port = 0;
    // The unfinished end of what was received, of all clients together: well-formed UTF-8.
    std::string pendingInput;
    int clientCount = 0;
    bool authorized = false;
    // Whom replyCursor reaches: nobody, as nothing enters a client here.
    std::map<int, std::wstring> clients;

  private:
    enum class Then { kNextMessage, kStop };

    bool bindToSomePort();
    int giveUpListener();
    Status refuseBrowser(int client);
    Then authorize(int client, const std::string& message);
    Then execute(int client, const std::string& message, Status& result);
    void replyWithReason(const wchar_t* word, const std::string& message);
    void closeCurrentClient();

    BrowserGuard browserGuard;
};
