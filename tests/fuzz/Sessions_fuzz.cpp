// Whole sessions: clients of the three servers, which run as they do in the service, come, speak,
// in one piece or two, stop reading and leave, and everybody is told exactly what the rules say, or
// is closed without a word.
//
// An input is what the clients do, step by step: see Session::Play. What would do something to the
// machine is not said. A session ends with nobody connected, and leaves no descriptor behind.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Bytes.h"
#include "Client.h"
#include "Require.h"
#include "Rules.h"
#include "Surroundings.h"
#include "net/ConnectionAuthorization.h"
#include "net/ConnectionManager.h"

namespace {

enum Server : std::size_t { kCommands, kPen, kChannels, kServers };

// Stands for the pass key.
constexpr char kKeyMark = '\x01';

const std::string& Repeated() {
    static const std::string& text = *new std::string(1500, 'z');
    return text;
}

// What the clients' words are made of.
std::string_view PieceOf(std::uint8_t number) {
    static constexpr std::string_view kPieces[] = {
        "|", "|", " ", "'", "\"", "\r\n", "||", "a", "b", "c", "\xC3\xA9", "\xF0\x9F\x96\x8B",
        "\xC3",
        // The command server's.
        "auth \x01|", "auth \x01", "auth ", "authenticate '\x01'", "\x01", "\x01x|", "platform|",
        "platform", "getCoreVersion|", "createUUID|", "checkExists /|", "checkExists ",
        "dockUpdateFinished|", "getCommonUserDir|", "getLocalCountryCode|", "nonsense|",
        // The pressure server's.
        "startTablet|", "stopTablet|", "getDriverVersion|", "listenTablet x Nobody|",
        "stopListenTablet x Nobody|", "listenTablet|",
        // The channels'.
        "registerChannel a|", "registerChannel b|", "registerChannel ", "registerChannel|",
        "sendDataToChannel a data 1|", "sendDataToChannel b 'more data' 2|", "sendDataToChannel ",
        "sendDataToChannel a ", "data", " 7|",
        // Those of nobody.
        "GET / HTTP/1.1\r\nHost: a\r\n\r\n", "POST /x HTTP/1.1\r\n\r\nplatform|", "GET", " / HTTP",
        "OPTIONS * HTTP/1.0\n", "\x16\x03\x01", "\x16"};
    const std::size_t index = number % (std::size(kPieces) + 1);
    return index < std::size(kPieces) ? kPieces[index] : Repeated();
}

// The service, for as long as the process runs.
class Service {
  public:
    static const Service& Get() {
        static const Service& service = *new Service();
        return service;
    }

    std::array<int, kServers> ports = {};
    std::string key;

  private:
    Service() {
        Surroundings::Home();
        Require(ConnectionManager::Init() == 1, "the service starts");
        key = ConnectionAuthorization::GetPassKey();
        std::ifstream file(Surroundings::Home() /
                           "Library/Application Support/Velto/tesselAuth.key");
        const std::string text(std::istreambuf_iterator<char>(file), {});
        const auto port = [&text](const std::string& name) {
            return std::stoi(text.substr(text.find("<" + name + ">") + name.size() + 2));
        };
        ports = {port("commandPort"), port("pressurePort"), port("airAppsPort")};
    }
};

// What each of the process's descriptors stands for.
std::vector<std::string> OpenDescriptors() {
    std::vector<std::string> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
        // Not the one with which this is found out, and not those by which a sanitizer asks for
        // names.
        if (!gone && target.find("/fd") == target.npos && target.compare(0, 5, "pipe:") != 0) {
            open.push_back(entry.path().filename().string() + " " + target);
        }
    }
    std::sort(open.begin(), open.end());
    return open;
}

class Session {
  public:
    Session() : commands(Service::Get().key) {}

    void Play(Bytes& input) {
        const std::uint8_t step = input.TakeByte();
        std::unique_ptr<Player>& player = players[step / 8 % players.size()];
        switch (step % 8) {
            case 0:
            case 1:
                Connect(player, input.TakeByte());
                break;
            case 2: {
                const std::string words = TakeWords(input);
                Say(player, words, input.TakeByte());
                break;
            }
            case 3:
                ForgetWhoWasServedLast();
                holds = !holds;
                if (!holds) Release();
                break;
            case 4: {
                const std::string_view words = input.Take(input.TakeByte() % 64);
                Say(player, words, input.TakeByte());
                break;
            }
            case 5:
                Leave(player, input.TakeByte());
                break;
            case 6:
                // Goes on reading some time later.
                if (player) player->reads = !player->reads;
                break;
            default:
                Browse(player, input.TakeByte());
                break;
        }
        LookAtAll();
    }

