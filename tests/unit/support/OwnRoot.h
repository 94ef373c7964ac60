// A root folder of a test's own, so that there can be an /Applications and a /Library.
#pragma once

#include <string>

// This process sees from now on everything of the machine, but /Applications and /Library, which
// are empty folders of its own below FOLDER. False when the process may not do that: only root can,
// and not in every container.
bool EnterARootOfItsOwn(const std::string& folder);
