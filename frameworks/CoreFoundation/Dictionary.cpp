#include "CoreFoundation/Dictionary.h"

#include <functional>
#include <new>

#include "CoreFoundation/CallOut.h"
#include "CoreFoundation/CollectionCallBacks.h"

using frameworks::CallOutToTheClient;
using frameworks::Checked;
using frameworks::CheckedMutable;
using frameworks::Misuse;

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0,
    frameworks::RetainReference,
    frameworks::ReleaseReference,
    frameworks::CopyDescriptionOfReference,
    CFEqual,
    CFHash};

const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {
    0, frameworks::RetainReference, frameworks::ReleaseReference,
    frameworks::CopyDescriptionOfReference, CFEqual};

std::size_t frameworks::KeyHash::operator()(const void* key) const {
    return callBack == nullptr ? std::hash<const void*>()(key) : CallOutToTheClient(callBack, key);
}

bool frameworks::KeyEqual::operator()(const void* one, const void* other) const {
    return one == other || (callBack != nullptr && CallOutToTheClient(callBack, one, other));
}

namespace {

const void* Retained(CFDictionaryRetainCallBack retain, const void* value) {
    return retain == nullptr ? value : CallOutToTheClient(retain, kCFAllocatorDefault, value);
}

void Released(CFDictionaryReleaseCallBack release, const void* value) {
    if (release != nullptr) {
        CallOutToTheClient(release, kCFAllocatorDefault, value);
    }
}

}  // namespace

__CFDictionary::__CFDictionary(const CFDictionaryKeyCallBacks* itsKeyCallBacks,
                               const CFDictionaryValueCallBacks* itsValueCallBacks)
    : Object(kType),
      keyCallBacks(itsKeyCallBacks == nullptr ? CFDictionaryKeyCallBacks{} : *itsKeyCallBacks),
      valueCallBacks(itsValueCallBacks == nullptr ? CFDictionaryValueCallBacks{}
                                                  : *itsValueCallBacks),
      entries(0, {keyCallBacks.hash}, {keyCallBacks.equal}) {}

__CFDictionary::~__CFDictionary() {
    for (const auto& [key, value] : entries) {
        Released(keyCallBacks.release, key);
        Released(valueCallBacks.release, value);
    }
}

void __CFDictionary::RequireKey(const void* key, const char* call) const {
    if (key == nullptr && keyCallBacks.hash == CFHash) {
        Misuse(call, "the key is null");
    }
}

void __CFDictionary::RequireMutable(const char* call) const {
    if (frozen) {
        Misuse(call, "the dictionary is immutable");
    }
}

const void* __CFDictionary::Find(const void* key, const char* call) const noexcept {
    RequireKey(key, call);
    const auto found = entries.find(key);
    return found == entries.end() ? nullptr : found->second;
}

void __CFDictionary::Set(const void* key, const void* value, const char* call) noexcept {
    RequireKey(key, call);
    RequireMutable(call);
    if (value == nullptr && valueCallBacks.retain == frameworks::RetainReference) {
        Misuse(call, "the value is null");
    }
    // Retained before the old one goes: they may be the same.
    const void* owned = Retained(valueCallBacks.retain, value);
    const auto found = entries.find(key);
    if (found == entries.end()) {
        entries.emplace(Retained(keyCallBacks.retain, key), owned);
        return;
    }
    Released(valueCallBacks.release, std::exchange(found->second, owned));
}

bool __CFDictionary::Remove(const void* key, const char* call) noexcept {
    RequireKey(key, call);
    RequireMutable(call);
    const auto found = entries.find(key);
    if (found == entries.end()) {
        return false;
    }
    const auto [knownKey, value] = *found;
    entries.erase(found);
    // Last, because it may run code that looks at this dictionary.
    Released(keyCallBacks.release, knownKey);
    Released(valueCallBacks.release, value);
    return true;
}

bool __CFDictionary::Equals(const Object& other) const {
    const auto& otherDictionary = static_cast<const __CFDictionary&>(other);
    if (entries.size() != otherDictionary.entries.size() ||
        keyCallBacks.equal != otherDictionary.keyCallBacks.equal ||
        valueCallBacks.equal != otherDictionary.valueCallBacks.equal) {
        return false;
    }
    for (const auto& [key, value] : entries) {
        const auto found = otherDictionary.entries.find(key);
        if (found == otherDictionary.entries.end()) {
            return false;
        }
        if (value != found->second &&
            (valueCallBacks.equal == nullptr ||
             !CallOutToTheClient(valueCallBacks.equal, value, found->second))) {
            return false;
        }
    }
    return true;
}

CFHashCode __CFDictionary::Hash() const {
    return entries.size();
}

std::string __CFDictionary::Describe() const {
    std::string text =
        DescribeHead() + "{count = " + std::to_string(entries.size()) + ", entries = (\n";
    for (const auto& [key, value] : entries) {
        text += "\t" + frameworks::DescribeValue(keyCallBacks.copyDescription, key) + " = " +
                frameworks::DescribeValue(valueCallBacks.copyDescription, value) + "\n";
    }
    return text + ")}";
}

CFTypeID CFDictionaryGetTypeID() {
    return __CFDictionary::kType.id;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks) {
    if (capacity < 0) {
        Misuse("CFDictionaryCreateMutable",
               "the capacity " + std::to_string(capacity) + " is negative");
    }
    return new (std::nothrow) __CFDictionary(keyCallBacks, valueCallBacks);
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict) {
    return static_cast<CFIndex>(
        Checked<__CFDictionary>(theDict, "CFDictionaryGetCount").Entries().size());
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key) {
    return Checked<__CFDictionary>(theDict, "CFDictionaryGetValue")
        .Find(key, "CFDictionaryGetValue");
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value) {
    CheckedMutable<__CFDictionary>(theDict, "CFDictionarySetValue")
        .Set(key, value, "CFDictionarySetValue");
}
