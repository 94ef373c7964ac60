#include "support/WebPage.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <csignal>
#include <filesystem>

#include "support/Files.h"
#include "support/Waiting.h"

namespace {

constexpr char kBrowser[] = "/usr/lib/chromium/chromium-headless-shell";
constexpr char kProfile[] = "/tmp/browser";
constexpr char kDone[] = "GET /done ";
constexpr char kTlsHandshake = '\x16';
// With sanitizers the service is slow, and so is the browser that waits for it.
constexpr std::chrono::seconds kPagesPatience{kSanitized ? 150 : 90};

// What stands in place of "@PORTS" and "@TIMES" is filled in. A body with line ends, commands for
// each of the servers, and the beginning of one more; a target with bars, which the browser leaves
// as they are. The name "evil.example" is any site's whose name leads to 127.0.0.1: there the page
// is at home, and chooses its methods and headers freely.
constexpr char kPage[] = R"(<!DOCTYPE html><body><script>
const words = 'evilWord|startTablet|registerChannel evilChannel|platform|auth x|';
const body = '\n' + words + '\r\n' + words + 'evilWo';
const target = '/|evilWord|?|evilWord|startTablet|';
const no = () => {};
const shapes = {
  fetch: (port, i) => fetch('http://127.0.0.1:' + port + target + 'fetch',
    i % 2 ? {mode: 'no-cors'}
          : {mode: 'no-cors', method: 'POST', body: i ? body : body.repeat(4000)}).catch(no),
  form: port => new Promise(done => {
    const frame = document.createElement('iframe');
    frame.name = 'frame' + Math.random();
    document.body.append(frame);
    const form = document.createElement('form');
    form.method = 'post';
    form.enctype = 'text/plain';
    form.target = frame.name;
    form.action = 'http://127.0.0.1:' + port + target + 'form';
    const field = document.createElement('textarea');
    field.name = words;
    field.value = body;
    form.append(field);
    document.body.append(form);
    frame.onload = () => { frame.remove(); form.remove(); done(); };
    form.submit();
  }),
  webSocket: port => new Promise(done => {
    new WebSocket('ws://127.0.0.1:' + port + target + 'webSocket',
      ['|evilWord|', 'startTablet|']).onclose = done;
  }),
  hostName: (port, i) => fetch('http://evil.example:' + port + target + 'hostName' +
      (i == 1 ? 'x'.repeat(100000) : ''),
    {method: i % 4 ? 'evilWord|' : 'PUT', headers: {'x-evil': words}, body: body}).catch(no),
  tls: (port, i) => i % 10
    ? fetch('https://127.0.0.1:' + port + '/', {mode: 'no-cors'}).catch(no)
    : new Promise(done => { new WebSocket('wss://127.0.0.1:' + port + '/').onclose = done; }),
};
const sendAll = (name, port) =>
  Promise.all(Array.from({length: @TIMES}, (_, i) => shapes[name](port, i)));
const ports = [@PORTS];
(async () => {
  const others = Object.keys(shapes).filter(name => name != 'webSocket');
  const all = ports.flatMap(port => others.map(name => sendAll(name, port)));
  // A browser refuses to open more than 255 at a time.
  for (let i = 0; i < ports.length; i += 2) {
    await Promise.all(ports.slice(i, i + 2).map(port => sendAll('webSocket', port)));
  }
  await Promise.all(all);
  fetch('/done');
})();
</script>)";

void Fill(std::string& text, const std::string& mark, const std::string& value) {
    text.replace(text.find(mark), mark.size(), value);
}

int PortOf(const Descriptor& listener) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    if (getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw Failed("a listener without a port");
    }
    return ntohs(address.sin_port);
}

bool IsOfShape(const std::string& bytes, Shape shape) {
    const std::string line = bytes.substr(0, bytes.find('\r'));
    switch (shape) {
        case Shape::kFetch:
            return Contains(line, "|fetch HTTP/");
        case Shape::kForm:
            return Contains(line, "|form HTTP/");
        case Shape::kWebSocket:
            return Contains(line, "|webSocket HTTP/");
        case Shape::kHostName:
            return Contains(line, "|hostName");
        case Shape::kTls:
            return bytes.rfind("\x16\x03", 0) == 0;
    }
    return false;
}

}  // namespace

bool WebPage::CanBeOpened() {
    return std::filesystem::exists(kBrowser);
}

