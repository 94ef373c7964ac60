// Event devices that are not there: what they answer to those who open them.
#pragma once

#include <linux/input.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "TemporaryFolder.h"
#include "Testbed.h"

// The answers of an event device, in umockdev's words: the name of the question, what the call
// returns, and the bytes.
class Answers {
  public:
    template <typename T>
    void Add(const std::string& question, int result, const T& bytes) {
        text << question << " " << result << " ";
        for (const char byte : bytes) {
            char hex[3];
            std::snprintf(hex, sizeof hex, "%02X", static_cast<unsigned char>(byte));
            text << hex;
        }
        text << "\n";
    }
    template <typename T>
    void AddStruct(const std::string& question, const T& value) {
        const auto* const bytes = reinterpret_cast<const char*>(&value);
        Add(question, 0, std::string(bytes, sizeof value));
    }
    void AddBits(const std::string& question, std::size_t size, const std::vector<int>& bits) {
        std::string bytes(size, '\0');
        for (const int bit : bits) {
            char& byte = bytes[static_cast<std::size_t>(bit) / 8];
            byte = static_cast<char>(byte | 1 << bit % 8);
        }
        Add(question, static_cast<int>(size), bytes);
    }
    void AddText(const std::string& question, const std::string& answer) {
        std::string bytes = answer;
        bytes.resize(255);
        Add(question, static_cast<int>(answer.size()) + 1, bytes);
    }

    std::string Text() const { return text.str(); }

  private:
    std::ostringstream text;
};

struct Model {
    std::string name = "Test Tablet";
    std::uint16_t vendor = 0xf7e5;
    std::uint16_t product = 0x7102;
    bool hasPen = true;
    std::vector<int> keysThatAreDown = {};
    int x = 0;
};

// A device among those of BED, whose answers are kept in FILES; its folder in /sys.
inline std::string AddEventDevice(Testbed& bed, const TemporaryFolder& files, int number,
                                  const Model& model = {}) {
    const std::string event = "event" + std::to_string(number);
    const std::vector<int> keys =
        model.hasPen ? std::vector<int>{BTN_TOOL_PEN, BTN_TOOL_RUBBER, BTN_TOUCH, BTN_STYLUS}
                     : std::vector<int>{BTN_LEFT, BTN_RIGHT};
    const std::string input = "/devices/usb/input/input" + std::to_string(number);
    const std::string folder = input + "/" + event;
    bed.AddRecord("P: " + folder + "\nN: input/" + event + "\nE: DEVNAME=/dev/input/" + event +
                  "\nE: SUBSYSTEM=input\nA: dev=13:" + std::to_string(64 + number) +
                  "\nL: device=../../input" + std::to_string(number) + "\n\nP: " + input +
                  "\nE: SUBSYSTEM=input\nA: name=" + model.name + "\\n" +
                  "\nA: capabilities/key=" + (model.hasPen ? "c03 0 0 0 0 0" : "30000 0 0 0 0") +
                  "\\n\nA: capabilities/abs=1000003\\n\n");
    Answers answers;
    answers.AddBits("EVIOCGBIT(0)", 8, {EV_SYN, EV_KEY, EV_ABS});
    answers.AddText("EVIOCGNAME(0)", model.name);
    answers.AddStruct("EVIOCGID", input_id{BUS_USB, model.vendor, model.product, 1});
    answers.AddStruct("EVIOCGVERSION", 0x010001);
    answers.AddBits("EVIOCGPROP(0)", 8, {INPUT_PROP_POINTER});
    answers.AddBits("EVIOCGBIT(1)", 96, keys);
    answers.AddBits("EVIOCGBIT(3)", 8, {ABS_X, ABS_Y, ABS_PRESSURE});
    for (const int type : {EV_REL, EV_MSC, EV_SW, EV_LED, EV_SND}) {
        answers.AddBits("EVIOCGBIT(" + std::to_string(type) + ")", 8, {});
    }
    answers.AddBits("EVIOCGBIT(21)", 16, {});
    answers.AddBits("EVIOCGKEY(0)", 96, model.keysThatAreDown);
    answers.AddBits("EVIOCGLED(0)", 8, {});
    answers.AddBits("EVIOCGSW(0)", 8, {});
    answers.AddStruct("EVIOCGABS(0)", input_absinfo{model.x, 0, 100, 0, 0, 10});
    answers.AddStruct("EVIOCGABS(1)", input_absinfo{0, 0, 50, 0, 0, 10});
    answers.AddStruct("EVIOCGABS(24)", input_absinfo{0, 0, 1000, 0, 0, 0});
    bed.LoadIoctl("/dev/input/" + event, files.Write(event, answers.Text()).string());
    return "/sys" + folder;
}
