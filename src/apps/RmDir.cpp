#include "apps/RmDir.h"

#include "apps/DirectoryTraverser.h"
#include "apps/Paths.h"
#include "core/Helpers.h"
#include "core/Pause.h"

namespace {

constexpr int kEntryAttempts = 64;
constexpr int kFolderAttempts = 5;
constexpr unsigned kSecondsWhileBusy = 1;

}  // namespace

std::string RmDir::generateWithOffset(const char* text, int offset) const {
    std::string result;
    for (int step = 0; step < offset; ++step) {
        result += "  ";
    }
    return result + text;
}

void RmDir::logFailure(OSStatus status, int depth) const {
    Helpers::logprintf(generateWithOffset("Unable to remove object, error %s", depth).c_str(),
                       std::string(GetMacOSStatusErrorString(status)));
}

bool RmDir::removeEntry(const FSRef* entry, int depth, OSStatus& status) {
    const std::string path = PathOfReference(*entry);
    for (int attempt = 1; attempt <= kEntryAttempts; ++attempt) {
        Helpers::logprintf(generateWithOffset("Deleting file: %s", depth + 2).c_str(), path);
        status = FSDeleteObject(entry);
        if (status == noErr) {
            return true;
        }
        logFailure(status, depth + 2);
        if (status != fBsyErr) {
            return attempt == kEntryAttempts;
        }
        Pause(kSecondsWhileBusy);
    }
    return true;
}

bool RmDir::removeEntries(const FSRef* folder, int depth, OSStatus& status) {
    bool success = true;
    DirectoryTraverser entries(folder, 0);
    for (const FSRef* entry = entries.First(); entry != nullptr; entry = entries.Next()) {
        if (!entries.CurrentIsDirectory()) {
            success = removeEntry(entry, depth, status) && success;
        } else if (success) {
            success = remove(entry, depth + 2) != 0;
        }
    }
    return success;
}

bool RmDir::removeEmptied(const FSRef* folder, int depth) {
    for (int attempt = 1; attempt <= kFolderAttempts; ++attempt) {
        const OSStatus status = FSDeleteObject(folder);
        if (status == noErr) {
            return true;
        }
        logFailure(status, depth + 1);
        if (status == fBsyErr) {
            Pause(kSecondsWhileBusy);
        } else if (attempt < kFolderAttempts) {
            logFailure(status, depth + 1);
            return false;
        }
    }
    return true;
}

int RmDir::remove(const FSRef* folder, int depth) {
    Helpers::logprintf(generateWithOffset("Deleting folder: %s", depth).c_str(),
                       PathOfReference(*folder));
    OSStatus status = noErr;
    if (!removeEntries(folder, depth, status)) {
        logFailure(status, depth + 1);
        return 0;
    }
    return removeEmptied(folder, depth) ? 1 : 0;
}