WebPage::WebPage(Sandbox& itsSandbox, const std::vector<int>& ports, int times)
    : sandbox(itsSandbox), text(kPage), page(sandbox.Listen()), witness(sandbox.Listen()) {
    std::string list = std::to_string(PortOf(witness));
    for (const int port : ports) {
        list += ", " + std::to_string(port);
    }
    Fill(text, "@TIMES", std::to_string(times));
    Fill(text, "@PORTS", list);
    for (const Descriptor* const listener : {&page, &witness}) {
        fcntl(listener->Get(), F_SETFL, O_NONBLOCK);
    }
    server = std::thread([this] { Serve(); });
}

WebPage::~WebPage() {
    stopping = true;
    server.join();
}

void WebPage::Open() {
    Program browser;
    browser.path = kBrowser;
    browser.arguments = {kBrowser, "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                         // Worse than a browser is by itself: pages are at home everywhere.
                         "--disable-web-security",
                         "--host-resolver-rules=MAP evil.example 127.0.0.1",
                         std::string("--user-data-dir=") + kProfile,
                         "http://127.0.0.1:" + std::to_string(PortOf(page)) + "/"};
    browser.environment = {{"HOME", kProfile}, {"PATH", "/usr/bin:/bin"}};
    const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC));
    const std::filesystem::path said = sandbox.Aside("browser.txt");
    const Descriptor output(open(said.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    const pid_t pid = sandbox.Start(browser, nothing.Get(), output.Get(), output.Get());
    bool ended = false;
    const auto hasEnded = [&] { return ended = ended || sandbox.StatusIfEnded(pid).has_value(); };
    WaitUntil(
        "the page is done",
        [&] {
            if (hasEnded()) {
                throw Failed("the browser ended by itself: " + LastLines(ReadFile(said), 20));
            }
            return done.load();
        },
        kPagesPatience);
    sandbox.Kill(pid, SIGTERM);
    WaitUntil("the browser has ended", hasEnded);
}

std::vector<std::string> WebPage::Arrived(Shape shape) const {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::string> of;
    for (const std::string& bytes : arrived) {
        if (IsOfShape(bytes, shape)) {
            of.push_back(bytes);
        }
    }
    return of;
}

void WebPage::Serve() {
    std::vector<Visitor> visitors;
    while (!stopping) {
        std::vector<pollfd> waited = {{page.Get(), POLLIN, 0}, {witness.Get(), POLLIN, 0}};
        for (const Visitor& visitor : visitors) {
            waited.push_back({visitor.connection.Get(), POLLIN, 0});
        }
        poll(waited.data(), waited.size(), 100);
        for (std::size_t i = waited.size(); i-- > 2;) {
            Visitor& visitor = visitors[i - 2];
            if (waited[i].revents != 0 && !Read(visitor)) {
                Finish(visitor);
                visitors.erase(visitors.begin() + static_cast<std::ptrdiff_t>(i - 2));
            }
        }
        for (std::size_t i = 0; i < 2; ++i) {
            if (waited[i].revents != 0) {
                Accept(i == 0 ? page : witness, visitors);
            }
        }
    }
}

void WebPage::Accept(const Descriptor& listener, std::vector<Visitor>& visitors) const {
    Descriptor connection(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection) {
        visitors.push_back({std::move(connection), &listener == &page, ""});
    }
}

bool WebPage::Read(Visitor& visitor) const {
    char piece[65536];
    const ssize_t count = recv(visitor.connection.Get(), piece, sizeof piece, 0);
    if (count <= 0) {
        return false;
    }
    visitor.bytes.append(piece, static_cast<std::size_t>(count));
    const bool isHandshake = visitor.bytes[0] == kTlsHandshake;
    return !isHandshake && visitor.bytes.find("\r\n\r\n") == std::string::npos;
}

void WebPage::Finish(Visitor& visitor) {
    if (visitor.ofPage) {
        AnswerAsPage(visitor);
        return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    arrived.push_back(std::move(visitor.bytes));
}

void WebPage::AnswerAsPage(const Visitor& visitor) {
    const std::string answer = visitor.bytes.rfind("GET / ", 0) == 0 ? text : "";
    const std::string response =
        "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nConnection: close\r\nContent-Length: " +
        std::to_string(answer.size()) + "\r\n\r\n" + answer;
    static_cast<void>(
        send(visitor.connection.Get(), response.data(), response.size(), MSG_NOSIGNAL));
    if (visitor.bytes.rfind(kDone, 0) == 0) {
        done = true;
    }
}
