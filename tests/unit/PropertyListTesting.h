// What the tests of property lists share: making lists of values, and looking at them.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "CFTestSupport.h"
#include "FilesTesting.h"

inline Owned<CFURLRef> FileURL(const std::string& path) {
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), false);
}

inline Owned<CFMutableDictionaryRef> MakeDictionary() {
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

inline Owned<CFMutableArrayRef> MakeArray() {
    return CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
}

inline void Set(CFMutableDictionaryRef dictionary, const char* key, CFTypeRef value) {
    CFDictionarySetValue(dictionary, MakeString(key), value);
}

inline void Set(CFMutableDictionaryRef dictionary, const char* key, const char* text) {
    Set(dictionary, key, static_cast<CFTypeRef>(MakeString(text)));
}

// The value under KEY, or null, also where DICTIONARY is none.
inline CFTypeRef ValueAt(CFTypeRef dictionary, const char* key) {
    if (dictionary == nullptr || CFGetTypeID(dictionary) != CFDictionaryGetTypeID()) return nullptr;
    return CFDictionaryGetValue(static_cast<CFDictionaryRef>(dictionary), MakeString(key));
}

inline std::string TextAt(CFTypeRef dictionary, const char* key) {
    const CFTypeRef value = ValueAt(dictionary, key);
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID()) return "<no text>";
    return TextOf(static_cast<CFStringRef>(value));
}

// What the file holds, through the public calls. Null when that is no property list.
inline Owned<CFPropertyListRef> ReadList(const std::string& path,
                                         CFPropertyListFormat* format = nullptr,
                                         CFOptionFlags options = kCFPropertyListImmutable) {
    const Owned<CFReadStreamRef> stream =
        CFReadStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    if (!CFReadStreamOpen(stream)) return CFPropertyListRef();
    CFPropertyListRef list =
        CFPropertyListCreateFromStream(kCFAllocatorDefault, stream, 0, options, format, nullptr);
    CFReadStreamClose(stream);
    return list;
}

// The number of bytes.
inline CFIndex WriteList(CFPropertyListRef list, const std::string& path,
                         CFPropertyListFormat format) {
    const Owned<CFWriteStreamRef> stream =
        CFWriteStreamCreateWithFile(kCFAllocatorDefault, FileURL(path));
    if (!CFWriteStreamOpen(stream)) return 0;
    const CFIndex written = CFPropertyListWriteToStream(list, stream, format, nullptr);
    CFWriteStreamClose(stream);
    return written;
}

inline std::string XMLDocument(const std::string& content) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           content + "\n</plist>\n";
}
