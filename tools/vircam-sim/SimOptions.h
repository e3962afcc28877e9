// Copyright (C) 2026 The libvircam Authors

// The command line of vircam-sim.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vircam_sim {

struct SimOptions {
    std::string scenarioFile;  // empty: the default handover
    bool tour = false;
    std::string cell;  // one cell of the tour
    bool log = false;
    bool verbose = false;
    bool dump = false;  // both `lshal debug` dumps at the end of a run or cell
    std::string tracePath;
    int parallel = 6;
    // Threads of each simulated process's binder pool, the library's included.
    int binderThreads = 6;
    // Overrides for every remote / the pipeline, when given.
    std::optional<int> latencyMs;
    std::optional<double> fps;
    std::optional<int> streams;
    std::optional<double> streamSeconds;
    bool help = false;
    // Arguments a tour passes on to its cells.
    std::vector<std::string> passOn;
};

// False with a message on a bad command line.
bool ParseOptions(int argc, char** argv, SimOptions& options, std::string& error);
// `clockNote`: which of the two programs this is, and on which clock.
void PrintHelp(const char* program, const char* clockNote);

}  // namespace vircam_sim
