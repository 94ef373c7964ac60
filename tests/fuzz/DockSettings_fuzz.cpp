// The dock's settings: they ask for the dock to be started when its words stand in the first 10,000
// bytes, before a NUL.
//
// An input is a byte that says how far down it is, in steps of 64 bytes, and what stands there.
#include <cstdint>
#include <string>
#include <string_view>

#include "Bytes.h"
#include "Require.h"
#include "Surroundings.h"
#include "tablet/TabletDetector.h"

namespace {

constexpr char kSettings[] =
    "Library/Preferences/veltoid-desktop-launcher.5E2A91C07B3D48F6A0C1E9D27F84B3A6C05D1E98.1/"
    "Local Store/default/xml/usersSettings.xml";

bool Asks(const std::string& settings) {
    const std::string read = settings.substr(0, 10000);
    return read.substr(0, read.find('\0')).find("<autostart>true</autostart>") != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Surroundings::File& file = *new Surroundings::File(kSettings);
    Bytes input(data, size);
    std::string settings(std::size_t{64} * input.TakeByte(), ' ');
    settings += input.TakeAll();
    file.Hold(settings);
    Require(TabletDetector::IsStartOnAttachEnabled() == Asks(settings),
            "the dock is started if its settings say so, and then only");
    return 0;
}
