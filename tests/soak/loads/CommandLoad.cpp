#include "loads/CommandLoad.h"

#include <sys/stat.h>
#include <algorithm>

#include "support/Files.h"
#include "support/Waiting.h"

namespace fs = std::filesystem;

namespace {

constexpr char kDevices[] = "CurrentAttachedDevices=";
constexpr char kCommon[] = "/Users/Shared/Velto/";

bool BeginsWith(const std::string& text, const std::string& beginning) {
    return text.compare(0, beginning.size(), beginning) == 0;
}

}  // namespace

CommandLoad::CommandLoad(World& itsWorld, DeviceLoad& itsDevices)
    : Worker(itsWorld, "commands"), devices(itsDevices), packages(MakePackages(world.sandbox)) {
    world.sandbox.MakeUsersFile(std::string(kCommon) + "file", "");
}

void CommandLoad::Step() {
    if (!talk) {
        Come();
    } else if (--stepsLeft <= 0) {
        Go();
    } else if (random.OneIn(60)) {
        InstallAndRemove();
    } else if (random.OneIn(20)) {
        Intrude();
    } else if (random.OneIn(4)) {
        AskManyAtOnce();
    } else if (random.OneIn(5)) {
        AskForUUID();
    } else {
        Ask(AnyQuestion());
        std::this_thread::sleep_for(random.Milliseconds(0, 20));
    }
}

void CommandLoad::PartWithAll() {
    if (talk) {
        talk.End(Farewell::kHalfClose);
        talk = Talk();
    }
}

void CommandLoad::Come() {
    // The first has both, so that a short run has had them.
    const bool isFirst = world.tally.Of("command clients") == 0;
    if (isFirst || random.OneIn(4)) {
        TryWrongKey();
    }
    if (isFirst || random.OneIn(4)) {
        BreakTheKeyOff();
    }
    const KeyFile& keys = world.service->Keys();
    const Deadline deadline(world.options.patience);
    while (!talk) {
        const BetweenDoors between(world.doors);
        authorized = false;
        Talk made(world, keys.commandPort, "commands", [this](const std::string& message) {
            if (!BeginsWith(message, kDevices)) {
                return BeginsWith(message, "PenData.");
            }
            devices.Told(message.substr(sizeof kDevices - 1), !authorized);
            authorized = true;
            return true;
        });
        try {
            if (made.Ask("auth " + keys.key) != "authOk") {
                throw Failed("the key was not accepted");
            }
            talk = std::move(made);
        } catch (const Talk::Ended&) {
            // Closed unread, as long as the service has not noticed that the last one has gone.
            if (deadline.Passed()) {
                throw;
            }
        }
    }
    // The first list comes by itself, behind the answer to the key.
    Ask(AnyQuestion());
    if (!authorized) {
        throw Failed("who presented the key was not told the devices");
    }
    stepsLeft = random.Between(1, 200);
    world.tally.Count("command clients");
}

void CommandLoad::Go() {
    const auto farewell =
        random.Of(std::vector<Farewell>{Farewell::kClose, Farewell::kReset, Farewell::kHalfClose});
    if (random.OneIn(2)) {
        // With answers under way.
        talk.Send("platform|getCoreVersion|");
    }
    const bool broken = random.OneIn(2);
    if (broken) {
        talk.Send("plat");
    }
    talk.End(farewell);
    talk = Talk();
    world.tally.Count("fault: command clients that went at once");
    if (broken) {
        EndWhatWasBrokenOff();
    }
}

// A whole key that is not the one: closed without a word. So is a bar behind whatever somebody has
// left unfinished, and the connection before may not have been noticed to be gone: all three look
// the same.
void CommandLoad::TryWrongKey() {
    const BetweenDoors between(world.doors);
    std::string wrong = world.service->Keys().key;
    wrong[static_cast<std::size_t>(random.Between(1, 36))] ^= 1;
    Talk guest(world, world.service->Keys().commandPort, "commands",
               [](const std::string& message) { return BeginsWith(message, "PenData."); });
    try {
        guest.Send("auth " + wrong + "|platform|");
    } catch (const Talk::Ended&) {
    }
    guest.ExpectClosed();
    world.tally.Count("fault: wrong keys");
}

