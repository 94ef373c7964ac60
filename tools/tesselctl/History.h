// What was typed into the shell, kept over its runs: one line each in a plain file that only the
// user can read.
//
// Lines are appended as they are typed, so that two shells at the same time lose nothing; a file
// that has become long is cut when it is loaded. Failure: without a writable file the history lasts
// as long as the shell.
#pragma once

#include <string>
#include <vector>

namespace tesselctl {

// $XDG_STATE_HOME/tesselctl/history, or the default place of that variable in the home folder.
std::string HistoryPath(const std::string& home);

class History {
  public:
    explicit History(std::string file) : path(std::move(file)) {}

    // The lines of earlier runs, oldest first.
    std::vector<std::string> Load();

    void Append(const std::string& line);

  private:
    std::string path;
};

}  // namespace tesselctl
