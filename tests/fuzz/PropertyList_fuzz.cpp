// Property lists: whatever the bytes are, they are a list or none, and a list is written and read
// back without loss.
#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CoreFoundation/PropertyList.h"
#include "Require.h"

namespace {

using frameworks::Containers;
using frameworks::Object;
using frameworks::ReadPropertyList;
using frameworks::Ref;
using frameworks::WritePropertyList;

constexpr CFPropertyListFormat kXML = kCFPropertyListXMLFormat_v1_0;
constexpr CFPropertyListFormat kBinary = kCFPropertyListBinaryFormat_v1_0;

void GoThereAndBack(const Object& list) {
    const std::optional<std::string> binary = WritePropertyList(list, kBinary);
    Require(binary.has_value(), "what was read can be written in binary");
    CFPropertyListFormat format = kXML;
    const Ref<const Object> fromBinary = ReadPropertyList(*binary, Containers::kFrozen, &format);
    Require(bool(fromBinary) && format == kBinary, "what was written in binary can be read");
    Require(CFEqual(&list, fromBinary.Get()), "binary loses nothing");
    // Dates in years without four digits, and fractions of a second, are not for XML.
    const std::optional<std::string> xml = WritePropertyList(list, kXML);
    if (!xml) return;
    const Ref<const Object> fromXML = ReadPropertyList(*xml, Containers::kMutable, &format);
    Require(bool(fromXML) && format == kXML, "what was written in XML can be read");
    Require(WritePropertyList(*fromXML.Get(), kXML) == xml, "XML loses nothing the second time");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
    const Ref<const Object> list = ReadPropertyList(
        std::string_view(reinterpret_cast<const char*>(data), size), Containers::kFrozen, &format);
    if (!list) {
        Require(format == kCFPropertyListOpenStepFormat, "what is no list has no format");
        return 0;
    }
    GoThereAndBack(*list);
    const Ref<const Object> copy = frameworks::CopyPropertyList(*list);
    Require(bool(copy) && CFEqual(copy.Get(), list.Get()), "a copy is equal");
    return 0;
}
