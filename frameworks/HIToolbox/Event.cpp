#include "HIToolbox/Event.h"

#include <CarbonCore/MacErrors.h>

#include <algorithm>
#include <cstring>

OSType GetEventClass(EventRef inEvent) {
    return inEvent->eventClass;
}

UInt32 GetEventKind(EventRef inEvent) {
    return inEvent->eventKind;
}

OSStatus GetEventParameter(EventRef inEvent, EventParamName inName, EventParamType inDesiredType,
                           EventParamType* outActualType, ByteCount inBufferSize,
                           ByteCount* outActualSize, void* outData) {
    if (inEvent == nullptr) return paramErr;
    if (inName != inEvent->parameterName) return eventParameterNotFoundErr;
    if (inDesiredType != inEvent->parameterType && inDesiredType != typeWildCard) {
        return errAECoercionFail;
    }
    if (outActualType != nullptr) *outActualType = inEvent->parameterType;
    if (outActualSize != nullptr) *outActualSize = inEvent->parameterSize;
    if (outData != nullptr) {
        std::memcpy(outData, inEvent->parameter, std::min(inBufferSize, inEvent->parameterSize));
    }
    return noErr;
}
