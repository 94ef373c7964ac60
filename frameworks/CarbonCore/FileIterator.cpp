#include <CarbonCore/Files.h>

#include <cerrno>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "CarbonCore/FileReference.h"
#include "CarbonCore/FolderDescriptor.h"
#include "CarbonCore/FolderStream.h"
#include "CarbonCore/ShortStatus.h"
#include "Support/ErrnoStatus.h"

using frameworks::FolderStream;
using frameworks::StatusOfErrno;

struct OpaqueFSIterator {
    // With a closing "/".
    std::string folder;
    FSIteratorFlags flags;
    FolderStream entries;
};

namespace {

// The iterators that are open, so that any other is told from them without being looked at.
struct Iterators {
    std::mutex mutex;
    std::set<FSIterator> open;

    static Iterators& Get() {
        static Iterators& iterators = *new Iterators();
        return iterators;
    }
};

bool IsOpen(FSIterator iterator) {
    Iterators& iterators = Iterators::Get();
    const std::lock_guard<std::mutex> lock(iterators.mutex);
    return iterators.open.count(iterator) != 0;
}

OSStatus Open(const FSRef& container, FSIteratorFlags flags, FSIterator& iterator) {
    if (!frameworks::IsRef(container)) return paramErr;
    if (flags != kFSIterateFlat && flags != kFSIterateSubtree) return errFSBadIteratorFlags;
    std::optional<std::string> path = frameworks::PathOf(container);
    if (!path) return fnfErr;
    FolderStream entries(frameworks::OpenFolder(*path));
    if (!entries.IsOpen()) return StatusOfErrno(errno);
    if (path->back() != '/') {
        *path += '/';
    }
    std::unique_ptr<OpaqueFSIterator> made(
        new OpaqueFSIterator{std::move(*path), flags, std::move(entries)});
    Iterators& iterators = Iterators::Get();
    const std::lock_guard<std::mutex> lock(iterators.mutex);
    iterators.open.insert(made.get());
    iterator = made.release();
    return noErr;
}

// How many entries a folder has; what cannot be looked into is taken not to be empty.
UInt32 ValenceOf(const FolderStream& entries, const char* folder) {
    FolderStream inner(entries.OpenEntry(folder));
    if (!inner.IsOpen()) return 1;
    UInt32 valence = 0;
    while (inner.Next() != nullptr) {
        ++valence;
    }
    return inner.Error() == 0 ? valence : 1;
}

OSStatus Read(OpaqueFSIterator& iterator, ItemCount most, ItemCount& actual, FSCatalogInfo* infos,
              FSRef* refs) {
    std::string path = iterator.folder;
    for (actual = 0; actual < most; ++actual) {
        const dirent64* const entry = iterator.entries.Next();
        if (entry == nullptr) {
            const int error = iterator.entries.Error();
            return error == 0 ? static_cast<OSStatus>(errFSNoMoreItems) : StatusOfErrno(error);
        }
        if (infos != nullptr) {
            infos[actual].valence =
                iterator.entries.IsFolder(*entry) ? ValenceOf(iterator.entries, entry->d_name) : 0;
        }
        if (refs != nullptr) {
            path.replace(iterator.folder.size(), std::string::npos, entry->d_name);
            refs[actual] = frameworks::MakeRef(path);
        }
    }
    return noErr;
}

}  // namespace

OSErr FSOpenIterator(const FSRef* container, FSIteratorFlags iteratorFlags, FSIterator* iterator) {
    if (container == nullptr || iterator == nullptr) return paramErr;
    try {
        return frameworks::ShortStatus(Open(*container, iteratorFlags, *iterator));
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSErr FSGetCatalogInfoBulk(FSIterator iterator, ItemCount maximumObjects, ItemCount* actualObjects,
                           Boolean* containerChanged, FSCatalogInfoBitmap whichInfo,
                           FSCatalogInfo* catalogInfos, FSRef* refs, FSSpecPtr specs,
                           HFSUniStr255* names) {
    if (actualObjects == nullptr || containerChanged != nullptr || specs != nullptr ||
        names != nullptr) {
        return paramErr;
    }
    *actualObjects = 0;
    if (!IsOpen(iterator)) return errFSIteratorNotFound;
    if (iterator->flags != kFSIterateFlat) return errFSIteratorNotSupported;
    if (maximumObjects == 0) return errFSBadItemCount;
    if ((whichInfo & ~FSCatalogInfoBitmap{kFSCatInfoValence}) != 0) return errFSBadInfoBitmap;
    if (whichInfo != kFSCatInfoNone && catalogInfos == nullptr) return errFSMissingCatInfo;
    try {
        return frameworks::ShortStatus(Read(*iterator, maximumObjects, *actualObjects,
                                            whichInfo == kFSCatInfoNone ? nullptr : catalogInfos,
                                            refs));
    } catch (const std::bad_alloc&) {
        return memFullErr;
    }
}

OSErr FSCloseIterator(FSIterator iterator) {
    Iterators& iterators = Iterators::Get();
    {
        const std::lock_guard<std::mutex> lock(iterators.mutex);
        if (iterators.open.erase(iterator) == 0) return errFSIteratorNotFound;
    }
    delete iterator;
    return noErr;
}
