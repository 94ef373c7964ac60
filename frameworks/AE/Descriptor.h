// What stands behind the handle of an Apple event descriptor.
//
// Owner: the descriptor, until it is disposed of. Threads: one at a time. Failure: none.
#pragma once

#include <AE/AEDataModel.h>

#include <memory>
#include <optional>
#include <string>

namespace frameworks {

struct Contents {
    std::string data;

    // Only an event's: what it is, and whom it is for.
    struct Event {
        AEEventClass eventClass;
        AEEventID eventID;
        DescType targetType;
        std::string target;
    };
    std::optional<Event> event;
};

// Null for an empty descriptor.
inline const Contents* ContentsOf(const AEDesc& descriptor) {
    return reinterpret_cast<const Contents*>(descriptor.dataHandle);
}

inline AEDesc MakeDescriptor(DescType type, std::unique_ptr<Contents> contents) {
    return {type, reinterpret_cast<AEDataStorage>(contents.release())};
}

}  // namespace frameworks
