// What can be measured without a server: what the service does with applications and folders, by
// the service's own code, in this process.
//
//     make-tree   --path FOLDER --files N           makes one of empty files, a thousand a folder
//     remove      --path FOLDER                     deletes the tree
//     lookup      --count N --identifier PREFIX --applications M
//                                                   finds applications PREFIX0 to PREFIX(M-1)
//     lookup-gio  the same, by GLib, among desktop files called PREFIX0.desktop and so on
//
// Times are in nanoseconds, memory in kB.
#pragma once

#include "support/Figures.h"
#include "support/Options.h"

Figures MakeTree(const Options& options);
Figures MeasureRemove(const Options& options);
Figures MeasureLookup(const Options& options);
Figures MeasureLookupByGio(const Options& options);
