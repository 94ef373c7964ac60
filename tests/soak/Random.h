// Chance that can be had again: each user has a stream of its own, which follows from the run's
// seed and its name.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

class Random {
  public:
    Random(std::uint64_t seed, const std::string& name) {
        std::seed_seq sequence(name.begin(), name.end());
        std::uint32_t ofName[1];
        sequence.generate(ofName, ofName + 1);
        engine.seed(seed * 0x9E3779B97F4A7C15U + ofName[0]);
    }

    // Both ends included.
    int Between(int lowest, int highest) {
        return std::uniform_int_distribution<int>(lowest, highest)(engine);
    }
    bool OneIn(int chances) { return Between(1, chances) == 1; }
    std::chrono::milliseconds Milliseconds(int lowest, int highest) {
        return std::chrono::milliseconds(Between(lowest, highest));
    }
    template <typename T>
    const T& Of(const std::vector<T>& all) {
        return all[static_cast<std::size_t>(Between(0, static_cast<int>(all.size()) - 1))];
    }
    template <typename T>
    void Shuffle(std::vector<T>& all) {
        std::shuffle(all.begin(), all.end(), engine);
    }

  private:
    std::mt19937_64 engine;
};
