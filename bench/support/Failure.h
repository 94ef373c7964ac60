// What ends a measurement: anything that was not foreseen would make its figures worthless.
#pragma once

#include <stdexcept>
#include <string>

struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// With errno's text.
[[noreturn]] void FailWithErrno(const std::string& what);
