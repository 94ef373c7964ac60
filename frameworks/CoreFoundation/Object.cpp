#include "CoreFoundation/Object.h"

#include <cstdio>
#include <cstdlib>

#include "Support/StandardError.h"

namespace frameworks {

const Type kStringType{1, "CFString"};
const Type kDataType{2, "CFData"};
const Type kArrayType{3, "CFArray"};
const Type kDictionaryType{4, "CFDictionary"};
const Type kNumberType{5, "CFNumber"};
const Type kBooleanType{6, "CFBoolean"};
const Type kURLType{7, "CFURL"};
const Type kRunLoopType{8, "CFRunLoop"};
const Type kRunLoopSourceType{9, "CFRunLoopSource"};
const Type kRunLoopObserverType{10, "CFRunLoopObserver"};
const Type kSocketType{11, "CFSocket"};
const Type kTimeZoneType{12, "CFTimeZone"};
const Type kDynamicStoreType{13, "SCDynamicStore"};
const Type kMachPortType{14, "CFMachPort"};
const Type kEventType{15, "CGEvent"};
const Type kBundleType{16, "CFBundle"};
const Type kDateType{17, "CFDate"};
const Type kReadStreamType{18, "CFReadStream"};
const Type kWriteStreamType{19, "CFWriteStream"};
const Type kDataProviderType{20, "CGDataProvider"};
const Type kColorSpaceType{21, "CGColorSpace"};
const Type kImageType{22, "CGImage"};
const Type kImageDestinationType{23, "CGImageDestination"};

void Object::Retain() const {
    if (references.load(std::memory_order_relaxed) != kImmortalCount) {
        references.fetch_add(1, std::memory_order_relaxed);
    }
}

void Object::Release() const {
    if (references.load(std::memory_order_relaxed) == kImmortalCount) {
        return;
    }
    // The last one to let go must see what all others did to the object before they let go.
    if (references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

bool Object::TryRetain() const {
    std::int32_t known = references.load(std::memory_order_relaxed);
    while (known > 0) {
        if (references.compare_exchange_weak(known, known + 1, std::memory_order_relaxed)) {
            return true;
        }
    }
    return known == kImmortalCount;
}

std::string Object::DescribeHead() const {
    char address[2 + 2 * sizeof(void*) + 1];
    std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
    return std::string("<") + type.name + " " + address + ">";
}

std::string Object::Describe() const {
    return DescribeHead();
}

void Misuse(const char* call, const std::string& why) noexcept {
    WriteToStandardError(std::string(call) + ": " + why + "\n");
    std::abort();
}

void WrongReference(const char* call, const Type& expected, const Object* actual) noexcept {
    Misuse(call, std::string("expected a ") + expected.name + ", got " +
                     (actual == nullptr ? std::string("a null reference")
                                        : std::string("a ") + actual->ObjectType().name));
}

const Object& AnyObject(CFTypeRef reference, const char* call) {
    if (reference == nullptr) {
        Misuse(call, "expected an object, got a null reference");
    }
    return *static_cast<const Object*>(reference);
}

}  // namespace frameworks

using frameworks::AnyObject;
using frameworks::Object;

const CFAllocatorRef kCFAllocatorDefault = nullptr;

CFTypeID CFGetTypeID(CFTypeRef cf) {
    return AnyObject(cf, "CFGetTypeID").ObjectType().id;
}

CFTypeRef CFRetain(CFTypeRef cf) {
    AnyObject(cf, "CFRetain").Retain();
    return cf;
}

void CFRelease(CFTypeRef cf) {
    AnyObject(cf, "CFRelease").Release();
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2) {
    const Object& one = AnyObject(cf1, "CFEqual");
    const Object& other = AnyObject(cf2, "CFEqual");
    return &one == &other || (&one.ObjectType() == &other.ObjectType() && one.Equals(other));
}

CFHashCode CFHash(CFTypeRef cf) {
    return AnyObject(cf, "CFHash").Hash();
}
