#include "ImageIO/PNGLibrary.h"

#include "Support/DynamicLibrary.h"
#include "Support/StandardError.h"

namespace frameworks {

const PNGLibrary* PNGLibrary::Load() {
    return FunctionsOf<PNGLibrary>([](PNGLibrary& functions) {
        const DynamicLibrary library("libpng16.so.16");
        if (library.Find("png_image_write_to_memory", functions.writeToMemory)) return true;
        WriteToStandardError("CGImageDestination: libpng is missing, so no image is written\n");
        return false;
    });
}

}  // namespace frameworks
