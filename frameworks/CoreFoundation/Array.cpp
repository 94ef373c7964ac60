#include "CoreFoundation/Array.h"

#include <algorithm>
#include <new>

#include "CoreFoundation/CallOut.h"
#include "CoreFoundation/CollectionCallBacks.h"

using frameworks::CallOutToTheClient;
using frameworks::Checked;
using frameworks::CheckedMutable;
using frameworks::Misuse;
using frameworks::Ref;

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, frameworks::RetainReference,
                                                frameworks::ReleaseReference,
                                                frameworks::CopyDescriptionOfReference, CFEqual};

__CFArray::__CFArray(const CFArrayCallBacks* itsCallBacks)
    : Object(kType), callBacks(itsCallBacks == nullptr ? CFArrayCallBacks{} : *itsCallBacks) {}

__CFArray::~__CFArray() {
    if (callBacks.release != nullptr) {
        for (const void* value : values) {
            CallOutToTheClient(callBacks.release, kCFAllocatorDefault, value);
        }
    }
}

Ref<__CFArray> __CFArray::Copy() const {
    auto copy = Ref<__CFArray>::Adopt(new __CFArray(&callBacks));
    copy->values.reserve(values.size());
    for (const void* value : values) {
        copy->Append(value, "CFArrayCreateMutableCopy");
    }
    return copy;
}

void __CFArray::RequireIndex(CFIndex index, const char* call) const {
    if (index < 0 || static_cast<std::size_t>(index) >= values.size()) {
        Misuse(call, "the index " + std::to_string(index) + " is outside an array of " +
                         std::to_string(values.size()));
    }
}

void __CFArray::RequireMutable(const char* call) const {
    if (frozen) {
        Misuse(call, "the array is immutable");
    }
}

const void* __CFArray::At(CFIndex index, const char* call) const noexcept {
    RequireIndex(index, call);
    return values[static_cast<std::size_t>(index)];
}

void __CFArray::Append(const void* value, const char* call) noexcept {
    RequireMutable(call);
    if (value == nullptr && callBacks.retain == frameworks::RetainReference) {
        Misuse(call, "the value is null");
    }
    values.push_back(callBacks.retain == nullptr
                         ? value
                         : CallOutToTheClient(callBacks.retain, kCFAllocatorDefault, value));
}

void __CFArray::RemoveAt(CFIndex index, const char* call) noexcept {
    RequireMutable(call);
    RequireIndex(index, call);
    const void* value = values[static_cast<std::size_t>(index)];
    values.erase(values.begin() + index);
    // Last, because it may run code that looks at this array.
    if (callBacks.release != nullptr) {
        CallOutToTheClient(callBacks.release, kCFAllocatorDefault, value);
    }
}

bool __CFArray::Equals(const Object& other) const {
    const auto& otherArray = static_cast<const __CFArray&>(other);
    if (callBacks.equal != otherArray.callBacks.equal) {
        return false;
    }
    return std::equal(values.begin(), values.end(), otherArray.values.begin(),
                      otherArray.values.end(), [this](const void* one, const void* another) {
                          return one == another ||
                                 (callBacks.equal != nullptr &&
                                  CallOutToTheClient(callBacks.equal, one, another));
                      });
}

CFHashCode __CFArray::Hash() const {
    return values.size();
}

std::string __CFArray::Describe() const {
    std::string text =
        DescribeHead() + "{count = " + std::to_string(values.size()) + ", values = (\n";
    for (std::size_t index = 0; index < values.size(); ++index) {
        text += "\t" + std::to_string(index) + " : " +
                frameworks::DescribeValue(callBacks.copyDescription, values[index]) + "\n";
    }
    return text + ")}";
}

CFTypeID CFArrayGetTypeID() {
    return __CFArray::kType.id;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks) {
    if (capacity < 0) {
        Misuse("CFArrayCreateMutable", "the capacity " + std::to_string(capacity) + " is negative");
    }
    return new (std::nothrow) __CFArray(callBacks);
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex capacity, CFArrayRef theArray) {
    const auto& original = Checked<__CFArray>(theArray, "CFArrayCreateMutableCopy");
    if (capacity < 0) {
        Misuse("CFArrayCreateMutableCopy",
               "the capacity " + std::to_string(capacity) + " is negative");
    }
    try {
        return original.Copy().Leak();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

CFIndex CFArrayGetCount(CFArrayRef theArray) {
    return static_cast<CFIndex>(Checked<__CFArray>(theArray, "CFArrayGetCount").Values().size());
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx) {
    return Checked<__CFArray>(theArray, "CFArrayGetValueAtIndex").At(idx, "CFArrayGetValueAtIndex");
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value) {
    CheckedMutable<__CFArray>(theArray, "CFArrayAppendValue").Append(value, "CFArrayAppendValue");
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx) {
    CheckedMutable<__CFArray>(theArray, "CFArrayRemoveValueAtIndex")
        .RemoveAt(idx, "CFArrayRemoveValueAtIndex");
}
