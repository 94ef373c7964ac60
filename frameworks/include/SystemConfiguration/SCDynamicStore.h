// A session with what the system knows of its present state.
//
// What is here: the session itself, which SCDynamicStoreCopySpecific.h asks through.
// Different from the Mac: there are no notices of changes; asking for them with a callback gives
// null (ConsoleUser_test: Create_WithACallback_GivesNull).
// Ownership: Create hands over one reference. Threads: any. Failure: null.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

extern "C" {

using SCDynamicStoreRef = const struct __SCDynamicStore*;

struct SCDynamicStoreContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};
using SCDynamicStoreCallBack = void (*)(SCDynamicStoreRef store, CFArrayRef changedKeys,
                                        void* info);

// The name is the client's, for messages.
SCDynamicStoreRef SCDynamicStoreCreate(CFAllocatorRef allocator, CFStringRef name,
                                       SCDynamicStoreCallBack callout,
                                       SCDynamicStoreContext* context);

}  // extern "C"
