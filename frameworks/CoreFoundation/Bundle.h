// The object behind CFBundleRef: a folder, and what its Info.plist says.
//
// Threads: any. Failure: OfFolder gives nothing for what is no folder; a property list that is
// missing, broken or not a dictionary says nothing.
#pragma once

#include <CoreFoundation/CFBundle.h>

#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "CoreFoundation/Dictionary.h"
#include "CoreFoundation/Object.h"
#include "CoreFoundation/URL.h"

struct __CFBundle final : frameworks::Object {
    static constexpr const frameworks::Type& kType = frameworks::kBundleType;

    static frameworks::Ref<__CFBundle> OfFolder(std::string path);

    // Read the first time; lent.
    const __CFDictionary& Info();
    // EXTENSION and FOLDER may be empty.
    frameworks::Ref<__CFURL> Resource(std::string_view name, std::string_view extension,
                                      std::string_view folder) const;

    std::string Describe() const override;

  private:
    explicit __CFBundle(std::string itsPath) : Object(kType), path(std::move(itsPath)) {}

    const std::string path;
    std::mutex mutex;
    frameworks::Ref<const __CFDictionary> info;
};
