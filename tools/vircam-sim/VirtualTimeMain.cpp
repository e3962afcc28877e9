// Copyright (C) 2026 The libvircam Authors

// vircam-sim-virtual: the simulator on the virtual clock. The shipped
// libvircam.so keeps its clock to itself, so this program links the library's
// code in and installs the clock before the library or any actor reads it.
#include "SimMain.h"
#include "VirtualClock.h"

int main(int argc, char** argv) {
    vircam_testclock::InstallVirtualClock();
    return vircam_sim::SimMain(
        argc, argv,
        "This is vircam-sim-virtual: the library's code is linked in, not loaded\n"
        "from libvircam.so, and runs on a virtual clock that jumps to the next\n"
        "deadline once every thread waits. Time-outs pass at once and every time\n"
        "it prints is virtual. vircam-sim plays the same around the shipped\n"
        "libvircam.so in real time.\n");
}
