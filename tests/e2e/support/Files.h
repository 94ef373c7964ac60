// Whole files in and out of strings, and texts cut into lines. All throw Failed.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

std::string ReadAll(int descriptor);
std::string ReadFile(const std::filesystem::path& path);
// Empty when there is no such file, or something else than a file.
std::string ReadFileIfAny(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& content);

// Without their line feeds; a last line without one counts.
std::vector<std::string> Lines(const std::string& text);
// At most the last `count` lines, for people to read.
std::string LastLines(const std::string& text, std::size_t count);

bool Contains(const std::string& text, const std::string& part);
std::size_t CountOf(const std::string& text, const std::string& part);

// The permission bits, four octal digits at the most, and no following of links.
unsigned ModeOf(const std::filesystem::path& path);
unsigned OwnerOf(const std::filesystem::path& path);
