// What one application has to be told of the others: each that registers, and each that goes, once.
// Whether it is told of those that came or went while it was registering itself cannot be known,
// but not twice either. One thread. Throws Failed for whatever is wrong.
#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>

class News {
  public:
    enum class What { kRegistered, kGone };

    // It will be told that; or may be.
    void Expect(What what, const std::string& name) { Add(what, name, true); }
    void Allow(What what, const std::string& name) { Add(what, name, false); }
    void Told(What what, const std::string& name);
    void NothingIsOverdue(const std::string& reader, std::chrono::seconds patience) const;

  private:
    using Key = std::pair<What, std::string>;
    using Time = std::chrono::steady_clock::time_point;

    void Add(What what, const std::string& name, bool sure) {
        (sure ? expected : allowed)[{what, name}] = std::chrono::steady_clock::now();
    }

    std::map<Key, Time> expected;
    std::map<Key, Time> allowed;
};
