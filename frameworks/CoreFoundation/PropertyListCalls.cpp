#include <CoreFoundation/CFPropertyList.h>

#include <algorithm>
#include <new>
#include <optional>
#include <string>

#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/Stream.h"
#include "CoreFoundation/String.h"
#include "CoreFoundation/UnreadFiles.h"
#include "Desktop/Mirror.h"

using frameworks::AnyObject;
using frameworks::CheckedMutable;
using frameworks::Containers;
using frameworks::Misuse;
using frameworks::NoteReading;
using frameworks::Object;
using frameworks::Reading;
using frameworks::Ref;

namespace {

void TellReason(CFStringRef* errorString, const char* reason) {
    if (errorString != nullptr) {
        *errorString = __CFString::Make(reason).Leak();
    }
}

Ref<const Object> ReadFrom(__CFReadStream& stream, CFIndex streamLength, Containers containers,
                           CFPropertyListFormat* format) {
    // One byte more than is allowed, to see that there is too much.
    constexpr std::size_t kMost = frameworks::kLargestPropertyList + 1;
    const std::optional<std::string> bytes = stream.Read(
        streamLength == 0 ? kMost : std::min(static_cast<std::size_t>(streamLength), kMost));
    if (!bytes) return Ref<const Object>();
    Ref<const Object> list = frameworks::ReadPropertyList(*bytes, containers, format);
    NoteReading(stream.Path(), list ? Reading::kDone : Reading::kRefused);
    return list;
}

CFIndex WriteTo(__CFWriteStream& stream, const Object& list, CFPropertyListFormat format,
                CFStringRef* errorString) {
    const std::optional<std::string> bytes = frameworks::WritePropertyList(list, format);
    if (!bytes) {
        TellReason(errorString, "This is no property list of that format.");
        return 0;
    }
    if (!stream.Replace(*bytes)) {
        TellReason(errorString, "The file cannot be written.");
        return 0;
    }
    frameworks::MirrorPropertyList(stream.Path(), list);
    return static_cast<CFIndex>(bytes->size());
}

}  // namespace

CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef, CFReadStreamRef stream,
                                                 CFIndex streamLength,
                                                 CFOptionFlags mutabilityOption,
                                                 CFPropertyListFormat* format,
                                                 CFStringRef* errorString) {
    constexpr const char* kCall = "CFPropertyListCreateFromStream";
    __CFReadStream& source = CheckedMutable<__CFReadStream>(stream, kCall);
    if (streamLength < 0) {
        Misuse(kCall, "the length " + std::to_string(streamLength) + " is negative");
    }
    const Containers containers =
        mutabilityOption == kCFPropertyListImmutable ? Containers::kFrozen : Containers::kMutable;
    try {
        Ref<const Object> list = ReadFrom(source, streamLength, containers, format);
        if (!list) {
            TellReason(errorString, "The stream holds no property list.");
        }
        return list.Leak();
    } catch (const std::bad_alloc&) {
        NoteReading(source.Path(), Reading::kFailed);
        return nullptr;
    }
}

CFIndex CFPropertyListWriteToStream(CFPropertyListRef propertyList, CFWriteStreamRef stream,
                                    CFPropertyListFormat format, CFStringRef* errorString) {
    constexpr const char* kCall = "CFPropertyListWriteToStream";
    const Object& list = AnyObject(propertyList, kCall);
    __CFWriteStream& target = CheckedMutable<__CFWriteStream>(stream, kCall);
    try {
        return WriteTo(target, list, format, errorString);
    } catch (const std::bad_alloc&) {
        return 0;
    }
}
