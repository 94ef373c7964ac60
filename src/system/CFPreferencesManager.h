// The user's preferences that the dock may change: which application opens files with an extension,
// and what starts at login.
//
// All members are static, for the thread that handles commands. A step that finds no data, or data
// of the wrong type, stops quietly; the associations tell by their result whether the file has been
// written.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <string>

class CFPreferencesManager {
  public:
    CFPreferencesManager() = delete;

    // --- File types. Property lists are owned by the caller.

    // Null for a home folder whose path cannot stand in a URL as it is.
    static CFURLRef GetLSPlistURL();
    // Everything in it can be changed; null when there is nothing to read. FORMAT is the one that
    // was found.
    static CFPropertyListRef ReadPlistFromURL(CFURLRef url, CFPropertyListFormat* format);
    // The number of bytes written, 0 on failure.
    static CFIndex WritePlistToURL(CFPropertyListRef plist, CFURLRef url,
                                   CFPropertyListFormat format);
    // The first handler for EXT, borrowed from HANDLERS, and its place; null when there is none.
    static CFDictionaryRef GetHandlerForFileExt(CFArrayRef handlers, CFStringRef ext,
                                                CFIndex* index);
    static bool AssociateFileExtensionToBundle(const std::string& ext, const std::string& bundleId);
    static bool UnassociateFileExtensionToBundle(const std::string& ext);
    // Makes Launch Services read its preferences anew.
    static void RestartLaunchServicesDB();

    // --- Login items

    // Whether the path of any login item contains NAME.
    static bool CheckIfStartupItem(CFStringRef name);
    // Adds PATH, hidden, unless an item's path contains its last component.
    static void AddAsStartupItem(CFStringRef path);
    static void AddAsStartupItem(const std::wstring& path);
    // Removes the first item whose path contains PATH.
    static void RemoveAsStartupItem(CFStringRef path);
    static void RemoveAsStartupItem(const std::wstring& path);
};
