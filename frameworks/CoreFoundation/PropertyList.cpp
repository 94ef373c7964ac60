#include "CoreFoundation/PropertyList.h"

#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_map>

#include "CoreFoundation/Array.h"
#include "CoreFoundation/Boolean.h"
#include "CoreFoundation/Data.h"
#include "CoreFoundation/Date.h"
#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Number.h"
#include "CoreFoundation/PropertyListExact.h"
#include "CoreFoundation/PropertyListGuard.h"
#include "CoreFoundation/PropertyListLibrary.h"
#include "CoreFoundation/String.h"

namespace frameworks {
namespace {

constexpr const char* kCall = "CFPropertyList";

struct Free {
    void operator()(void* block) const { std::free(block); }
};
using OwnedIterator = std::unique_ptr<void, Free>;
using OwnedText = std::unique_ptr<char, Free>;

// Makes our objects of the library's. What it gives is nothing when any of them has none.
class Converter {
  public:
    using Node = PropertyListLibrary::Node;
    using Result = Ref<const Object>;

    Converter(const PropertyListLibrary& itsLibrary, Containers itsContainers)
        : library(itsLibrary), containers(itsContainers) {}

    // NOLINTNEXTLINE(misc-no-recursion): the depth was checked.
    Result Convert(Node node) {
        switch (library.kindOf(node)) {
            case PropertyListLibrary::kBoolean:
                return Boolean(node);
            case PropertyListLibrary::kWhole:
                return Whole(node);
            case PropertyListLibrary::kReal:
                return Real(node);
            case PropertyListLibrary::kString:
                return String(node);
            case PropertyListLibrary::kArray:
                return Array(node);
            case PropertyListLibrary::kDictionary:
                return Dictionary(node);
            case PropertyListLibrary::kDate:
                return Date(node);
            case PropertyListLibrary::kData:
                return Data(node);
            default:
                return {};
        }
    }

  private:
    template <typename T>
    static Result AsObject(Ref<T> made) {
        return Result::Adopt(made.Leak());
    }

    Result Boolean(Node node) const {
        std::uint8_t value = 0;
        library.getBoolean(node, &value);
        return Result::Retain(value != 0 ? kCFBooleanTrue : kCFBooleanFalse);
    }

    Result Whole(Node node) const {
        std::uint64_t value = 0;
        library.getWhole(node, &value);
        // A number below zero comes in two's complement, and so does a large one.
        const auto whole = static_cast<SInt64>(value);
        return Result::Adopt(whole < 0 && IsLargeNumber(library, node)
                                 ? new __CFNumber(UInt64{value})
                                 : new __CFNumber(whole));
    }

    Result Real(Node node) const {
        double value = 0;
        library.getReal(node, &value);
        return Result::Adopt(new __CFNumber(value));
    }

    Result Date(Node node) const {
        const std::optional<double> seconds = SecondsOfDate(library, node);
        return seconds ? Result::Adopt(new __CFDate(*seconds)) : Result();
    }

    Result String(Node node) const {
        std::uint64_t length = 0;
        const char* const text = library.getString(node, &length);
        if (text == nullptr) return {};
        return AsObject(__CFString::Make(std::string_view(text, static_cast<std::size_t>(length))));
    }

    Result Data(Node node) const {
        std::uint64_t length = 0;
        const char* const bytes = library.getData(node, &length);
        return AsObject(__CFData::Make(
            bytes == nullptr ? std::string_view()
                             : std::string_view(bytes, static_cast<std::size_t>(length))));
    }

    Result Array(Node node) {
        auto array = Ref<__CFArray>::Adopt(new __CFArray(&kCFTypeArrayCallBacks));
        PropertyListLibrary::Iterator position = nullptr;
        library.iterateArray(node, &position);
        const OwnedIterator owner(position);
        for (;;) {
            Node item = nullptr;
            library.nextInArray(node, position, &item);
            if (item == nullptr) break;
            const Result value = Convert(item);
            if (!value) return {};
            array->Append(value.Get(), kCall);
        }
        if (containers == Containers::kFrozen) {
            array->Freeze();
        }
        return AsObject(std::move(array));
    }

    Result Dictionary(Node node) {
        auto dictionary = Ref<__CFDictionary>::Adopt(
            new __CFDictionary(&kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
        PropertyListLibrary::Iterator position = nullptr;
        library.iterateDictionary(node, &position);
        const OwnedIterator owner(position);
        for (;;) {
            char* text = nullptr;
            Node item = nullptr;
            library.nextInDictionary(node, position, &text, &item);
            const OwnedText textOwner(text);
            if (item == nullptr) break;
            const __CFString* const key = Key(text == nullptr ? "" : text);
            const Result value = Convert(item);
            if (key == nullptr || !value) return {};
            dictionary->Set(key, value.Get(), kCall);
        }
        if (containers == Containers::kFrozen) {
            dictionary->Freeze();
        }
        return AsObject(std::move(dictionary));
    }

    // The dictionaries of a list are often alike, so equal keys are one object. Null for what
    // cannot be a text.
    const __CFString* Key(std::string_view text) {
        const auto known = keys.find(text);
        if (known != keys.end()) return known->second.Get();
        Ref<__CFString> key = __CFString::Make(text);
        if (!key) return nullptr;
        // The map's key is the text of the object.
        const std::string_view lasting = key->Text();
        return keys.emplace(lasting, std::move(key)).first->second.Get();
    }

    const PropertyListLibrary& library;
    const Containers containers;
    std::unordered_map<std::string_view, Ref<__CFString>> keys;
};

OwnedNode Parse(const PropertyListLibrary& library, std::string_view bytes) {
    PropertyListLibrary::Node node = nullptr;
    if (IsBinaryPropertyList(bytes)) {
        if (IsSoundBinaryPropertyList(bytes)) {
            library.fromBinary(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &node);
        }
    } else if (const std::optional<std::string> plain = PlainXMLPropertyList(bytes)) {
        library.fromXML(plain->data(), static_cast<std::uint32_t>(plain->size()), &node);
    }
    return OwnedNode(node, FreeNode{&library});
}

}  // namespace

Ref<const Object> ReadPropertyList(std::string_view bytes, Containers containers,
                                   CFPropertyListFormat* format) {
    if (bytes.size() > kLargestPropertyList) return {};
    const PropertyListLibrary* const library = PropertyListLibrary::Load();
    if (library == nullptr) return {};
    const OwnedNode node = Parse(*library, bytes);
    if (!node) return {};
    Ref<const Object> list = Converter(*library, containers).Convert(node.get());
    if (list && format != nullptr) {
        *format = IsBinaryPropertyList(bytes) ? kCFPropertyListBinaryFormat_v1_0
                                              : kCFPropertyListXMLFormat_v1_0;
    }
    return list;
}

}  // namespace frameworks
