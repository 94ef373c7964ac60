// The command line of the programs here: "--name value" pairs, and after "--" a command to start.
#pragma once

#include <map>
#include <string>
#include <vector>

class Options {
  public:
    // Takes what stands from FIRST on.
    Options(int argc, char** argv, int first);

    bool Has(const std::string& name) const;
    // These fail when the option is missing or no number.
    std::string Text(const std::string& name) const;
    long Number(const std::string& name) const;
    long Number(const std::string& name, long otherwise) const;
    const std::vector<std::string>& Command() const { return command; }

  private:
    std::map<std::string, std::string> values;
    std::vector<std::string> command;
};
