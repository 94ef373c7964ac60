// Property lists: strings, numbers, truth values, dates, data, arrays and dictionaries as a file.
//
// Backed by libplist, which is loaded with the first list, and by a look at all bytes before they
// reach it (frameworks/CoreFoundation/PropertyList.h, with the limits).
// What is here: reading a list from a stream and writing one to a stream, as XML and binary.
// Different from the Mac: the old format of braces and quotes is not read
// (CFPropertyList_test: Read_OfTheOldFormat_IsNull). What is nested deeper than 256 levels or is
// larger than 16 MB is neither read nor written
// (CFPropertyList_test: Write_OfAListThatIsTooDeep_IsZero). Everything in a list is written as it
// was read, numbers above 63 bits and dates far away among it; only XML has no fractions of a
// second (CFPropertyList_test: Dates_InXML_HaveWholeSeconds).
//
// Ownership: Create hands over one reference, an error text as well. Threads: one at a time for
// each stream. Failure: null, or 0, as said per call.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFStream.h>
#include <CoreFoundation/CFString.h>

extern "C" {

enum CFPropertyListMutabilityOptions : CFOptionFlags {
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1 << 0,
    // As above: no call of this layer changes a string or data.
    kCFPropertyListMutableContainersAndLeaves = 1 << 1
};

enum CFPropertyListFormat : CFIndex {
    kCFPropertyListOpenStepFormat = 1,
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200
};

// Reads streamLength bytes, or to the end for 0. Null when the stream is not open, and for what is
// no property list; then errorString, which may be null, gets a text, and format, which may be null
// as well, stays as it was.
CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream,
                                                 CFIndex streamLength,
                                                 CFOptionFlags mutabilityOption,
                                                 CFPropertyListFormat* format,
                                                 CFStringRef* errorString);

// The number of bytes. When it returns, the file holds them. 0 when the stream is not open, for
// what cannot stand in a property list of that format, and when the file cannot be replaced; then
// the file is as it was, and errorString, which may be null, gets a text. The Launch Services
// preferences of the user show in the desktop's default applications afterwards
// (frameworks/Desktop/Mirror.h).
CFIndex CFPropertyListWriteToStream(CFPropertyListRef propertyList, CFWriteStreamRef stream,
                                    CFPropertyListFormat format, CFStringRef* errorString);

}  // extern "C"
