// Strict conversion between UTF-8 and UTF-32 (RFC 3629, table 3-7 of the Unicode Standard):
// overlong forms, surrogates and values above U+10FFFF are refused in both directions. Pure
// functions, safe on every thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Writes the characters of SOURCE to TARGET, which holds at least source.size() units, and their
// number to COUNT. False when SOURCE is not well-formed; COUNT then tells how many characters stood
// before the fault.
bool ConvertUTF8toUTF32(std::string_view source, wchar_t* target, std::size_t& count);

// Appends the UTF-8 form of SOURCE to TARGET. False at the first unit that is no character.
bool ConvertUTF32toUTF8(const std::wstring& source, std::string& target);

// The characters of SOURCE, up to the first fault if there is one.
std::wstring UTF32FromUTF8(std::string_view source);

// Whether all of TEXT is well-formed.
bool IsUTF8(std::string_view text);

// Whether the LENGTH bytes at SOURCE are one well-formed sequence.
bool isLegalUTF8(const unsigned char* source, std::size_t length);

// How many bytes are missing at the end of TEXT for its last sequence to be whole; 0 when it is
// whole, or broken in a way that more bytes cannot mend.
std::size_t MissingUTF8Bytes(const std::string& text);
