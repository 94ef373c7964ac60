// What the desktop calls the files with a filename extension: shared-mime-info's lists of patterns.
//
// Owner: whoever has one; it holds what the lists said when it was made. Threads: any. Failure: a
// list that is not there or broken says nothing.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace frameworks {

class FileTypes {
  public:
    // FOLDERS are those that data are looked for in, the most important one first.
    explicit FileTypes(const std::vector<std::string>& folders);

    // EXTENSION comes without its dot; letter case does not matter, but where a list says so. Empty
    // when there is no such type.
    std::string_view TypeOf(std::string_view extension) const;

  private:
    struct Type {
        int weight;
        std::string name;
    };
    using Types = std::map<std::string, Type, std::less<>>;

    void Read(std::string_view list);
    void ReadLine(std::string_view line);

    // By extension in small letters, and by extension as it is.
    Types types;
    Types typesByCase;
};

}  // namespace frameworks
