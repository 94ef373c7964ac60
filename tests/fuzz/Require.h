// What a fuzzer says about a result that must not be: it stops, and the input is kept.
#pragma once

#include <cstdio>
#include <cstdlib>

inline void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "Not so: %s\n", what);
        std::abort();
    }
}
