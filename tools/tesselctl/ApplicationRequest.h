// What the commands about applications ("tesselctl install", "start", ...) are asked for.
#pragma once

#include <string>
#include <string_view>

#include "tesselctl/Arguments.h"

namespace tesselctl {

enum class Deed { kInstall, kUpgrade, kRemove, kStart, kStop, kIsRunning, kIsInstalled };

// The service has a family of commands for each.
enum class Kind { kAir, kNative };

struct ApplicationRequest {
    Deed deed = Deed::kIsInstalled;
    Kind kind = Kind::kNative;
    std::string name;     // what the service calls the application in its log; never empty
    std::string id;       // the bundle identifier; of a package to install it may be empty
    std::string package;  // of kInstall and kUpgrade: an absolute path
};

// What is wrong, or an empty text. What is not said is concluded: the kind from the package's
// ending or the form of the identifier, the name from the identifier or the package. The request
// knows its deed already.
std::string ParseApplication(Arguments& arguments, ApplicationRequest& request);

// Whether an identifier has the form that AIR gives them: a name, the publisher's 40 hexadecimal
// digits, a number.
bool IsAirIdentifier(std::string_view id);

}  // namespace tesselctl
