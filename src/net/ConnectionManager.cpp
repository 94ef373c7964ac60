#include "net/ConnectionManager.h"

#include <Carbon/Carbon.h>
#include <sys/time.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "core/Helpers.h"
#include "core/Owners.h"
#include "core/StandardOutput.h"
#include "net/ConnectionAuthorization.h"
#include "net/Outbox.h"
#include "tablet/TabletDetector.h"
#include "tablet/TabletManager.h"

Server* ConnectionManager::commandServer = nullptr;
PressureServer* ConnectionManager::tabletServer = nullptr;
AppsCommunicationServer* ConnectionManager::appsCommunicationServer = nullptr;
pthread_t ConnectionManager::pressureThread;
bool ConnectionManager::pressureThreadStarted = false;
CFRunLoopRef ConnectionManager::pressureThreadRunLoop = nullptr;

namespace {

void SeedRandom() {
    timeval now;
    if (gettimeofday(&now, nullptr) == 0) {
        const auto micros = static_cast<unsigned long long>(now.tv_sec) * 1000000ULL +
                            static_cast<unsigned long long>(now.tv_usec);
        srandom(static_cast<unsigned>(micros));
    } else {
        srandom(static_cast<unsigned>(std::time(nullptr)));
    }
}

// Lets this thread's run loop serve SOCKET; the loop then keeps both objects for as long as the
// socket is valid.
void AddToRunLoop(CFSocketRef socket) {
    const auto source = CFOwner<CFRunLoopSourceRef>::Adopt(
        CFSocketCreateRunLoopSource(kCFAllocatorDefault, socket, 0));
    CFRunLoopAddSource(CFRunLoopGetCurrent(), source.Get(), kCFRunLoopCommonModes);
}

void ServeListener(int listener, CFSocketCallBack callBack) {
    const auto socket = CFOwner<CFSocketRef>::Adopt(CFSocketCreateWithNative(
        kCFAllocatorDefault, listener, kCFSocketAcceptCallBack, callBack, nullptr));
    // There is none for a server that found no port.
    if (socket) {
        AddToRunLoop(socket.Get());
    }
}

int AcceptedSocket(const void* data) {
    return *static_cast<const CFSocketNativeHandle*>(data);
}

void DeleteCell(const void* cell) {
    delete static_cast<const int*>(cell);
}

void ServeClient(int client, CFSocketCallBack callBack) {
    CFSocketContext context = {0, new int(client), nullptr, DeleteCell, nullptr};
    const auto socket = CFOwner<CFSocketRef>::Adopt(CFSocketCreateWithNative(
        kCFAllocatorDefault, client, kCFSocketReadCallBack | kCFSocketWriteCallBack, callBack,
        &context));
    if (!socket) {
        DeleteCell(context.info);
        close(client);
        return;
    }
    // The descriptor is the server's to close; room to write is of interest only while something
    // waits to be written.
    CFSocketSetSocketFlags(socket.Get(), kCFSocketAutomaticallyReenableReadCallBack);
    CFSocketDisableCallBacks(socket.Get(), kCFSocketWriteCallBack);
    Outbox::Open(client, socket.Get());
    AddToRunLoop(socket.Get());
}

// Passes on what happened to a client, and keeps its wrapper in step with what the server made of
// it.
void ForwardToServer(Server& server, CFSocketRef socket, CFSocketCallBackType type,
                     CFDataRef address, const void* data, void* info) {
    const int client = *static_cast<const int*>(info);
    if (type == kCFSocketWriteCallBack) {
        Outbox::Flush(client);
        if (!Outbox::IsWaiting(client)) {
            CFSocketEnableCallBacks(socket, kCFSocketReadCallBack);
        }
        return;
    }
    server.clientCallBack(socket, type, address, data, info);
    // Of a connection that the server has closed the wrapper is invalid, and nothing can be changed
    // about it.
    if (Outbox::IsWaiting(client)) {
        CFSocketDisableCallBacks(socket, kCFSocketReadCallBack);
    }
}

// Tells the main thread that the pressure thread's run loop can be stopped.
struct Gate {
    std::mutex mutex;
    std::condition_variable opened;
    bool open = false;

    void Open() {
        const std::lock_guard<std::mutex> lock(mutex);
        open = true;
        opened.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(mutex);
        opened.wait(lock, [this] { return open; });
    }
};

Gate& PressureThreadReady() {
    static Gate& gate = *new Gate();
    return gate;
}

void OpenGate(CFRunLoopObserverRef /*observer*/, CFRunLoopActivity /*activity*/, void* /*info*/) {
    PressureThreadReady().Open();
}

}  // namespace

