// A program that knows some measurements by their names: it runs the one that its command line
// names and prints its figures as one line of JSON.
//
//     PROGRAM MEASUREMENT [--cpu CPU] --option value ... [-- COMMAND ...]
#pragma once

#include <cstdio>
#include <initializer_list>

#include "support/Figures.h"
#include "support/Options.h"

struct Measurement {
    const char* name;
    Figures (*measure)(const Options&);
};

// The program's exit status: 1, and the reason on standard error, when there are no figures.
int RunMeasurement(int argc, char** argv, std::initializer_list<Measurement> measurements,
                   std::FILE* output);
