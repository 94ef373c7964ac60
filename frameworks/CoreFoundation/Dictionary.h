// The object behind CFDictionaryRef and CFMutableDictionaryRef.
//
// A dictionary that is handed out as immutable (a process's information, for example) is filled
// first and then frozen.
//
// Threads: one at a time while the dictionary changes.
// Failure: running out of memory while it grows ends the program; the calls that grow it have no
// way to fail.
#pragma once

#include <CoreFoundation/CFDictionary.h>

#include <unordered_map>

#include "CoreFoundation/Object.h"

namespace frameworks {

// A dictionary's key callbacks in the form that the standard container takes.
struct KeyHash {
    CFDictionaryHashCallBack callBack;
    std::size_t operator()(const void* key) const;
};
struct KeyEqual {
    CFDictionaryEqualCallBack callBack;
    bool operator()(const void* one, const void* other) const;
};

}  // namespace frameworks

struct __CFDictionary final : frameworks::Object {
    using Map =
        std::unordered_map<const void*, const void*, frameworks::KeyHash, frameworks::KeyEqual>;

    static constexpr const frameworks::Type& kType = frameworks::kDictionaryType;

    // Null callbacks are those of plain pointers.
    __CFDictionary(const CFDictionaryKeyCallBacks* itsKeyCallBacks,
                   const CFDictionaryValueCallBacks* itsValueCallBacks);
    ~__CFDictionary() override;

    // In no particular order.
    const Map& Entries() const { return entries; }

    // CALL is the public call to name when the dictionary is frozen, the key or the value null.
    const void* Find(const void* key, const char* call) const noexcept;
    void Set(const void* key, const void* value, const char* call) noexcept;
    // True when there was such a key.
    bool Remove(const void* key, const char* call) noexcept;
    // From here on every change is refused.
    void Freeze() { frozen = true; }

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    void RequireKey(const void* key, const char* call) const;
    void RequireMutable(const char* call) const;

    const CFDictionaryKeyCallBacks keyCallBacks;
    const CFDictionaryValueCallBacks valueCallBacks;
    Map entries;
    bool frozen = false;
};
