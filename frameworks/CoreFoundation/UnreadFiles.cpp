#include "CoreFoundation/UnreadFiles.h"

#include <map>
#include <mutex>
#include <new>

namespace frameworks {
namespace {

// What is done is not on it.
class Notes {
  public:
    static Notes& Get() {
        static Notes& notes = *new Notes();
        return notes;
    }

    void Set(const std::string& path, Reading outcome) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (outcome == Reading::kDone) {
            outcomes.erase(path);
        } else {
            outcomes.insert_or_assign(path, outcome);
        }
    }
    Reading Of(const std::string& path) {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = outcomes.find(path);
        return found == outcomes.end() ? Reading::kDone : found->second;
    }

  private:
    std::mutex mutex;
    std::map<std::string, Reading> outcomes;
};

}  // namespace

void NoteReading(const std::string& path, Reading outcome) noexcept {
    try {
        Notes::Get().Set(path, outcome);
    } catch (const std::bad_alloc&) {
        // There will be too little for a new file as well.
    }
}

Reading LastReadingOf(const std::string& path) {
    return Notes::Get().Of(path);
}

}  // namespace frameworks
