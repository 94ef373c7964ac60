// The object behind CFDataRef: bytes that do not change, in the same block of memory as the object.
//
// Threads: any. Failure: Make gives nothing when memory runs out.
#pragma once

#include <CoreFoundation/CFData.h>

#include <string_view>

#include "CoreFoundation/Object.h"

struct __CFData final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kDataType;

    // The bytes lie behind the object, in the same block.
    // NOLINTNEXTLINE(cert-dcl54-cpp): Make gets the block, for it alone knows how large it is
    static void operator delete(void* block) { ::operator delete(block); }

    static frameworks::Ref<__CFData> Make(std::string_view bytes);

    std::string_view Bytes() const { return bytes; }

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    explicit __CFData(std::string_view itsBytes) : Object(kType), bytes(itsBytes) {}

    const std::string_view bytes;
};
