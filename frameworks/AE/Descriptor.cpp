#include "AE/Descriptor.h"

#include <CarbonCore/MacErrors.h>

#include <new>

using frameworks::Contents;

namespace {

constexpr AEDesc kEmpty = {typeNull, nullptr};

}  // namespace

OSErr AECreateDesc(DescType typeCode, const void* dataPtr, Size dataSize, AEDesc* result) {
    if (result == nullptr) return paramErr;
    *result = kEmpty;
    if (dataSize < 0 || (dataPtr == nullptr && dataSize > 0)) return paramErr;
    try {
        auto contents = std::make_unique<Contents>();
        if (dataSize > 0) {
            contents->data.assign(static_cast<const char*>(dataPtr),
                                  static_cast<std::size_t>(dataSize));
        }
        *result = frameworks::MakeDescriptor(typeCode, std::move(contents));
        return noErr;
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSErr AEDisposeDesc(AEDesc* theAEDesc) {
    if (theAEDesc == nullptr) return paramErr;
    delete frameworks::ContentsOf(*theAEDesc);
    *theAEDesc = kEmpty;
    return noErr;
}

OSErr AECreateAppleEvent(AEEventClass theAEEventClass, AEEventID theAEEventID,
                         const AEAddressDesc* target, AEReturnID, AETransactionID,
                         AppleEvent* result) {
    if (result == nullptr) return paramErr;
    *result = kEmpty;
    if (target == nullptr) return paramErr;
    const Contents* const address = frameworks::ContentsOf(*target);
    if (address == nullptr) return errAENotAEDesc;
    try {
        auto contents = std::make_unique<Contents>();
        contents->event =
            Contents::Event{theAEEventClass, theAEEventID, target->descriptorType, address->data};
        *result = frameworks::MakeDescriptor(typeAppleEvent, std::move(contents));
        return noErr;
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}
