// What stands behind a handle: the pointer to its block, which is what the handle points to, and
// the block's size.
//
// Threads: one at a time for each handle. Failure: false when memory runs out; the handle is then
// as it was.
#pragma once

#include <CarbonCore/MacMemory.h>

#include <string_view>

namespace frameworks {

std::string_view HandleContent(Handle handle);
// The block gets that size and those bytes.
bool SetHandleContent(Handle handle, std::string_view content);

}  // namespace frameworks