int ConnectionManager::Init() {
    SeedRandom();
    commandServer = new Server();
    tabletServer = new PressureServer();
    appsCommunicationServer = new AppsCommunicationServer();
    const int commandPort = commandServer->init();
    const int pressurePort = tabletServer->init();
    const int appsPort = appsCommunicationServer->init();
    ConnectionAuthorization::WritePassKeyAndPortsFile(commandPort, pressurePort, appsPort);
    TabletManager::Init(commandServer, tabletServer);
    ServeListener(commandServer->getServerFD(), cmdServerCallBack);
    const bool servesPressure = startPressureThread();
    ServeListener(appsCommunicationServer->getServerFD(), acServerCallBack);
    TabletDetector::InitIOListeners();
    if (commandPort != -1 && pressurePort != -1 && appsPort != -1 && servesPressure) {
        return 1;
    }
    // The process is about to end: not with a thread still at work.
    stopPressureThread();
    return 0;
}

void ConnectionManager::HandleRequests() {
    RunApplicationEventLoop();
    stopPressureThread();
    commandServer->deinit(true);
    tabletServer->deinit(true);
    appsCommunicationServer->deinit(true);
    TabletManager::Unload();
}

Server* ConnectionManager::GetCommandServer() {
    return commandServer;
}

AppsCommunicationServer* ConnectionManager::GetAppsCommunicationServer() {
    return appsCommunicationServer;
}

bool ConnectionManager::startPressureThread() {
    pressureThreadStarted =
        pthread_create(&pressureThread, nullptr, PressureThreadFunction, nullptr) == 0;
    if (pressureThreadStarted) {
        PressureThreadReady().Wait();
    } else {
        Helpers::logprint("can not create pressure thread");
    }
    return pressureThreadStarted;
}

void ConnectionManager::stopPressureThread() {
    if (!pressureThreadStarted) {
        return;
    }
    CFRunLoopStop(pressureThreadRunLoop);
    pthread_join(pressureThread, nullptr);
    CFRelease(pressureThreadRunLoop);
    pressureThreadRunLoop = nullptr;
    pressureThreadStarted = false;
}

void* ConnectionManager::PressureThreadFunction(void* /*unused*/) {
    Helpers::logprint("Start pressure processing thread.");
    // Kept until the thread has been joined, which may be after its end.
    pressureThreadRunLoop = CFRunLoopGetCurrent();
    CFRetain(pressureThreadRunLoop);
    ServeListener(tabletServer->getServerFD(), tblServerCallBack);
    FlushStandardOutputBeforeWaiting();
    // A loop that has not been entered yet would miss the request to stop.
    const auto entered = CFOwner<CFRunLoopObserverRef>::Adopt(
        CFRunLoopObserverCreate(kCFAllocatorDefault, kCFRunLoopEntry, false, 0, OpenGate, nullptr));
    CFRunLoopAddObserver(pressureThreadRunLoop, entered.Get(), kCFRunLoopCommonModes);
    CFRunLoopRun();
    Helpers::logprint("End of pressure processing thread.");
    PressureThreadReady().Open();
    return nullptr;
}

void ConnectionManager::cmdServerCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                          CFDataRef address, const void* data, void* info) {
    const int client = AcceptedSocket(data);
    if (commandServer->serverCallBack(socket, type, address, data, info) == 1) {
        ServeClient(client, cmdClientCallBack);
    } else {
        close(client);
    }
}

void ConnectionManager::tblServerCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                          CFDataRef address, const void* data, void* info) {
    tabletServer->serverCallBack(socket, type, address, data, info);
    ServeClient(AcceptedSocket(data), tblClientCallBack);
}

void ConnectionManager::acServerCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                         CFDataRef address, const void* data, void* info) {
    appsCommunicationServer->serverCallBack(socket, type, address, data, info);
    ServeClient(AcceptedSocket(data), acClientCallBack);
}

void ConnectionManager::cmdClientCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                          CFDataRef address, const void* data, void* info) {
    ForwardToServer(*commandServer, socket, type, address, data, info);
}

void ConnectionManager::tblClientCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                          CFDataRef address, const void* data, void* info) {
    ForwardToServer(*tabletServer, socket, type, address, data, info);
}

void ConnectionManager::acClientCallBack(CFSocketRef socket, CFSocketCallBackType type,
                                         CFDataRef address, const void* data, void* info) {
    ForwardToServer(*appsCommunicationServer, socket, type, address, data, info);
}
