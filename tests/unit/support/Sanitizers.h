// What a sanitizer in the test's own process makes impossible. A test that is skipped for it runs
// in the build without.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
// Freed memory is kept for a while, and at the end of a process another one traces it, which the
// kernel refuses when it has changed its user.
constexpr bool kAddressesAreWatched = true;
#else
constexpr bool kAddressesAreWatched = false;
#endif

#define SKIP_WHERE_ADDRESSES_ARE_WATCHED()                                 \
    if (kAddressesAreWatched) {                                            \
        GTEST_SKIP() << "AddressSanitizer keeps what is freed and cannot " \
                        "trace a process that has changed its user";       \
    }                                                                      \
    static_cast<void>(0)
