// One value a thread, made on first use and deleted when the thread ends; that of the main thread
// stays. For values that have something to do when they go, instead of thread_local: the C library
// ends the process when it has no memory to note such a one.
//
// Tag tells apart two values of the same type. Failure: none short of running out of memory, which
// is what operator new makes of it.
#pragma once

#include <pthread.h>

namespace frameworks {

template <typename T, typename Tag = T>
T& PerThread() {
    struct Of {
        static pthread_key_t Key() {
            static const pthread_key_t key = [] {
                pthread_key_t made = 0;
                pthread_key_create(&made, Delete);
                return made;
            }();
            return key;
        }
        // Whoever asks meanwhile gets the value that is going, and no new one.
        static void Delete(void* value) {
            pthread_setspecific(Key(), value);
            delete static_cast<T*>(value);
            pthread_setspecific(Key(), nullptr);
        }
    };
    void* value = pthread_getspecific(Of::Key());
    if (value == nullptr) {
        value = new T();
        pthread_setspecific(Of::Key(), value);
    }
    return *static_cast<T*>(value);
}

}  // namespace frameworks
