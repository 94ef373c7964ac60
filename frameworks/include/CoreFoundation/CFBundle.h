// Bundles: folders that are one thing to people, such as an application.
//
// Backed by frameworks/CoreFoundation/Bundle: the folder's Info.plist, read with libplist (see
// frameworks/CoreFoundation/PropertyList.h), and the folder Contents/Resources.
// What is here: a bundle of a folder, what its Info.plist says, the address of a resource.
// Different from the Mac: every bundle is an object of its own, which reads its Info.plist once
// when that is first asked for (CFBundle_test:
// GetInfoDictionary_OfAFileThatChanged_IsThatOfTheFirstTime); resources that exist only in a
// language's folder are not found (CopyResourceURL_OfALocalizedResource_IsNull).
//
// Ownership: Create and Copy hand over one reference, Get lends. Threads: any. Failure: null.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFURL.h>

extern "C" {

using CFBundleRef = struct __CFBundle*;

// "CFBundleIdentifier"
CF_EXPORT const CFStringRef kCFBundleIdentifierKey;

CFTypeID CFBundleGetTypeID(void);

// Null when there is no such folder. Whether it holds an Info.plist does not matter.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef bundleURL);

// What Contents/Info.plist says, or else Info.plist. Immutable; empty when there is none, or when
// it is no property list with a dictionary at its top.
CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle);

// The address of the file NAME.TYPE, or NAME when the type is null, in Contents/Resources or in the
// folder SUBDIRNAME there. Null when there is no such file.
CFURLRef CFBundleCopyResourceURL(CFBundleRef bundle, CFStringRef resourceName,
                                 CFStringRef resourceType, CFStringRef subDirName);

}  // extern "C"
