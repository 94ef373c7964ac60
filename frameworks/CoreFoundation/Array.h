// The object behind CFArrayRef and CFMutableArrayRef.
//
// An array that is handed out as immutable (read from a property list, for example) is filled first
// and then frozen.
//
// Threads: one at a time while the array changes.
// Failure: running out of memory while an array grows ends the program; the calls that grow it have
// no way to fail.
#pragma once

#include <CoreFoundation/CFArray.h>

#include <vector>

#include "CoreFoundation/Object.h"

struct __CFArray final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kArrayType;

    // Null callbacks are those of plain pointers.
    explicit __CFArray(const CFArrayCallBacks* itsCallBacks);
    ~__CFArray() override;

    // A changeable array of the same values under the same callbacks.
    frameworks::Ref<__CFArray> Copy() const;

    const std::vector<const void*>& Values() const { return values; }

    // CALL is the public call to name when the array is frozen, the value null or the index out of
    // range.
    const void* At(CFIndex index, const char* call) const noexcept;
    void Append(const void* value, const char* call) noexcept;
    void RemoveAt(CFIndex index, const char* call) noexcept;
    // From here on every change is refused.
    void Freeze() { frozen = true; }

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    void RequireIndex(CFIndex index, const char* call) const;
    void RequireMutable(const char* call) const;

    const CFArrayCallBacks callBacks;
    std::vector<const void*> values;
    bool frozen = false;
};
