// The numbers that stand for IOKit's objects.
//
// A number is not given out again for a long time after it was released, so that a stale one is
// noticed. Owner: the process. Threads: any. Failure: nothing behind a number that stands for none,
// or for an object of another kind.
#pragma once

#include <IOKit/IOTypes.h>

#include <memory>
#include <mutex>
#include <unordered_map>
#include <variant>

#include "IOKit/ServiceIterator.h"

namespace frameworks {

class ObjectTable {
  public:
    using Iterator = std::shared_ptr<ServiceIterator>;
    using Entry = ServiceIterator::Entry;

    static ObjectTable& Get();

    io_object_t Add(std::variant<Entry, Iterator> object);
    Entry EntryOf(io_object_t number);
    Iterator IteratorOf(io_object_t number);
    // False when there was nothing.
    bool Remove(io_object_t number);

  private:
    std::mutex mutex;
    std::unordered_map<io_object_t, std::variant<Entry, Iterator>> objects;
    io_object_t last = IO_OBJECT_NULL;
};

}  // namespace frameworks
