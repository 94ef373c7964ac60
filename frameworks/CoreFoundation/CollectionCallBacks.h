// What kCFTypeArrayCallBacks and its like for dictionaries consist of: treat a value as the
// reference it is.
//
// A collection recognises them by address, to name the call that brought a null value instead of
// failing in CFRetain.
#pragma once

#include <CoreFoundation/CFBase.h>

#include <string>

namespace frameworks {

const void* RetainReference(CFAllocatorRef allocator, const void* value);
void ReleaseReference(CFAllocatorRef allocator, const void* value);
CFStringRef CopyDescriptionOfReference(const void* value);

// A value as it shows inside the description of its collection: by the callback, or by address
// without one.
std::string DescribeValue(CFStringRef (*copyDescription)(const void*), const void* value);

}  // namespace frameworks
