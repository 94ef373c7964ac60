#include "ImageIO/PNGLibrary.h"

#include "Support/DynamicLibrary.h"
#include "Support/StandardError.h"

namespace frameworks {

const PNGLibrary* PNGLibrary::Load() {
    static const PNGLibrary* const loaded = []() -> const PNGLibrary* {
        static PNGLibrary functions;
        const DynamicLibrary library("libpng16.so.16");
        if (library.Find("png_image_write_to_memory", functions.writeToMemory)) return &functions;
        WriteToStandardError("CGImageDestination: libpng is missing, so no image is written\n");
        return nullptr;
    }();
    return loaded;
}

}  // namespace frameworks
