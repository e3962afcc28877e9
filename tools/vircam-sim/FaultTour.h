// Copyright (C) 2026 The libvircam Authors

// The fault tour: every stage of a switch's life times each way a peer can
// fail it. Each cell runs in a process of its own (the library is a
// process-wide singleton and its time-outs are real), several side by side.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "RunReport.h"
#include "Scenario.h"

namespace vircam_sim {

struct TourCell {
    Stage stage;
    FaultKind kind;
};

std::vector<TourCell> TourCells();
// "configStream:timeout"
std::string CellName(const TourCell& cell);
bool CellFromName(const std::string& name, TourCell& cell);
Scenario CellScenario(const TourCell& cell);
// What a cell's child process prints last, for the tour to collect.
void PrintCellLine(const TourCell& cell, const RunReport& report, FILE* out);
// Names the command prefix under which the cells start, e.g. an emulator for a
// cross-built simulator: qemu-user cannot execute another arm64 program itself.
constexpr const char* kLauncherVariable = "VIRCAM_SIM_LAUNCHER";
// Runs the cells through `[launcher] self --cell NAME`; returns the number
// that failed.
int RunFaultTour(const std::string& self, const std::vector<std::string>& passOn, int parallel,
                 bool verbose, FILE* out);

}  // namespace vircam_sim
