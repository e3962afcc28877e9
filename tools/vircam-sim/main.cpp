// Copyright (C) 2026 The libvircam Authors

// vircam-sim: a camera handover on a desk, with the shipped libvircam.so in
// the middle and faults on demand, in real time. --help says how to use it.
#include "SimMain.h"

int main(int argc, char** argv) {
    return vircam_sim::SimMain(
        argc, argv,
        "This is vircam-sim: it loads the shipped libvircam.so and runs in real\n"
        "time, so every time-out of the library takes as long as on a phone.\n"
        "vircam-sim-virtual plays the same on virtual time.\n");
}
