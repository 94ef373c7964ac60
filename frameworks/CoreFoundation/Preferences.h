// The preferences of one user and application: what is in their property list, and what has been
// set since.
//
// Owner: the process, which has one keeper of all that has been set. Threads: any. Failure: as said
// per operation.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "CoreFoundation/Object.h"

namespace frameworks {

class Preferences {
  public:
    static Preferences& Get();

    // The property list of an application; empty when the name is none or the user has no home.
    static std::string PathFor(std::string_view application);

    // PATH is a property list's. Nothing when there is no such value.
    Ref<const Object> Copy(const std::string& path, const __CFString& key);
    // Null removes the key. The value is nobody else's to change.
    void Set(const std::string& path, const __CFString& key, Ref<const Object> value);
    // False when the list cannot be read or written; what has been set is then kept.
    bool Synchronize(const std::string& path);

  private:
    using Changes = std::map<std::string, Ref<const Object>, std::less<>>;

    Preferences() = default;
    Changes Take(const std::string& path);
    void PutBack(const std::string& path, Changes changes);

    // Around pending.
    std::mutex mutex;
    // Around reading, changing and writing a list.
    std::mutex writing;
    // By the list's path.
    std::map<std::string, Changes> pending;
};

}  // namespace frameworks