    void End() {
        Release();
        for (std::unique_ptr<Player>& player : players) {
            Leave(player, 1);
            LookAtAll();
        }
        // What somebody has left unfinished would be the next session's.
        for (std::uint8_t server = 0; server < kServers; ++server) {
            if (rules[server]->pending.empty()) continue;
            Connect(players[0], server);
            Say(players[0], "|", 0);
            LookAtAll();
            Leave(players[0], 1);
            Require(rules[server]->pending.empty(), "a bar ends everything");
        }
        LookAtAll();
    }

  private:
    struct Player {
        Player(std::size_t itsServer, bool small)
            : server(itsServer), client(Service::Get().ports[itsServer], small) {}

        const std::size_t server;
        Client client;
        bool reads = true;
        bool isClosed = false;
        // What has to come, and was not looked at.
        std::vector<Answer> answers;
    };

    struct Words {
        Player* who;
        std::string text;
    };

    static std::string TakeWords(Bytes& input) {
        std::string words;
        for (int count = input.TakeByte() % 8; count >= 0; --count) {
            words += PieceOf(input.TakeByte());
        }
        return words;
    }

    ServerRules& RulesOf(const Player& player) { return *rules[player.server]; }

    void Connect(std::unique_ptr<Player>& player, std::uint8_t how) {
        Release();
        if (player) return;
        player = std::make_unique<Player>(how % kServers, how >= 128);
        const int number = player->client.ServersEnd();
        if (RulesOf(*player).Takes()) {
            Require(number != -1, "a server takes its clients");
            RulesOf(*player).Connect(number);
        } else {
            player->client.AwaitEnd();
            Require(player->client.TakeMessages().empty() && !player->client.HasRest(),
                    "whoever is turned away is told nothing");
            player.reset();
        }
    }

    // In two pieces, unless CUT says otherwise, or all at once a little later.
    void Say(std::unique_ptr<Player>& player, std::string_view text, std::uint8_t cut) {
        // One that does not read does not speak: its answers would hold up what it says.
        if (!player || !player->reads || text.empty()) return;
        const std::string said = Whole(text, player->server);
        if (holds && player->server != kPen) {
            Hold(*player, said);
        } else {
            Release();
            SayNow(*player, said, cut % said.size());
        }
    }
    // TEXT with the key, for a server.
    static std::string Whole(std::string_view text, std::size_t server) {
        std::string whole;
        for (const char character : text) {
            if (character == kKeyMark) {
                whole += Service::Get().key;
            } else {
                // The other thread may see any piece of a piece; that must not matter.
                whole += server == kPen ? static_cast<char>(character & 0x7F) : character;
            }
        }
        return whole;
    }
    void SayNow(Player& player, const std::string& said, std::size_t place) {
        const std::vector<Words> pieces = {{&player, said.substr(0, place)},
                                           {&player, said.substr(place)}};
        if (WouldHarm(pieces)) return;
        for (const Words& piece : pieces) {
            if (piece.text.empty() || player.isClosed) continue;
            RulesOf(player).Receive(player.client.ServersEnd(), piece.text);
            player.client.Send(piece.text);
            player.client.AwaitReading();
            Distribute();
        }
    }

    // Several speak before the servers come to listen: each of them is heard once, with all that he
    // has said, and in the order in which they began.
    void Hold(Player& player, const std::string& said) {
        constexpr std::size_t kMostHeld = 8192;
        const auto mine = std::find_if(held.begin(), held.end(),
                                       [&player](const Words& one) { return one.who == &player; });
        if (mine != held.end() && mine->text.size() + said.size() > kMostHeld) return;
        std::vector<Words> all = held;
        if (mine == held.end()) {
            all.push_back({&player, said});
        } else {
            all[static_cast<std::size_t>(mine - held.begin())].text += said;
        }
        if (player.isClosed || WouldHarm(all)) return;
        held = std::move(all);
        player.client.Send(said);
    }
    void Release() {
        for (const Words& words : held) {
            RulesOf(*words.who).Receive(words.who->client.ServersEnd(), words.text);
            Distribute();
        }
        for (const Words& words : held) {
            words.who->client.AwaitReading();
        }
        if (!held.empty()) ForgetWhoWasServedLast();
        held.clear();
        LookAtAll();
    }

