// The text of a mimeapps.list, and the lines of its default applications.
//
// Threads: one at a time. Failure: none; a line that is none of those stays as it is.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace frameworks {

class AssociationsFile {
  public:
    explicit AssociationsFile(std::string_view text);

    // Where an application was on each of a type's lines, in their order: 1 is the front, 0 is not
    // there.
    using Places = std::vector<std::size_t>;

    // Puts APPLICATION in front of those that open files of TYPE. Where it was before, or nothing
    // when it was in front already.
    std::optional<Places> PutInFront(std::string_view type, std::string_view application);
    // Puts APPLICATION back to where it was, and takes it away where it was not, also from lines
    // that have come since; a line without applications goes.
    void PutBack(std::string_view type, std::string_view application, const Places& before);

    std::string Text() const;

  private:
    // The places of the lines for TYPE.
    std::vector<std::size_t> LinesFor(std::string_view type) const;
    void Add(std::string line);

    // With their line feeds.
    std::vector<std::string> lines;
};

}  // namespace frameworks
