#include "loads/DeviceLoad.h"

#include <algorithm>
#include <cctype>

#include "support/Waiting.h"

namespace {

constexpr char kMaker[] = "f7e5";
constexpr std::size_t kMostDevices = 4;
const char* const kModels[] = {"7102", "7146", "0abc", "7103", "ffff", "0001"};

std::string Upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char letter) { return static_cast<char>(std::toupper(letter)); });
    return text;
}

}  // namespace

std::string DeviceLoad::List() const {
    std::string list;
    for (const auto& device : plugged) {
        list += (list.empty() ? "0X" : " 0X") + Upper(device.second);
    }
    return list;
}

void DeviceLoad::Change() {
    const auto isPlugged = [this](const std::string& model) {
        return std::any_of(plugged.begin(), plugged.end(),
                           [&](const auto& device) { return device.second == model; });
    };
    const std::string model = kModels[random.Between(0, 5)];
    const bool plugs = !isPlugged(model) && plugged.size() < kMostDevices;
    if (!plugs && plugged.empty()) {
        return;
    }
    std::string port;
    if (plugs) {
        port = "1-" + std::to_string(++lastPort);
        plugged.emplace_back(port, model);
    } else {
        const auto gone = plugged.begin() + random.Between(0, static_cast<int>(plugged.size()) - 1);
        port = gone->first;
        plugged.erase(gone);
    }
    {
        // Before it happens: the service is quick.
        const std::lock_guard<std::mutex> lock(mutex);
        lists.push_back(List());
    }
    if (plugs) {
        world.devices.Plug(port, kMaker, model);
    } else {
        world.devices.Unplug(port);
    }
    world.tally.Count("devices plugged in or out");
}

void DeviceLoad::Step() {
    if (random.OneIn(4)) {
        // Of a foreign maker: nobody is told.
        world.devices.Plug("9-9", "1234", kModels[0]);
        world.devices.Unplug("9-9");
    }
    TellAChange();
    const Deadline pause(random.Milliseconds(50, 1500));
    while (!pause.Passed() && !world.verdict.Ended()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void DeviceLoad::TellAChange() {
    Change();
    // Whoever has the key is told, and whoever gets it is told as well.
    WaitUntil(
        "the list of devices has been told",
        [this] {
            const std::lock_guard<std::mutex> lock(mutex);
            return told + 1 == lists.size() || world.verdict.Ended();
        },
        world.options.patience * 2);
}

// What is plugged in stays: it holds nothing in the service that was not there before.
void DeviceLoad::PartWithAll() {}

void DeviceLoad::Told(const std::string& list, bool isAnswerToTheKey) {
    const std::lock_guard<std::mutex> lock(mutex);
    const std::size_t next = isAnswerToTheKey ? told : told + 1;
    // Who has just come may have missed one, if it changed before that; who was there has not.
    for (std::size_t i = next; i < lists.size() && (isAnswerToTheKey || i == next); ++i) {
        if (lists[i] == list) {
            told = i;
            return;
        }
    }
    throw Failed("the devices were told as \"" + list + "\" when the list was \"" +
                 lists[std::min(next, lists.size() - 1)] + "\"");
}
