// One value a thread, made on first use and deleted when the thread ends.
//
// Built on POSIX thread keys: the compilers for Mac OS X 10.5 have no thread_local. Tag tells apart
// two values of the same type. Never fails short of running out of memory.
#pragma once

#include <pthread.h>

template <typename T, typename Tag>
T& PerThread() {
    static const pthread_key_t key = [] {
        pthread_key_t made = 0;
        pthread_key_create(&made, [](void* value) { delete static_cast<T*>(value); });
        return made;
    }();
    void* value = pthread_getspecific(key);
    if (value == nullptr) {
        value = new T();
        pthread_setspecific(key, value);
    }
    return *static_cast<T*>(value);
}
