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

// Either watches every allocation, with an allocator of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kAllocationsAreWatched = true;
#else
constexpr bool kAllocationsAreWatched = false;
#endif

#define SKIP_WHERE_ADDRESSES_ARE_WATCHED()                                 \
    if (kAddressesAreWatched) {                                            \
        GTEST_SKIP() << "AddressSanitizer keeps what is freed and cannot " \
                        "trace a process that has changed its user";       \
    }                                                                      \
    static_cast<void>(0)

// ThreadSanitizer keeps a signal back while the handler of another one runs, as it does when the
// process ends by a signal.
#if defined(__SANITIZE_THREAD__)
#define SKIP_WHERE_SIGNALS_ARE_KEPT_BACK() \
    GTEST_SKIP() << "ThreadSanitizer keeps signals back while a handler runs"
#else
#define SKIP_WHERE_SIGNALS_ARE_KEPT_BACK() static_cast<void>(0)
#endif

// ThreadSanitizer gives a handler an error number of its own, to see whether it comes back.
#if defined(__SANITIZE_THREAD__)
#define SKIP_WHERE_THREADS_ARE_WATCHED() \
    GTEST_SKIP() << "ThreadSanitizer hides the error number from a signal's handler"
#else
#define SKIP_WHERE_THREADS_ARE_WATCHED() static_cast<void>(0)
#endif
