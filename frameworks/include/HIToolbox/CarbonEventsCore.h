// Carbon events: what they hold, and who is told of them.
//
// Backed by frameworks/HIToolbox/Event and HIToolbox/EventHandlers.
// What is here: installing and removing handlers, and reading an event inside its handler. Events
// are made by the layer alone (CarbonEvents.h says which).
// Different from the Mac: a parameter is given as it is or as a wild card; there are no conversions
// (CarbonEvents_test: GetEventParameter_AsAnotherType_IsRefused). A handler has no next handler:
// its call reference is null.
//
// Ownership: an event is the layer's and lives as long as the call of its handler. A handler stays
// until it is removed. Threads: the main thread only, as on the Mac. Failure: as said per call.
#pragma once

#include <AE/AEDataModel.h>
#include <CarbonCore/MacTypes.h>

extern "C" {

using EventRef = struct OpaqueEventRef*;
using EventHandlerRef = struct OpaqueEventHandlerRef*;
using EventHandlerCallRef = struct OpaqueEventHandlerCallRef*;
using EventTargetRef = struct OpaqueEventTargetRef*;

using EventParamName = OSType;
using EventParamType = OSType;

enum {
    // The handler is installed already, with the same user data.
    eventHandlerAlreadyInstalledErr = -9866,
    eventParameterNotFoundErr = -9870,
    // What a handler answers when it does not care for the event.
    eventNotHandledErr = -9874
};

#pragma pack(push, 2)
struct EventTypeSpec {
    OSType eventClass;
    UInt32 eventKind;
};
#pragma pack(pop)

#define GetEventTypeCount(t) (sizeof(t) / sizeof(EventTypeSpec))

using EventHandlerProcPtr = OSStatus (*)(EventHandlerCallRef inHandlerCallRef, EventRef inEvent,
                                         void* inUserData);
using EventHandlerUPP = EventHandlerProcPtr;

inline EventHandlerUPP NewEventHandlerUPP(EventHandlerProcPtr userRoutine) {
    return userRoutine;
}

OSType GetEventClass(EventRef inEvent);
UInt32 GetEventKind(EventRef inEvent);
// Gives as much as the buffer holds, and says how much there is. The three out parameters may be
// null. eventParameterNotFoundErr when the event has none of that name, errAECoercionFail when it
// has one of another type.
OSStatus GetEventParameter(EventRef inEvent, EventParamName inName, EventParamType inDesiredType,
                           EventParamType* outActualType, ByteCount inBufferSize,
                           ByteCount* outActualSize, void* outData);

// outRef may be null. paramErr without a target, a handler or a list.
OSStatus InstallEventHandler(EventTargetRef inTarget, EventHandlerUPP inHandler,
                             ItemCount inNumTypes, const EventTypeSpec* inList, void* inUserData,
                             EventHandlerRef* outRef);
// paramErr for a handler that is not installed.
OSStatus RemoveEventHandler(EventHandlerRef inHandlerRef);

}  // extern "C"
