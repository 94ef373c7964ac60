#include "Verdict.h"

void Verdict::Fail(const std::string& reason) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!failed) {
        firstReason = reason;
        failed = true;
    }
}

std::string Verdict::Reason() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return firstReason;
}