// In the middle of the key, unless the service has not noticed yet that the last one has gone, and
// does not listen.
void CommandLoad::BreakTheKeyOff() {
    {
        const BetweenDoors between(world.doors);
        Talk guest(world, world.service->Keys().commandPort, "commands",
                   [](const std::string&) { return true; });
        try {
            guest.Send(world.service->Keys().key.substr(
                0, static_cast<std::size_t>(random.Between(1, 38))));
            guest.End(random.Of(std::vector<Farewell>{Farewell::kReset, Farewell::kHalfClose}));
        } catch (const Talk::Ended&) {
        }
    }
    EndWhatWasBrokenOff();
}

// What somebody has left unfinished spoils the next key, and that client is closed for it. Whoever
// is still kept out because the last one has not been noticed to be gone is closed as well, so it
// is tried until a key is accepted.
void CommandLoad::EndWhatWasBrokenOff() {
    const KeyFile& keys = world.service->Keys();
    const Deadline deadline(world.options.patience);
    for (bool accepted = false; !accepted;) {
        GoesOn();
        const BetweenDoors between(world.doors);
        Talk guest(world, keys.commandPort, "commands", [this](const std::string& message) {
            if (BeginsWith(message, kDevices)) {
                devices.Told(message.substr(sizeof kDevices - 1), true);
            }
            return message != "authOk";
        });
        try {
            accepted = guest.Ask("auth " + keys.key) == "authOk";
            guest.End(Farewell::kReset);
        } catch (const Talk::Ended&) {
            if (deadline.Passed()) {
                throw;
            }
        }
    }
    world.tally.Count("fault: messages broken off, commands");
}

// Nobody else is heard while somebody is authorized.
void CommandLoad::Intrude() {
    const BetweenDoors between(world.doors);
    Talk guest(world, world.service->Keys().commandPort, "commands",
               [](const std::string& message) { return BeginsWith(message, "PenData."); });
    try {
        guest.Send("auth " + world.service->Keys().key + "|platform|");
    } catch (const Talk::Ended&) {
    }
    guest.ExpectClosed();
    world.tally.Count("fault: intruders");
}

CommandLoad::Question CommandLoad::AnyQuestion() {
    const std::string number = std::to_string(++lastNumber);
    const std::string file = std::string(kCommon) + "file";
    switch (random.Between(1, 14)) {
        case 1:
            return {"platform", {"Success MACOSX"}};
        case 2:
            return {"getCoreVersion", {"Success CoreVersion=2.07.0"}};
        case 3:
            return {"checkExists /Users/Shared/none-" + number, {"False"}, false, {"True"}};
        case 4:
            return {"checkExists " + file, {"True"}};
        case 5:
            // Recognised by its number, as are the next ones.
            return {"isNativeAppInstalled n" + number + " com.example.none",
                    {"Success NativeAppIsNotInstalled=n" + number}};
        case 6:
            return {"isAirAppInstalled n" + number + " com.example.none",
                    {"Success AirAppIsNotInstalled=n" + number}};
        case 7:
            return {"startNativeApplication n" + number + " com.example.none",
                    {"Success NativeAppIsNotStarted=n" + number}};
        case 8:
            return {"noSuchCommand" + number + " x", {"SyntaxError Unknown command - "}, true};
        case 9:
            return {"fixFilePermissions " + file, {"Success FilePermissionsFixed=" + file}};
        case 10:
            return {"createUUID " + number,
                    {"SyntaxError Wrong number of arguments, expected: 0 - "},
                    true};
        case 11:
            return {"userCanAdministerAirApps",
                    {"Success UserCanAdministerAirApps=false",
                     "Success UserCanAdministerAirApps=true"}};
        case 12:
            return {"getCommonUserDir", {std::string("Success CommonUserDir=") + kCommon}};
        case 13:
            return {"associateFileTypes soak" + std::to_string(lastNumber % 20),
                    {"True"},
                    false,
                    {"False"}};
        default:
            return {"unassociateFileTypes soak" + std::to_string(lastNumber % 20),
                    {"True", "False"}};
    }
}

