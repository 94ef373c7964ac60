// The function of libpng that is used here, found in the library when the first image is written,
// so that a program that writes none neither loads it nor needs it.
//
// Owner: the process; the library stays loaded. Threads: any. Failure: null when it is not there,
// which is said on standard error.
#pragma once

#include <png.h>

namespace frameworks {

class PNGLibrary {
  public:
    static const PNGLibrary* Load();

    decltype(&png_image_write_to_memory) writeToMemory;
};

}  // namespace frameworks
