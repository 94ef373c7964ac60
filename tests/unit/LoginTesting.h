// A logind for tests: the files through which it tells programs what it knows, in a /run of the
// test's own (WithOwnMounts).
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include "ProcessTesting.h"

namespace logintest {

using processtest::WithOwnMounts;

inline void MakeFolders() {
    std::filesystem::create_directories("/run/systemd/seats");
    std::filesystem::create_directories("/run/systemd/sessions");
}

inline void LeaveSeat() {
    MakeFolders();
    std::ofstream("/run/systemd/seats/seat0") << "IS_SEAT0=1\nCAN_TTY=1\nCAN_GRAPHICAL=1\n";
}

inline void TakeSeat(const std::string& session, uid_t user, const std::string& kind,
                     const std::string& type, pid_t leader) {
    MakeFolders();
    std::ofstream("/run/systemd/seats/seat0")
        << "IS_SEAT0=1\nCAN_TTY=1\nCAN_GRAPHICAL=1\nACTIVE=" << session << "\nACTIVE_UID=" << user
        << "\nSESSIONS=" << session << "\nUIDS=" << user << "\n";
    std::ofstream("/run/systemd/sessions/" + session)
        << "UID=" << user << "\nUSER=somebody\nACTIVE=1\nSTATE=active\nTYPE=" << type
        << "\nCLASS=" << kind << "\nSEAT=seat0\nLEADER=" << leader << "\n";
}

}  // namespace logintest
