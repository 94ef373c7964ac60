// Icon Services: icon files.
//
// Backed by the file itself (frameworks/LaunchServices/IconFamily.h).
// What is here: reading an icon file. Different from the Mac: a family must fill its file and its
// elements the family, to the byte (IconServices_test:
// Read_OfAFileThatIsNotFilledExactly_IsRefused). Ownership: the family is a handle that the caller
// gives back with DisposeHandle. Threads: any.
#pragma once

#include <CarbonCore/Files.h>
#include <CarbonCore/MacTypes.h>
#include <OSServices/IconStorage.h>

extern "C" {

// fnfErr and its like when the file cannot be read, noIconDataAvailableErr for what is no icon file
// or is larger than 64 MB, paramErr for null pointers and what is no reference. The family is only
// stored on success.
OSStatus ReadIconFromFSRef(const FSRef* ref, IconFamilyHandle* iconFamily);

}  // extern "C"
