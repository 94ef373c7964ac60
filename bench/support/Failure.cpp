#include "support/Failure.h"

#include <cerrno>
#include <cstring>

void FailWithErrno(const std::string& what) {
    throw Failure(what + ": " + std::strerror(errno));
}
