// Where a desktop keeps what it knows: the folders of the XDG Base Directory Specification.
//
// The environment counts only while the process acts for the user whose it is. Threads: any.
// Failure: empty when the user has no home.
#pragma once

#include <string>
#include <vector>

namespace frameworks {

// Absolute, without a closing "/", be it there or not.
std::string ConfigurationFolder();
// The user's folder first, then everybody's in their order.
std::vector<std::string> DataFolders();

// Makes FOLDER and those that it lies in; whether it is there in the end.
bool MakeFolder(const std::string& folder);

}  // namespace frameworks
