// The functions of libplist that are used here, found in the library when the first property list
// is met, so that a program without property lists neither loads it nor needs it.
//
// Owner: the process; the library stays loaded. Threads: any. Failure: null when it is not there,
// which is said on standard error.
#pragma once

#include <cstdint>
#include <memory>

namespace frameworks {

class DynamicLibrary;

class PropertyListLibrary {
  public:
    // One object of a property list as the library keeps it.
    using Node = void*;
    using Iterator = void*;
    enum Kind : int {
        kBoolean = 0,
        kWhole = 1,
        kReal = 2,
        kString = 3,
        kArray = 4,
        kDictionary = 5,
        kDate = 6,
        kData = 7
    };

    static const PropertyListLibrary* Load();

    void (*fromXML)(const char* xml, std::uint32_t length, Node* node);
    void (*fromBinary)(const char* bytes, std::uint32_t length, Node* node);
    void (*freeNode)(Node node);
    // A Kind, or something that has no object here.
    int (*kindOf)(Node node);
    void (*getBoolean)(Node node, std::uint8_t* value);
    void (*getWhole)(Node node, std::uint64_t* value);
    void (*getReal)(Node node, double* value);
    const char* (*getString)(Node node, std::uint64_t* length);
    const char* (*getData)(Node node, std::uint64_t* length);
    // Iterators are given back with free().
    void (*iterateArray)(Node array, Iterator* iterator);
    void (*nextInArray)(Node array, Iterator iterator, Node* item);
    void (*iterateDictionary)(Node dictionary, Iterator* iterator);
    // KEY is given back with free().
    void (*nextInDictionary)(Node dictionary, Iterator iterator, char** key, Node* value);

    // What is made is given back with freeNode, or handed to a container.
    Node (*newBoolean)(std::uint8_t value);
    Node (*newWhole)(std::uint64_t value);
    Node (*newReal)(double value);
    Node (*newString)(const char* text);
    Node (*newData)(const char* bytes, std::uint64_t length);
    Node (*newArray)();
    Node (*newDictionary)();
    void (*appendToArray)(Node array, Node item);
    void (*setInDictionary)(Node dictionary, const char* key, Node item);
    // BYTES are given back with free(), and null on failure.
    void (*toXML)(Node node, char** bytes, std::uint32_t* length);
    void (*toBinary)(Node node, char** bytes, std::uint32_t* length);

  private:
    bool Find(const DynamicLibrary& library);
};

struct FreeNode {
    const PropertyListLibrary* library = nullptr;
    void operator()(PropertyListLibrary::Node node) const { library->freeNode(node); }
};
using OwnedNode = std::unique_ptr<void, FreeNode>;

}  // namespace frameworks