    // The kernel keeps whoever was served last at the head of those who can be read, until it has
    // looked again. Afterwards the first to speak is the first.
    static void ForgetWhoWasServedLast() { LoopTurns::Make(2); }

    bool WouldHarm(const std::vector<Words>& all) const {
        CommandRules copy = commands;
        for (const Words& words : all) {
            if (words.who->server == kCommands && !words.text.empty()) {
                copy.Receive(words.who->client.ServersEnd(), words.text);
            }
        }
        return copy.isHarmful;
    }

    void Leave(std::unique_ptr<Player>& player, std::uint8_t how) {
        Release();
        if (!player) return;
        switch (how % 3) {
            case 0:
                player->client.Close();
                break;
            case 1:
                player->client.Reset();
                break;
            default:
                player->client.EndSending();
                break;
        }
        RulesOf(*player).Leave(player->client.ServersEnd());
        player.reset();
        Distribute();
    }

    // Whoever has said nothing yet and begins like a browser hears nothing and is closed.
    void Browse(std::unique_ptr<Player>& player, std::uint8_t how) {
        static constexpr std::string_view kLines[] = {
            "GET / HTTP/1.1\r\n", "POST / HTTP/1.1\nplatform|", "PUT /a%7Cb HTTP/2.0\r\n|",
            "\x16\x03\x01\x02", "OPTIONS * HTTP/1.1\r\nauth \x01|"};
        if (player) return;
        Connect(player, how);
        if (!player) return;
        const std::string line = Whole(kLines[how / 4 % std::size(kLines)], player->server);
        SayNow(*player, line, how / 16 % line.size());
        Require(player->isClosed && player->answers.empty(),
                "a browser is closed without an answer");
    }

    // Tells the players what the rules have for them.
    void Distribute() {
        for (std::size_t server = 0; server < kServers; ++server) {
            for (std::unique_ptr<Player>& player : players) {
                if (!player || player->server != server || player->isClosed) continue;
                const int number = player->client.ServersEnd();
                for (Answer& answer : rules[server]->answers[number]) {
                    player->answers.push_back(std::move(answer));
                }
                player->isClosed = rules[server]->closed.count(number) != 0;
            }
            rules[server]->answers.clear();
            rules[server]->closed.clear();
        }
    }

    void LookAtAll() {
        for (std::unique_ptr<Player>& player : players) {
            if (!player || (!player->reads && !player->isClosed)) continue;
            LookAt(*player);
            if (player->isClosed) player.reset();
        }
    }
    static void LookAt(Player& player) {
        player.client.Read(player.answers.size());
        if (player.isClosed) {
            player.client.AwaitEnd();
        } else {
            Require(!player.client.HasEnded(), "nobody is closed without a reason");
        }
        const std::string messages = player.client.TakeMessages();
        Require(!player.client.HasRest(), "an answer is whole");
        std::size_t from = 0;
        for (const Answer& answer : player.answers) {
            const std::size_t end = messages.find('|', from);
            Require(end != messages.npos, "every answer comes");
            Require(answer.Fits(messages.substr(from, end - from)), "an answer is the right one");
            from = end + 1;
        }
        Require(from == messages.size(), "nothing else is told");
        player.answers.clear();
    }

    std::array<std::unique_ptr<Player>, 8> players;
    // Whether the servers are kept from listening, and what they have to hear then.
    bool holds = false;
    std::vector<Words> held;
    CommandRules commands;
    PressureRules pen;
    ChannelRules channels;
    const std::array<ServerRules*, kServers> rules = {&commands, &pen, &channels};
};

void PlayAll(Bytes input) {
    constexpr int kMostSteps = 64;
    Session session;
    for (int step = 0; step < kMostSteps && !input.AreAll(); ++step) {
        session.Play(input);
    }
    session.End();
}

// What a session opens once and for all is open after this.
std::vector<std::string> Prepare() {
    static constexpr std::uint8_t kSteps[] = {0, 0, 2, 2, 13, 19, 27, 0, 8, 1, 10, 0, 31, 0};
    PlayAll(Bytes(kSteps, sizeof kSteps));
    return OpenDescriptors();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto& before = *new std::vector<std::string>(Prepare());
    PlayAll(Bytes(data, size));
    const std::vector<std::string> after = OpenDescriptors();
    for (const std::string& descriptor : after) {
        if (std::find(before.begin(), before.end(), descriptor) == before.end()) {
            std::fprintf(stderr, "Open: %s\n", descriptor.c_str());
        }
    }
    Require(after == before, "a session leaves no descriptor behind, and closes none of others");
    return 0;
}
