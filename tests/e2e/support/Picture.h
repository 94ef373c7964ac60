// Pictures in memory and in PNG files. All throw Failed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

struct Picture {
    unsigned width = 0;
    unsigned height = 0;
    // Red, green, blue, alpha, row by row.
    std::vector<std::uint8_t> pixels;

    bool operator==(const Picture& other) const {
        return width == other.width && height == other.height && pixels == other.pixels;
    }
};

Picture ReadPng(const std::filesystem::path& file);
void WritePng(const std::filesystem::path& file, const Picture& picture);
