#include "CoreFoundation/Data.h"

#include <functional>
#include <new>

using frameworks::Checked;
using frameworks::Misuse;
using frameworks::Ref;

Ref<__CFData> __CFData::Make(std::string_view bytes) {
    void* block = ::operator new(sizeof(__CFData) + bytes.size(), std::nothrow);
    if (block == nullptr) {
        return {};
    }
    char* copy = static_cast<char*>(block) + sizeof(__CFData);
    bytes.copy(copy, bytes.size());
    return Ref<__CFData>::Adopt(::new (block) __CFData(std::string_view(copy, bytes.size())));
}

bool __CFData::Equals(const Object& other) const {
    return bytes == static_cast<const __CFData&>(other).bytes;
}

CFHashCode __CFData::Hash() const {
    return std::hash<std::string_view>()(bytes);
}

std::string __CFData::Describe() const {
    static constexpr char kDigits[] = "0123456789abcdef";
    // A packet is recognised by its beginning; a whole picture would bury everything else.
    static constexpr std::size_t kMostShown = 32;

    std::string text =
        DescribeHead() + "{length = " + std::to_string(bytes.size()) + ", bytes = 0x";
    for (const char byte : bytes.substr(0, kMostShown)) {
        text += kDigits[static_cast<UInt8>(byte) >> 4];
        text += kDigits[static_cast<UInt8>(byte) & 0xF];
    }
    return text + (bytes.size() > kMostShown ? " ...}" : "}");
}

CFTypeID CFDataGetTypeID() {
    return __CFData::kType.id;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    if (length < 0) {
        Misuse("CFDataCreate", "the length " + std::to_string(length) + " is negative");
    }
    if (bytes == nullptr && length > 0) {
        Misuse("CFDataCreate", "the bytes are null");
    }
    return __CFData::Make(std::string_view(reinterpret_cast<const char*>(bytes),
                                           static_cast<std::size_t>(length)))
        .Leak();
}

CFIndex CFDataGetLength(CFDataRef theData) {
    return static_cast<CFIndex>(Checked<__CFData>(theData, "CFDataGetLength").Bytes().size());
}

const UInt8* CFDataGetBytePtr(CFDataRef theData) {
    return reinterpret_cast<const UInt8*>(
        Checked<__CFData>(theData, "CFDataGetBytePtr").Bytes().data());
}