void CommandLoad::Check(const Question& question, const std::string& answer, Weather::Mark asked) {
    world.tally.Count("commands answered");
    const bool isRight = std::any_of(
        question.answers.begin(), question.answers.end(), [&](const std::string& right) {
            return question.isBeginning ? BeginsWith(answer, right) : answer == right;
        });
    if (isRight) {
        return;
    }
    const bool isRefusal =
        std::any_of(question.refusals.begin(), question.refusals.end(),
                    [&](const std::string& refusal) { return BeginsWith(answer, refusal); });
    if (!isRefusal || world.weather.FairSince(asked)) {
        throw Failed("\"" + question.text + "\" was answered \"" + answer + "\" and not \"" +
                     question.answers[0] + "\"");
    }
    world.tally.Count("commands refused in a fault");
}

std::string CommandLoad::Ask(const Question& question) {
    GoesOn();
    const Weather::Mark asked = world.weather.Now();
    const std::string answer = talk.Ask(question.text);
    Check(question, answer, asked);
    return answer;
}

void CommandLoad::AskManyAtOnce() {
    std::vector<Question> questions;
    std::string packet;
    for (int i = random.Between(2, 20); i > 0; --i) {
        questions.push_back(AnyQuestion());
        packet += questions.back().text + "|";
    }
    const Weather::Mark asked = world.weather.Now();
    talk.Send(packet);
    for (const Question& question : questions) {
        GoesOn();
        Check(question, talk.Receive(), asked);
    }
}

void CommandLoad::AskForUUID() {
    const std::string answer = Ask({"createUUID", {"Success UUID={"}, true});
    if (answer.size() != 51 || !uuids.insert(answer).second) {
        throw Failed("not a new UUID: " + answer);
    }
}

bool CommandLoad::IsThere(const Package& package) {
    const std::string yes = "Success NativeAppIsInstalled=" + package.name;
    return Ask({"isNativeAppInstalled " + package.name + " " + package.identifier,
                {yes, "Success NativeAppIsNotInstalled=" + package.name}}) == yes;
}

bool CommandLoad::Remove(const Package& package) {
    const std::string done = "Success NativeAppUninstallStarted=" + package.name;
    return Ask({"uninstallNativeApp " + package.name + " " + package.identifier,
                {done},
                false,
                {"Success NativeAppUninstallFailed=" + package.name}}) == done;
}

void CommandLoad::InstallAndRemove() {
    const Package& package = random.Of(packages);
    const std::string words = package.name + " " + package.identifier + " ";
    const bool air = random.OneIn(2);
    bool isWhole = false;
    {
        // An AIR application that is not there after its installation is waited for for 100
        // seconds.
        std::shared_lock<std::shared_mutex> fair(world.weather.NeedsFairWeather(), std::defer_lock);
        if (air) {
            fair.lock();
        }
        const Weather::Mark asked = world.weather.Now();
        const std::string kind = air ? "Air" : "Native";
        Ask({"install" + kind + "App " + words + (air ? package.air : package.native),
             {"Success " + kind + "AppInstallStarted=" + package.name},
             false,
             {"Success " + kind + "AppInstallFailed=" + package.name}});
        isWhole = IsThere(package);
        if (!isWhole && world.weather.FairSince(asked)) {
            throw Failed(package.name + " was installed and is not there");
        }
        world.tally.Count("installations");
    }
    // It is removed whatever became of it, for good when nothing keeps the service from it.
    const Deadline deadline(world.options.patience * 6);
    for (;;) {
        const Weather::Mark asked = world.weather.Now();
        isWhole = Remove(package) && isWhole;
        const bool there = IsThere(package);
        if (world.weather.FairSince(asked)) {
            if (!isWhole) {
                // What is left of an installation or a removal that could not be finished, and was
                // answered so, may be no application any more that anybody knows.
                fs::remove_all(world.sandbox.Outside(package.asAir));
                fs::remove_all(world.sandbox.Outside(package.asNative));
            }
            const bool lies = fs::exists(world.sandbox.Outside(package.asAir)) ||
                              fs::exists(world.sandbox.Outside(package.asNative));
            if (there || lies) {
                throw Failed(package.name + " was removed and is still there" +
                             (there ? ", as the service says" : " on the disk"));
            }
            break;
        }
        if (deadline.Passed()) {
            throw Failed(package.name + " cannot be removed");
        }
    }
    world.tally.Count("removals");
}
