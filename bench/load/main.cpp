// Measures the service, or a peer of it, from outside. What is behind "--" is the server to start.
#include "load/Measurements.h"
#include "support/Limits.h"
#include "support/Program.h"

int main(int argc, char** argv) {
    AllowManyDescriptors();
    return RunMeasurement(argc, argv,
                          {{"round-trip", MeasureRoundTrip},
                           {"connecting", MeasureConnecting},
                           {"pipeline", MeasurePipeline},
                           {"passing", MeasurePassing},
                           {"pen", MeasurePen},
                           {"pen-sustained", MeasurePenSustained},
                           {"start", MeasureStart}},
                          stdout);
}
