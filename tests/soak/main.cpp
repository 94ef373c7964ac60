// The soak: the service in its sandbox, under a mixed load, while things go wrong around it.
//
// Usage: soak [--seconds N] [--seed N] [--patience SECONDS] [--clients N] [--messages PER-SECOND]
// [--pen PER-SECOND]
//
// Ends with 0 when nothing was wrong, and otherwise with 1 and the reason. The seed is printed:
// with it, everybody decides as before, as far as the decisions do not hang on how quick the others
// are.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <random>

#include "Run.h"

namespace {

int Usage() {
    std::cerr << "Usage: soak [--seconds N] [--seed N] [--patience SECONDS] [--clients N]\n"
                 "            [--messages PER-SECOND] [--pen PER-SECOND]\n";
    return 2;
}

bool Read(int argc, char** argv, Options& options) {
    options.seed = std::random_device()();
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        const std::string text = i + 1 < argc ? argv[i + 1] : "";
        if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
            return false;
        }
        const unsigned long long value = std::stoull(text);
        const int number = static_cast<int>(std::min(value, 1000000ULL));
        if (name == "--seconds") {
            options.duration = std::chrono::seconds(number);
        } else if (name == "--seed") {
            options.seed = value;
        } else if (name == "--patience") {
            options.patience = std::chrono::seconds(number);
        } else if (name == "--clients") {
            options.channelClients = number;
        } else if (name == "--messages") {
            options.channelRate = number;
        } else if (name == "--pen") {
            options.penRate = number;
        } else {
            return false;
        }
    }
    return true;
}

void Soak(const Options& options, std::string& reason) {
    World world(options);
    const auto start = std::chrono::steady_clock::now();
    Run(world).Go();
    const auto time = std::chrono::steady_clock::now() - start;
    std::cout << "In " << std::chrono::duration_cast<std::chrono::seconds>(time).count() << " s:\n";
    world.tally.Print(std::cout);
    std::cout << "  processor time of the service: "
              << world.service->ProcessorTime().count() / 1000 << " s" << std::endl;
    reason = world.verdict.Reason();
    if (world.verdict.Failed()) {
        // Lets the service's end show what it printed last.
        ADD_FAILURE() << reason;
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!Read(argc, argv, options)) {
        return Usage();
    }
    // Each client has a descriptor here as well.
    const rlimit many = {4096, 4096};
    setrlimit(RLIMIT_NOFILE, &many);
    std::cout << "Seed " << options.seed << ", " << options.duration.count() << " s" << std::endl;
    std::string reason;
    try {
        Soak(options, reason);
    } catch (const std::exception& failure) {
        reason = failure.what();
    }
    if (reason.empty() && testing::Test::HasFailure()) {
        reason = "the service did not end as it should; see above";
    }
    if (!reason.empty()) {
        std::cout << "Failed (seed " << options.seed << "): " << reason << std::endl;
        return 1;
    }
    std::cout << "Nothing was wrong." << std::endl;
}
