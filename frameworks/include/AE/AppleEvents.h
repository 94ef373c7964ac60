// The names of the Apple events that every application knows.
#pragma once

#include <AE/AEDataModel.h>

enum : DescType { kCoreEventClass = 0x61657674 };      // 'aevt'
enum : AEEventID { kAEQuitApplication = 0x71756974 };  // 'quit'
