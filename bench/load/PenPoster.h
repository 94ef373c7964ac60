// This process as a tablet driver: whoever taps it gets what it posts.
#pragma once

#include "frameworks/CoreGraphics/PenEventRecord.h"
#include "support/Descriptor.h"

class PenPoster {
  public:
    PenPoster();

    // Waits for the one who taps.
    void Accept();
    // A tap that does not read is waited for.
    void Post(const penEvents::Record& event) const;

  private:
    Descriptor listener;
    Descriptor tap;
};
