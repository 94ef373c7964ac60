#include <utility>

#include "CoreFoundation/Array.h"
#include "CoreFoundation/Boolean.h"
#include "CoreFoundation/Data.h"
#include "CoreFoundation/Date.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Number.h"
#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/String.h"

namespace frameworks {
namespace {

constexpr const char* kCall = "CFPropertyList";

Ref<const Object> Copy(const Object& object, std::size_t outer);

// NOLINTNEXTLINE(misc-no-recursion): the depth is checked.
Ref<const Object> CopyArray(const __CFArray& array, std::size_t outer) {
    auto copy = Ref<__CFArray>::Adopt(new __CFArray(&kCFTypeArrayCallBacks));
    for (const void* const value : array.Values()) {
        const Ref<const Object> item = Copy(*static_cast<const Object*>(value), outer + 1);
        if (!item) return {};
        copy->Append(item.Get(), kCall);
    }
    copy->Freeze();
    return Ref<const Object>::Adopt(copy.Leak());
}

// NOLINTNEXTLINE(misc-no-recursion)
Ref<const Object> CopyDictionary(const __CFDictionary& dictionary, std::size_t outer) {
    auto copy = Ref<__CFDictionary>::Adopt(
        new __CFDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const auto& [key, value] : dictionary.Entries()) {
        if (&static_cast<const Object*>(key)->ObjectType() != &__CFString::kType) return {};
        const Ref<const Object> item = Copy(*static_cast<const Object*>(value), outer + 1);
        if (!item) return {};
        copy->Set(key, item.Get(), kCall);
    }
    copy->Freeze();
    return Ref<const Object>::Adopt(copy.Leak());
}

// NOLINTNEXTLINE(misc-no-recursion)
Ref<const Object> Copy(const Object& object, std::size_t outer) {
    const Type* const type = &object.ObjectType();
    const bool isArray = type == &__CFArray::kType;
    if (isArray || type == &__CFDictionary::kType) {
        if (outer == kDeepestPropertyList) return {};
        return isArray ? CopyArray(static_cast<const __CFArray&>(object), outer)
                       : CopyDictionary(static_cast<const __CFDictionary&>(object), outer);
    }
    // No other object can be changed.
    for (const Type* const known : {&__CFString::kType, &__CFNumber::kType, &__CFBoolean::kType,
                                    &__CFDate::kType, &__CFData::kType}) {
        if (type == known) return Ref<const Object>::Retain(&object);
    }
    return {};
}

}  // namespace

Ref<const Object> CopyPropertyList(const Object& list) {
    return Copy(list, 0);
}

}  // namespace frameworks
