#include <IOKit/IOKitLib.h>

#include <cstring>
#include <new>

#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Number.h"
#include "CoreFoundation/String.h"
#include "IOKit/ObjectTable.h"
#include "IOKit/Registry.h"

using frameworks::Checked;
using frameworks::Misuse;
using frameworks::ObjectTable;
using frameworks::Ref;
using frameworks::Registry;

const mach_port_t kIOMasterPortDefault = 0;

namespace {

frameworks::Immortal<__CFString> classKey("IOProviderClass");
constexpr std::string_view kEveryService = "IOService";

// Whether MATCHING asks for every service there is, and for nothing more of it.
bool MatchesAll(const __CFDictionary& matching) {
    if (matching.Entries().size() != 1) return false;
    const auto* const value =
        static_cast<CFTypeRef>(matching.Find(classKey.Get(), "IOServiceAddMatchingNotification"));
    return value != nullptr && CFGetTypeID(value) == CFStringGetTypeID() &&
           static_cast<CFStringRef>(value)->Text() == kEveryService;
}

}  // namespace

IONotificationPortRef IONotificationPortCreate(mach_port_t /*masterPort*/) {
    try {
        return &Registry::OfThisThread().NewPort();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef notify) {
    if (notify == nullptr) Misuse("IONotificationPortGetRunLoopSource", "the port is null");
    return notify->registry;
}

CFMutableDictionaryRef IOServiceMatching(const char* name) {
    if (name == nullptr) Misuse("IOServiceMatching", "the name is null");
    try {
        const Ref<__CFString> className = __CFString::Make(name);
        if (!className) return nullptr;
        auto matching = Ref<__CFDictionary>::Adopt(
            new __CFDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        matching->Set(classKey.Get(), className.Get(), "IOServiceMatching");
        return matching.Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef notifyPort,
                                               const io_name_t notificationType,
                                               CFDictionaryRef matching,
                                               IOServiceMatchingCallback callback, void* refCon,
                                               io_iterator_t* notification) {
    const char* const call = "IOServiceAddMatchingNotification";
    if (notifyPort == nullptr) Misuse(call, "the port is null");
    if (notificationType == nullptr) Misuse(call, "the type is null");
    if (callback == nullptr) Misuse(call, "there is nothing to call");
    if (notification == nullptr) Misuse(call, "there is no place for the iterator");
    const auto owner = Ref<const __CFDictionary>::Adopt(&Checked<__CFDictionary>(matching, call));
    *notification = IO_OBJECT_NULL;
    Registry::Wanted wanted;
    if (std::strcmp(notificationType, kIOFirstMatchNotification) == 0) {
        wanted = Registry::Wanted::kArrivals;
    } else if (std::strcmp(notificationType, kIOTerminatedNotification) == 0) {
        wanted = Registry::Wanted::kDepartures;
    } else {
        return kIOReturnUnsupported;
    }
    try {
        *notification =
            notifyPort->registry->AddNotification(wanted, MatchesAll(*owner), callback, refCon);
        return kIOReturnSuccess;
    } catch (const std::bad_alloc&) {
        return kIOReturnNoMemory;
    }
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
    ObjectTable& table = ObjectTable::Get();
    const ObjectTable::Iterator object = table.IteratorOf(iterator);
    if (!object) return IO_OBJECT_NULL;
    ObjectTable::Entry entry = object->Next();
    if (!entry) return IO_OBJECT_NULL;
    try {
        return table.Add(std::move(entry));
    } catch (const std::bad_alloc&) {
        return IO_OBJECT_NULL;
    }
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef /*allocator*/, IOOptionBits /*options*/) {
    const __CFString& name = Checked<__CFString>(key, "IORegistryEntryCreateCFProperty");
    const ObjectTable::Entry object = ObjectTable::Get().EntryOf(entry);
    const std::optional<int> value = object ? object->Property(name.Text()) : std::optional<int>();
    return value ? new (std::nothrow) __CFNumber(SInt64{*value}) : nullptr;
}

kern_return_t IOObjectRelease(io_object_t object) {
    return ObjectTable::Get().Remove(object) ? kIOReturnSuccess : kIOReturnBadArgument;
}
