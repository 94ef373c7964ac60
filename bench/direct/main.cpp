// Measures what the service does by itself. The figures go to standard error: standard output is
// the service's log.
#include "direct/Measurements.h"
#include "support/Program.h"

int main(int argc, char** argv) {
    return RunMeasurement(argc, argv,
                          {{"make-tree", MakeTree},
                           {"remove", MeasureRemove},
                           {"lookup", MeasureLookup},
                           {"lookup-gio", MeasureLookupByGio}},
                          stderr);
}
