// The text of a mimeapps.list, and the lines of its default applications.
//
// Threads: one at a time. Failure: none; a line that is none of those stays as it is.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace frameworks {

class AssociationsFile {
  public:
    explicit AssociationsFile(std::string_view text);

    // Puts APPLICATION in front of those that open files of TYPE. False when it was there.
    bool PutInFront(std::string_view type, std::string_view application);
    // Takes APPLICATION away from them; a line without applications goes.
    void TakeOut(std::string_view type, std::string_view application);

    std::string Text() const;

  private:
    // The places of the lines for TYPE.
    std::vector<std::size_t> LinesFor(std::string_view type) const;
    void Add(std::string line);

    // With their line feeds.
    std::vector<std::string> lines;
};

}  // namespace frameworks
