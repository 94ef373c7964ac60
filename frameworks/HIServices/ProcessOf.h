// From a process's serial number to the process, and on to its bundle.
//
// Threads: any. Failure: nothing for a process that has ended, or never was; no bundle for a
// program that lies in none, or whose file is not for us to see.
#pragma once

#include <CarbonCore/MacTypes.h>

#include <optional>

#include "CoreFoundation/Bundle.h"
#include "CoreFoundation/Object.h"
#include "Support/Proc.h"

namespace frameworks {

// 0 for what is no number of a process.
pid_t PidOf(const ProcessSerialNumber& psn);

// Threads of the kernel included.
std::optional<ProcessStatus> ProcessOf(const ProcessSerialNumber& psn);

// The innermost application that holds the program's file, or the script that it runs.
Ref<__CFBundle> BundleOf(const ProcessStatus& process);

}  // namespace frameworks
