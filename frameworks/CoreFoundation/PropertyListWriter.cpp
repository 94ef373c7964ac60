#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>
#include <vector>

#include "CoreFoundation/Array.h"
#include "CoreFoundation/Boolean.h"
#include "CoreFoundation/Data.h"
#include "CoreFoundation/Date.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Number.h"
#include "CoreFoundation/PropertyList.h"
#include "CoreFoundation/PropertyListExact.h"
#include "CoreFoundation/String.h"

namespace frameworks {
namespace {

// About what an object costs beside its contents.
constexpr std::size_t kCostOfObject = 64;
// The beginnings of the years 1 and 10000, in seconds since the beginning of 2001: XML writes years
// with four digits.
constexpr double kFirstDateInXML = -63113904000.0;
constexpr double kAfterLastDateInXML = 252423993600.0;

struct Free {
    void operator()(char* block) const { std::free(block); }
};

using Entry = std::pair<const __CFString*, const Object*>;

// The entries in the order of their keys; nothing when a key is no text.
std::optional<std::vector<Entry>> SortedEntries(const __CFDictionary& dictionary) {
    std::vector<Entry> entries;
    entries.reserve(dictionary.Entries().size());
    for (const auto& [key, value] : dictionary.Entries()) {
        if (&static_cast<const Object*>(key)->ObjectType() != &__CFString::kType) {
            return std::nullopt;
        }
        entries.emplace_back(static_cast<const __CFString*>(key),
                             static_cast<const Object*>(value));
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& one, const Entry& other) {
        return one.first->Text() < other.first->Text();
    });
    return entries;
}

// Makes the library's objects of ours. What it gives is nothing when any of them has none.
class Builder {
  public:
    Builder(const PropertyListLibrary& itsLibrary, CFPropertyListFormat itsFormat)
        : library(itsLibrary), format(itsFormat) {}

    // OUTER is how many containers the object lies in.
    // NOLINTNEXTLINE(misc-no-recursion): the depth is checked.
    OwnedNode Build(const Object& object, std::size_t outer) {
        const Type* const type = &object.ObjectType();
        if (!Spend(kCostOfObject)) return {};
        if (type == &__CFString::kType) return Text(static_cast<const __CFString&>(object));
        if (type == &__CFDictionary::kType) {
            return Dictionary(static_cast<const __CFDictionary&>(object), outer);
        }
        if (type == &__CFArray::kType) return Array(static_cast<const __CFArray&>(object), outer);
        if (type == &__CFBoolean::kType) {
            return Own(library.newBoolean(static_cast<const __CFBoolean&>(object).Value() ? 1 : 0));
        }
        if (type == &__CFNumber::kType) return Number(static_cast<const __CFNumber&>(object));
        if (type == &__CFDate::kType) return Date(static_cast<const __CFDate&>(object));
        if (type == &__CFData::kType) return Data(static_cast<const __CFData&>(object));
        return {};
    }

  private:
    OwnedNode Own(PropertyListLibrary::Node node) const {
        return OwnedNode(node, FreeNode{&library});
    }

    bool Spend(std::size_t size) {
        if (size > kLargestContents - cost) return false;
        cost += size;
        return true;
    }

    OwnedNode Text(const __CFString& string) {
        const std::string_view text = string.Text();
        if (!Spend(text.size()) || text.find('\0') != std::string_view::npos) return {};
        return Own(library.newString(text.data()));
    }

    OwnedNode Data(const __CFData& data) {
        const std::string_view bytes = data.Bytes();
        return Spend(bytes.size()) ? Own(library.newData(bytes.data(), bytes.size())) : OwnedNode();
    }

    OwnedNode Number(const __CFNumber& number) const {
        if (number.IsReal()) return Own(library.newReal(number.Fraction()));
        const auto bits = static_cast<std::uint64_t>(number.Whole());
        if (number.IsLarge()) return MakeLargeNumber(library, bits);
        return number.Whole() < 0 ? MakeNegativeNumber(library, number.Whole())
                                  : Own(library.newWhole(bits));
    }

    OwnedNode Date(const __CFDate& date) const {
        if (format == kCFPropertyListBinaryFormat_v1_0) return MakeDate(library, date.Seconds());
        const double seconds = std::floor(date.Seconds());
        const bool fits = seconds >= kFirstDateInXML && seconds < kAfterLastDateInXML;
        return fits ? MakeDate(library, seconds) : OwnedNode();
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    OwnedNode Array(const __CFArray& array, std::size_t outer) {
        if (outer == kDeepestPropertyList) return {};
        OwnedNode node = Own(library.newArray());
        for (const void* const value : array.Values()) {
            OwnedNode item = Build(*static_cast<const Object*>(value), outer + 1);
            if (!item) return {};
            library.appendToArray(node.get(), item.release());
        }
        return node;
    }

    // NOLINTNEXTLINE(misc-no-recursion)
    OwnedNode Dictionary(const __CFDictionary& dictionary, std::size_t outer) {
        if (outer == kDeepestPropertyList) return {};
        const std::optional<std::vector<Entry>> entries = SortedEntries(dictionary);
        if (!entries) return {};
        OwnedNode node = Own(library.newDictionary());
        for (const auto& [key, value] : *entries) {
            const std::string_view text = key->Text();
            OwnedNode item = Build(*value, outer + 1);
            if (!item || !Spend(kCostOfObject + text.size()) ||
                text.find('\0') != std::string_view::npos) {
                return {};
            }
            library.setInDictionary(node.get(), text.data(), item.release());
        }
        return node;
    }

    const PropertyListLibrary& library;
    const CFPropertyListFormat format;
    std::size_t cost = 0;
};

// The library writes the year 1 as "1". The texts of a list hold no "<", so this is a date wherever
// it stands.
void WriteYearsWithFourDigits(std::string& xml) {
    constexpr std::string_view kStart = "<date>";
    constexpr std::size_t kDigits = 4;
    std::size_t position = 0;
    while ((position = xml.find(kStart, position)) != std::string::npos) {
        position += kStart.size();
        const std::size_t end = xml.find('-', position);
        if (end != std::string::npos && end - position < kDigits) {
            xml.insert(position, kDigits - (end - position), '0');
        }
    }
}

}  // namespace

std::optional<std::string> WritePropertyList(const Object& list, CFPropertyListFormat format) {
    const bool isXML = format == kCFPropertyListXMLFormat_v1_0;
    if (!isXML && format != kCFPropertyListBinaryFormat_v1_0) return std::nullopt;
    const PropertyListLibrary* const library = PropertyListLibrary::Load();
    if (library == nullptr) return std::nullopt;
    const OwnedNode node = Builder(*library, format).Build(list, 0);
    if (!node) return std::nullopt;
    char* bytes = nullptr;
    std::uint32_t length = 0;
    (isXML ? library->toXML : library->toBinary)(node.get(), &bytes, &length);
    const std::unique_ptr<char, Free> owner(bytes);
    if (bytes == nullptr) return std::nullopt;
    std::string written(bytes, length);
    if (isXML) {
        WriteYearsWithFourDigits(written);
    }
    // What could not be read again is not written.
    return written.size() <= kLargestPropertyList ? std::optional(std::move(written))
                                                  : std::nullopt;
}

}  // namespace frameworks
