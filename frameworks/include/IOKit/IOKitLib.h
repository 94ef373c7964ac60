// IOKit: the devices of the machine, and notices of their coming and going.
//
// Backed by frameworks/IOKit: the USB devices in /sys, and libudev, which is loaded when the first
// port is made, for what comes and goes. Where no udev daemon runs, the kernel itself is listened
// to; where that says nothing either, nothing ever comes or goes.
// What is here: notices of devices that come ("IOServiceFirstMatch", to begin with for all that are
// there) and go ("IOServiceTerminate"), and the numbers "idVendor" and "idProduct" of a device,
// also after it has gone. Different from the Mac: the services are the USB devices, root hubs
// included, and "IOService" is the class that they are matched by; a dictionary that asks for
// anything else matches none (IOKit_test: Matching_OfAnotherClass_FindsNothing). The ports of one
// thread share one run-loop source, so that whoever hears of both coming and going hears of it in
// the order in which it happened (Ports_OfOneThread_TellInTheOrderOfEvents).
//
// An iterator is drained and kept, or its notices stop: one comes when something was added since
// the iterator last ended, and none after the iterator was released.
//
// Ownership: iterators and services are released by whoever got them. A port goes with the thread
// that made it. Threads: any, for objects; a port belongs to one thread. Failure: see per call.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFRunLoop.h>
#include <IOKit/IOKitKeys.h>
#include <IOKit/IOReturn.h>
#include <IOKit/IOTypes.h>

extern "C" {

using IONotificationPortRef = struct IONotificationPort*;
using IOServiceMatchingCallback = void (*)(void* refcon, io_iterator_t iterator);

extern const mach_port_t kIOMasterPortDefault;

// The argument is not looked at: there is one registry. Null when memory runs out.
IONotificationPortRef IONotificationPortCreate(mach_port_t masterPort);
// Lent.
CFRunLoopSourceRef IONotificationPortGetRunLoopSource(IONotificationPortRef notify);

// {"IOProviderClass": NAME}. Null when memory runs out.
CFMutableDictionaryRef IOServiceMatching(const char* name);

// Takes over one reference to MATCHING, also on failure. kIOReturnUnsupported for a type that is
// not one of the two.
kern_return_t IOServiceAddMatchingNotification(IONotificationPortRef notifyPort,
                                               const io_name_t notificationType,
                                               CFDictionaryRef matching,
                                               IOServiceMatchingCallback callback, void* refCon,
                                               io_iterator_t* notification);

// 0 at the end, which is when the next notice may come, and for what is no iterator.
io_object_t IOIteratorNext(io_iterator_t iterator);

// A number, which is the caller's to release; null when there is no such property.
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key,
                                          CFAllocatorRef allocator, IOOptionBits options);

// kIOReturnBadArgument for what is no object (any more).
kern_return_t IOObjectRelease(io_object_t object);

}  // extern "C"
