// What stands behind an io_iterator_t: services that have come or gone and were not fetched yet.
//
// Threads: any. Failure: none.
#pragma once

#include <deque>
#include <memory>
#include <mutex>

#include "IOKit/RegistryEntry.h"

namespace frameworks {

class ServiceIterator {
  public:
    using Entry = std::shared_ptr<const RegistryEntry>;

    void Add(Entry entry) {
        const std::lock_guard<std::mutex> lock(mutex);
        waiting.push_back(std::move(entry));
    }

    // Null at the end, and from then on a notice is due as soon as there is something again.
    Entry Next() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (waiting.empty()) {
            armed = true;
            return nullptr;
        }
        Entry next = std::move(waiting.front());
        waiting.pop_front();
        return next;
    }

    // Whether a notice is due; there is one for all that waits.
    bool TakeNotice() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (!armed || waiting.empty()) return false;
        armed = false;
        return true;
    }

  private:
    std::mutex mutex;
    std::deque<Entry> waiting;
    bool armed = false;
};

}  // namespace frameworks
