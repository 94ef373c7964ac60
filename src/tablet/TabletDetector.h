// Keeps the list of the maker's tablets that are plugged in, tells the dock of every change, and
// starts the dock when a tablet is plugged in and the user wants that.
//
// All members are static and belong to the main thread, whose run loop carries the notifications.
#pragma once

#include <IOKit/IOKitLib.h>

class TabletDetector {
  public:
    TabletDetector() = delete;

    // Listens for arrivals and removals; what is plugged in already arrives at once. True when both
    // could be set up.
    static bool InitIOListeners();
    static bool InitIOListener(const char* notificationType, void* userData);
    // What the notifications call: USERDATA points to the kind of change, ITERATOR is drained.
    static void DeviceAdded(void* userData, io_iterator_t iterator);
    // Sends the list to the command server's current client.
    static void SendDevicesList();
    // Whether the dock's settings ask for it to be started when a tablet is plugged in.
    static bool IsStartOnAttachEnabled();
};
