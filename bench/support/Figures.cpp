#include "support/Figures.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "support/Failure.h"

namespace {

// The smallest sample that at least this share of all does not exceed.
double Percentile(const std::vector<std::int64_t>& sorted, double share) {
    const double rank = std::ceil(share * static_cast<double>(sorted.size()));
    return static_cast<double>(sorted[static_cast<std::size_t>(std::max(rank, 1.0)) - 1]);
}

}  // namespace

std::string AsJson(const Figures& figures) {
    std::string json;
    for (const auto& [name, value] : figures) {
        char number[64];
        std::snprintf(number, sizeof number, "%.10g", value);
        json += (json.empty() ? "{\"" : ", \"") + name + "\": " + number;
    }
    return json + "}";
}

Figures Summary(std::vector<std::int64_t> samples) {
    if (samples.empty()) {
        throw Failure("nothing was measured");
    }
    std::sort(samples.begin(), samples.end());
    const double sum = std::accumulate(samples.begin(), samples.end(), 0.0);
    return {{"count", static_cast<double>(samples.size())},
            {"mean", sum / static_cast<double>(samples.size())},
            {"p50", Percentile(samples, 0.50)},
            {"p90", Percentile(samples, 0.90)},
            {"p99", Percentile(samples, 0.99)},
            {"max", static_cast<double>(samples.back())}};
}
