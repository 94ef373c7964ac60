#include "Desktop/Values.h"

#include "CoreFoundation/String.h"

namespace frameworks {
namespace {

const Object* ValueIn(const Object& dictionary, std::string_view key) {
    if (&dictionary.ObjectType() != &__CFDictionary::kType) return nullptr;
    const __CFString name(Lifetime::kImmortal, key);
    return static_cast<const Object*>(
        static_cast<const __CFDictionary&>(dictionary).Find(&name, "CFDictionaryGetValue"));
}

}  // namespace

const __CFArray* ArrayIn(const Object& dictionary, std::string_view key) {
    const Object* const value = ValueIn(dictionary, key);
    return value != nullptr && &value->ObjectType() == &__CFArray::kType
               ? static_cast<const __CFArray*>(value)
               : nullptr;
}

std::string_view TextIn(const Object& dictionary, std::string_view key) {
    const Object* const value = ValueIn(dictionary, key);
    return value != nullptr && &value->ObjectType() == &__CFString::kType
               ? static_cast<const __CFString*>(value)->Text()
               : std::string_view();
}

}  // namespace frameworks
