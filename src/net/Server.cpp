#include "net/Server.h"

#include <Carbon/Carbon.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "commands/CommandHandler.h"
#include "core/ConvertUTF.h"
#include "core/Helpers.h"
#include "core/Pause.h"
#include "net/BatchReader.h"
#include "net/ConnectionAuthorization.h"
#include "net/Outbox.h"
#include "tablet/TabletDetector.h"
#include "tablet/TabletManager.h"

bool displayLogMessages = false;
int Server::activePressureListener = -1;

namespace {

constexpr int kClosed = -1;
constexpr int kFirstPort = 3400;
constexpr int kPortMask = 0xFF;
constexpr int kPortRounds = 25;
constexpr int kBacklog = 10;
constexpr unsigned kSecondsBeforeTheEnd = 1;
// A send of exactly this length counts as failed. Clients have come to rely on what follows from
// it.
constexpr long kUnluckyLength = 32;

void SetOption(int socket, int level, int option, int value) {
    setsockopt(socket, level, option, &value, sizeof value);
}

void SetListenerOptions(int socket) {
    SetOption(socket, SOL_SOCKET, SO_REUSEADDR, 1);
#ifdef SO_NOSIGPIPE
    SetOption(socket, SOL_SOCKET, SO_NOSIGPIPE, 1);
#endif
    SetOption(socket, SOL_SOCKET, SO_REUSEPORT, 0);
    fcntl(socket, F_SETFD, FD_CLOEXEC);
    const int flags = fcntl(socket, F_GETFL);
    fcntl(socket, F_SETFL, (flags == -1 ? 0 : flags) | O_NONBLOCK);
}

void SetClientOptions(int socket) {
    // A reply is one send: waiting for more to send would only delay it.
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
#ifdef SO_NOSIGPIPE
    SetOption(socket, SOL_SOCKET, SO_NOSIGPIPE, 1);
#endif
}

void LogMessage(const std::string& message) {
    Helpers::logprintUtf8("Processing command:", message);
}

// BATCH when it is well-formed, and otherwise the text that the conversion has for such cases.
// Messages stay UTF-8 until somebody needs their characters: the long ones are only passed on.
std::string WellFormed(std::string batch) {
    return IsUTF8(batch) ? std::move(batch)
                         : Helpers::wstringToUtf8(Helpers::wstringFromUtf8(batch));
}

}  // namespace

int Server::init() {
    clientCount = 0;
    authorized = false;
    Helpers::logprint("Listener starting...");
    serverSocket = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (serverSocket == kClosed) {
        Helpers::logprint("can not create socket");
        return -1;
    }
    SetListenerOptions(serverSocket);
    if (!bindToSomePort()) {
        Helpers::logprint("No free port found after 50 attempts, giving up!");
        return giveUpListener();
    }
    Helpers::logprintf("Listen [%d] succesful, waiting for clients", port);
    if (listen(serverSocket, kBacklog) != 0) {
        Helpers::logprint("error listen failed");
        return giveUpListener();
    }
    return port;
}

int Server::giveUpListener() {
    close(serverSocket);
    serverSocket = kClosed;
    return -1;
}

