// The maker's tablets, by their numbers on the USB: one vendor and 39 models. Invented for this
// maker, and clear of the numbers in public use as far as could be found.
#pragma once

#include <cstdint>

constexpr int kTabletVendor = 0xF7E5;

constexpr std::uint32_t TesselTabletIDs[] = {
    0x7101, 0x7102, 0x7103, 0x7104, 0x7105, 0x7106, 0x7107, 0x7108,  // the first series, A6 to A3
    0x7110, 0x7111, 0x7112, 0x7113, 0x7114, 0x7115, 0x7116, 0x7117,  // the second series
    0x7120, 0x7121, 0x7122, 0x7123, 0x7124, 0x7125, 0x7126, 0x7127,  // the wireless series
    0x7130, 0x7131, 0x7132, 0x7133, 0x7134, 0x7135, 0x7136, 0x7137,  // the touch series
    0x7140, 0x7141, 0x7142, 0x7143, 0x7144, 0x7145, 0x7146,          // pen displays
};
static_assert(sizeof TesselTabletIDs / sizeof TesselTabletIDs[0] == 39, "the maker has 39 models");

constexpr bool IsKnownTablet(int product) {
    for (const std::uint32_t id : TesselTabletIDs) {
        if (id == static_cast<std::uint32_t>(product)) {
            return true;
        }
    }
    return false;
}
