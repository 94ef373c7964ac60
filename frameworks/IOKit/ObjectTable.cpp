#include "IOKit/ObjectTable.h"

namespace frameworks {

ObjectTable& ObjectTable::Get() {
    // Never destroyed: threads may still run while the process ends.
    static ObjectTable& table = *new ObjectTable();
    return table;
}

io_object_t ObjectTable::Add(std::variant<Entry, Iterator> object) {
    const std::lock_guard<std::mutex> lock(mutex);
    do {
        ++last;
    } while (last == IO_OBJECT_NULL || objects.count(last) != 0);
    objects.emplace(last, std::move(object));
    return last;
}

ObjectTable::Entry ObjectTable::EntryOf(io_object_t number) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = objects.find(number);
    const Entry* const entry =
        found == objects.end() ? nullptr : std::get_if<Entry>(&found->second);
    return entry == nullptr ? nullptr : *entry;
}

ObjectTable::Iterator ObjectTable::IteratorOf(io_object_t number) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = objects.find(number);
    const Iterator* const iterator =
        found == objects.end() ? nullptr : std::get_if<Iterator>(&found->second);
    // cppcheck-suppress nullPointer ; the line asks
    return iterator == nullptr ? nullptr : *iterator;
}

bool ObjectTable::Remove(io_object_t number) {
    const std::lock_guard<std::mutex> lock(mutex);
    return objects.erase(number) != 0;
}

}  // namespace frameworks
