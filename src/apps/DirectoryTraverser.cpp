#include "apps/DirectoryTraverser.h"

#include "core/Helpers.h"

namespace {

constexpr std::size_t kFirstCapacity = 16;

}  // namespace

DirectoryTraverser::DirectoryTraverser(const FSRef* itsFolder, int itsSubtree)
    : folder(itsFolder), subtree(itsSubtree) {
    if (readAll() != errFSNoMoreItems) {
        Helpers::logprint(
            "Error : DirectoryTraverser::DirectoryTraverser - can not traverse through directory.");
    }
}

void DirectoryTraverser::buildArrays(std::size_t capacity) {
    infos.assign(capacity, FSCatalogInfo());
    references.assign(capacity, FSRef());
}

// Reads with ever more room until everything fits: the listing is always of one piece.
OSStatus DirectoryTraverser::readAll() {
    for (std::size_t capacity = kFirstCapacity;; capacity *= 2) {
        FSIterator iterator = nullptr;
        const OSStatus opened =
            FSOpenIterator(folder, subtree > 0 ? kFSIterateSubtree : kFSIterateFlat, &iterator);
        if (opened != noErr) {
            count = 0;
            return opened;
        }
        buildArrays(capacity);
        ItemCount read = 0;
        const OSStatus status =
            FSGetCatalogInfoBulk(iterator, capacity, &read, nullptr, kFSCatInfoValence,
                                 infos.data(), references.data(), nullptr, nullptr);
        FSCloseIterator(iterator);
        if (status != noErr) {
            count = static_cast<std::size_t>(read);
            return status;
        }
    }
}

const FSRef* DirectoryTraverser::current() const {
    return index < count ? &references[index] : nullptr;
}

const FSRef* DirectoryTraverser::First() {
    index = 0;
    return current();
}

const FSRef* DirectoryTraverser::Next() {
    ++index;
    return current();
}

bool DirectoryTraverser::CurrentIsDirectory() const {
    return index < count && infos[index].valence != 0;
}
