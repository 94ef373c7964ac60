// Devices that can be plugged in and out, by a program beside this one: what answers for the
// machine's devices has to be in a process from its start, and is kept out of this one. One thread
// at a time; all throw Failed.
#pragma once

#include <sys/types.h>

#include <string>

#include "support/Descriptor.h"

class Devices {
  public:
    Devices();
    ~Devices();
    Devices(const Devices&) = delete;
    Devices& operator=(const Devices&) = delete;

    // Where /sys and /dev of those devices lie.
    const std::string& Folder() const { return folder; }
    // Numbers as the system writes them: four hexadecimal digits.
    void Plug(const std::string& name, const std::string& vendor, const std::string& product);
    void Unplug(const std::string& name);

  private:
    std::string ReadLine();
    void Tell(const std::string& line);

    pid_t plugger = -1;
    Descriptor toPlugger;
    Descriptor fromPlugger;
    std::string folder;
};
