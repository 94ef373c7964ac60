// A part of a test that runs in a process of its own: because it ends the process, changes who it
// is, or must find the service's statics as they are at its start.
//
// The child has an empty home folder of its own, and its output is kept. Assertions count in it as
// anywhere else; a finding of a sanitizer is a failure whatever the test expected of the child.
//
// Threads: to be called on the main thread, with no other one running. A child that does not end in
// time is killed, and that is a failure.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

struct Outcome {
    // The exit status, or minus the signal that ended the child.
    int status = 0;
    std::string output;
    std::string errors;
};

// Runs BODY in a child, which exits with 0 behind it unless BODY ends it otherwise. Failed
// assertions and whatever goes wrong with the child are failures of the current test.
Outcome RunForked(const std::function<void()>& body);

// The same for a body that runs to its end.
void InChild(const std::function<void()>& body);

// --- For the child

// Its home folder, without a "/" at its end.
const std::string& Home();

// The lines on its standard output since the last call.
std::vector<std::string> Printed();
// The text on its standard error since the last call.
std::string PrintedErrors();

// --- For both

std::vector<std::string> Lines(const std::string& text);
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);
bool Exists(const std::string& path);
