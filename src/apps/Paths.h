// Between UTF-8 paths and the File Manager's references. Pure conversions, for any thread.
#pragma once

#include <Carbon/Carbon.h>

#include <string>

struct PathReference {
    // One that every call refuses when nothing is there.
    FSRef ref;
    bool exists;
    bool isFolder;
};

// False only when there certainly is nothing at PATH: what cannot be looked at may be there.
bool MayExist(const std::string& path);

PathReference ReferenceTo(const std::string& path);

// To the folder that has its place at PATH. Where there is a link, whatever it leads to, or where
// PATH ends in "/", "." or "..", there is none.
PathReference ReferenceToFolderAt(const std::string& path);

// The path of what REFERENCE refers to, empty when there is nothing (any more) or its path has 1024
// bytes or more.
std::string PathOfReference(const FSRef& reference);
