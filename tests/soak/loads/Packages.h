// What is installed and removed: small applications in packages of both kinds, with the tools that
// the service calls for it. The one for AIR is a stand-in that unpacks; those for native packages
// are the ones that come with the service for Linux, and there is a stand-in for the dialog that
// asks for an administrator's password. Throws Failed.
#pragma once

#include <string>
#include <vector>

#include "support/Sandbox.h"

struct Package {
    std::string name;
    std::string identifier;
    std::string air;
    std::string native;
    // Where its application is, once it is installed as one or the other.
    std::string asAir;
    std::string asNative;
};

// Makes them, and the tools.
std::vector<Package> MakePackages(Sandbox& sandbox);
