// Copyright (C) 2026 The libvircam Authors

// What one run of a scenario found: the switch results, the frames, the final
// state and what was left open, plus every expectation that failed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "SimDevMgt.h"
#include "SimPipeline.h"

namespace vircam_sim {

struct RunReport {
    std::string scenario;
    std::vector<SwitchCommand> commands;
    std::vector<SwitchResult> results;
    // Commands whose result never came because a death made the library
    // forget the switch callback.
    std::vector<SwitchCommand> forgotten;
    std::vector<double> switchOnMs;   // command to result 300
    std::vector<double> switchOffMs;  // command to result 300 with the camera back
    FrameStats frames;
    double requestRate = 0;         // frame ticks per second the pipeline kept up
    double virtualRequestRate = 0;  // capture requests per second to the library
    std::string mode;
    std::string property;
    size_t sessionsOpen = 0;  // at the remotes, after the camera closed
    size_t deathLinks = 0;    // the library still watching a peer that left
    int fdsLeaked = 0;
    int64_t durationUs = 0;
    std::vector<std::string> failures;

    size_t ResourcesOpen() const {
        return sessionsOpen + deathLinks + static_cast<size_t>(fdsLeaked > 0 ? fdsLeaked : 0);
    }
    bool Passed() const { return failures.empty(); }
    // "on 300, on 301 refused, off 300 unasked"
    std::string ResultsText() const;
};

void PrintSummary(const RunReport& report, FILE* out);

}  // namespace vircam_sim
