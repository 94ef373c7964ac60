// The object behind CFURLRef: an absolute address as its text, legal in every character.
//
// Threads: any. Failure: OfText and OfPath give nothing for what cannot be an address.
#pragma once

#include <CoreFoundation/CFURL.h>

#include <optional>
#include <string>
#include <string_view>

#include "CoreFoundation/Object.h"

struct __CFURL final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kURLType;

    // Of a text that must be legal as it stands.
    static frameworks::Ref<__CFURL> OfText(std::string_view text);
    // Of a path, which may hold any byte but NUL.
    static frameworks::Ref<__CFURL> OfPath(std::string_view path, bool isFolder);

    // The path on this machine, unescaped and without a closing "/"; nothing when the address is
    // not that of a file here.
    std::optional<std::string> Path() const;

    bool Equals(const frameworks::Object& other) const override;
    CFHashCode Hash() const override;
    std::string Describe() const override;

  private:
    explicit __CFURL(std::string itsText) : Object(kType), text(std::move(itsText)) {}

    const std::string text;
};