bool Server::bindToSomePort() {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    for (int round = 0; round < kPortRounds; ++round) {
        port = kFirstPort + static_cast<int>(random() & kPortMask);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        if (bind(serverSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return true;
        }
        Helpers::logprintf("Attempted port %d, already taken.", port);
    }
    return false;
}

int Server::getServerFD() const {
    return serverSocket;
}

int Server::serverCallBack(CFSocketRef /*socket*/, CFSocketCallBackType type, CFDataRef /*address*/,
                           const void* data, void* /*info*/) {
    if (type != kCFSocketAcceptCallBack) {
        Helpers::logprintf("Unknown server action [%d]", port);
        return 1;
    }
    if (isCommandServer() && authorized) {
        return 0;
    }
    const int accepted = *static_cast<const CFSocketNativeHandle*>(data);
    SetClientOptions(accepted);
    Helpers::logprint("New connection: id=" + Helpers::intToString(accepted) +
                      ", port=" + Helpers::intToString(port) + ", name=" + name());
    ++clientCount;
    browserGuard.Expect(accepted);
    return 1;
}

int Server::clientCallBack(CFSocketRef /*socket*/, CFSocketCallBackType type, CFDataRef /*address*/,
                           const void* /*data*/, void* info) {
    if (type != kCFSocketReadCallBack) {
        Helpers::logprint("Unexpected client option");
        return 1;
    }
    if (handleReceive(*static_cast<const int*>(info)) == Status::kEndService) {
        QuitApplicationEventLoop();
    }
    return 1;
}

Status Server::handleReceive(int client) {
    currentClient = client;
    std::string batch;
    switch (ReceiveBatch(client, batch)) {
        case Received::kClosed:
            Helpers::logprintf("error connection closed [%d]", port);
            Helpers::logprintf("connection id %d", client);
            deinit(false);
            return Status::kCloseClient;
        case Received::kNothing:
            return Status::kNothingHandled;
        case Received::kBatch:
            break;
    }
    if (displayLogMessages) {
        Helpers::logprint("Received " + name() + "[" + Helpers::intToString(port) +
                          "]: " + Helpers::fixPercentageSign(batch));
    }
    // Before anything else: what comes in is put together with what other clients have left.
    switch (browserGuard.Judge(client, batch)) {
        case Beginning::kBrowser:
            return refuseBrowser(client);
        case Beginning::kUndecided:
            return Status::kNothingHandled;
        case Beginning::kClient:
            break;
    }
    errno = 0;
    Status result = Status::kNothingHandled;
    for (const std::string& message :
         Helpers::splitIntoCommands(&pendingInput, WellFormed(std::move(batch)))) {
        LogMessage(message);
        const Then then = !isCommandServer() || authorized ? execute(client, message, result)
                                                           : authorize(client, message);
        if (then == Then::kStop) {
            break;
        }
    }
    return result;
}

Status Server::refuseBrowser(int client) {
    Helpers::logprintf("error web browser refused [%d]", port);
    Helpers::logprintf("connection id %d", client);
    deinit(false);
    return Status::kCloseClient;
}

Server::Then Server::authorize(int client, const std::string& message) {
    if (!ConnectionAuthorization::IsAuthorizationOk(UTF32FromUTF8(message))) {
        Helpers::logprint("Authorization failed!");
        deinit(false);
        return Then::kStop;
    }
    Helpers::logprint("Authorization successful.");
    authorized = true;
    authorizedClient = client;
    reply(L"authOk");
    TabletDetector::SendDevicesList();
    return Then::kNextMessage;
}

Server::Then Server::execute(int client, const std::string& message, Status& result) {
    result = handleCommand(client, message);
    switch (result) {
        case Status::kSuccess:
            reply(L"Success " + CommandHandler::GetReply());
            break;
        case Status::kFailure:
            replyWithReason(L"Failure ", message);
            break;
        case Status::kSyntaxError:
            replyWithReason(L"SyntaxError ", message);
            break;
        case Status::kStartPenData:
            activePressureListener = client;
            Helpers::logprintf("Active pressure listener: %d", client);
            TabletManager::listening = true;
            TabletManager::previousProximityStatus = -1;
            break;
        case Status::kStopPenData:
            if (activePressureListener == client) {
                activePressureListener = kNobody;
                TabletManager::listening = false;
                TabletManager::previousProximityStatus = -1;
            }
            break;
        case Status::kCloseClient:
            deinit(false);
            return Then::kStop;
        case Status::kEndService:
            Pause(kSecondsBeforeTheEnd);
            deinit(true);
            return Then::kStop;
        case Status::kQuitRequested:
            reply(L"QuitAcknowledged");
            Pause(kSecondsBeforeTheEnd);
            return Then::kStop;
        case Status::kYes:
            reply(L"True");
            break;
        case Status::kNo:
            reply(L"False");
            break;
        case Status::kIconReady:
            reply(L"IconReady");
            break;
        case Status::kIconMissing:
            reply(L"IconMissing");
            break;
        case Status::kNothingHandled:
            break;
    }
    return Then::kNextMessage;
}

void Server::replyWithReason(const wchar_t* word, const std::string& message) {
    // The reason is what was logged last, so it is taken before the message is logged once more.
    const std::wstring text = word + Helpers::getLastLog() + L" - " + Helpers::getLastError();
    LogMessage(message);
    reply(text);
}

std::string Server::Frame(const std::wstring& text) {
    std::string framed = Helpers::wstringToString(text);
    framed.push_back(kTerminator);
    return framed;
}

int Server::reply(const std::wstring& text, int socket) {
    if (currentClient == kNobody) {
        return -1;
    }
    const std::string framed = Frame(text);
    Helpers::logprint(framed);
    const long sent = Outbox::Send(socket, framed);
    return sent < 0 || sent == kUnluckyLength ? -1 : 0;
}

int Server::reply(const std::wstring& text) {
    return reply(text, currentClient);
}

int Server::replyCursor(const std::wstring& text) {
    for (const auto& client : clients) {
        reply(text, client.first);
    }
    return 0;
}

int Server::replyPressure(int value) {
    if (activePressureListener == kNobody) {
        return -1;
    }
    // Four digits and their NUL; a longer value loses its end.
    constexpr std::size_t kRecordLength = 5;
    char digits[16];
    std::snprintf(digits, sizeof digits, "%.4d", value);
    if (Outbox::Send(activePressureListener, std::string(digits, kRecordLength)) < 1) {
        Helpers::logprintf("Send failure! [%d]", port);
    }
    return 0;
}

int Server::replyTabletEvent(const std::string& text) {
    if (activePressureListener == kNobody) {
        return -1;
    }
    return Outbox::Send(activePressureListener, text + " ") < 0 ? -1 : 0;
}

void Server::closeCurrentClient() {
    if (currentClient == authorizedClient) {
        authorized = false;
    }
    clients.erase(currentClient);
    browserGuard.Forget(currentClient);
    --clientCount;
    Helpers::logprint("deinit client");
    Outbox::Close(currentClient);
    currentClient = kNobody;
}

void Server::deinit(bool closeServer) {
    // Before a server has received anything its current client is the number 0, which is nobody's.
    if (currentClient > 0) {
        closeCurrentClient();
    }
    if (closeServer && serverSocket != kClosed) {
        clientCount = 0;
        Helpers::logprint("deinit server");
        close(serverSocket);
        serverSocket = kClosed;
    }
}

Status Server::handleCommand(int /*client*/, const std::string& message) {
    std::wstring text = UTF32FromUTF8(message);
    return CommandHandler::HandleCommand(text);
}

bool Server::isCommandServer() const {
    return true;
}

std::string Server::name() const {
    return "Command Server";
}
