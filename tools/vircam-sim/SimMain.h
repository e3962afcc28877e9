// Copyright (C) 2026 The libvircam Authors

// The simulator's command line, shared by its two programs: vircam-sim, around
// the shipped libvircam.so in real time, and vircam-sim-virtual, around the
// library's code on the virtual clock.
#pragma once

namespace vircam_sim {

// The main thread, once the program has chosen the clock; `clockNote` tells
// --help which of the two programs this is. Returns the exit status.
int SimMain(int argc, char** argv, const char* clockNote);

}  // namespace vircam_sim
