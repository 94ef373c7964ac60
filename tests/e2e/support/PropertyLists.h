// Property lists as plistutil, which knows nothing of the service, reads and writes them. All throw
// Failed.
#pragma once

#include <filesystem>
#include <string>

// Around what is in a property list of XML.
std::string PropertyList(const std::string& content);
// The same list in the binary format.
std::string Binary(const std::string& list);
// The list in the file, in XML of one form, without what stands around it and without white space
// between elements: "<dict><key>A</key><string>b</string></dict>".
std::string ContentOf(const std::filesystem::path& file);
bool IsBinary(const std::filesystem::path& file);
