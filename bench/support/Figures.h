// What a measurement yields: named numbers, printed as one line of JSON.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

using Figures = std::map<std::string, double>;

std::string AsJson(const Figures& figures);

// "count", and "mean", "p50", "p90", "p99", "max" of the samples.
Figures Summary(std::vector<std::int64_t> samples);
