#include <CarbonCore/MacMemory.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "CarbonCore/Handle.h"

namespace {

struct Free {
    void operator()(char* block) const { std::free(block); }
};
using OwnedBlock = std::unique_ptr<char, Free>;

struct Master {
    // The handle points to this, so it comes first.
    Ptr block;
    std::size_t size;
};
static_assert(offsetof(Master, block) == 0);

Master& MasterOf(Handle handle) {
    return *reinterpret_cast<Master*>(handle);
}

// malloc may answer null for no bytes, which would look like a failure.
OwnedBlock Allocate(std::size_t size) {
    return OwnedBlock(static_cast<char*>(std::malloc(std::max(size, std::size_t{1}))));
}

}  // namespace

std::string_view frameworks::HandleContent(Handle handle) {
    const Master& master = MasterOf(handle);
    return std::string_view(master.block, master.size);
}

bool frameworks::SetHandleContent(Handle handle, std::string_view content) {
    OwnedBlock block = Allocate(content.size());
    if (block == nullptr) return false;
    content.copy(block.get(), content.size());
    Master& master = MasterOf(handle);
    const OwnedBlock old(std::exchange(master.block, block.release()));
    master.size = content.size();
    return true;
}

Ptr NewPtrClear(Size byteCount) {
    if (byteCount < 0) {
        return nullptr;
    }
    // calloc may answer null for no bytes, which would look like a failure.
    return static_cast<Ptr>(std::calloc(static_cast<std::size_t>(std::max(byteCount, Size{1})), 1));
}

void DisposePtr(Ptr p) {
    std::free(p);
}

Handle NewHandle(Size byteCount) {
    if (byteCount < 0) {
        return nullptr;
    }
    const auto size = static_cast<std::size_t>(byteCount);
    OwnedBlock block = Allocate(size);
    if (block == nullptr) {
        return nullptr;
    }
    auto* const master = new (std::nothrow) Master{block.get(), size};
    if (master == nullptr) {
        return nullptr;
    }
    static_cast<void>(block.release());
    return &master->block;
}

void DisposeHandle(Handle h) {
    if (h == nullptr) {
        return;
    }
    const std::unique_ptr<Master> master(&MasterOf(h));
    const OwnedBlock block(master->block);
}
