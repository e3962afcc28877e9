// Copyright (C) 2026 The libvircam Authors

// What `lshal debug` would print for the library's two served interfaces.
#pragma once

#include <cstdio>
#include <string>

namespace vircam_sim {

// Writes both dumps to `out`, each under a heading. Main thread, after a run.
void PrintLibraryDumps(FILE* out);
// The channel service's dump as text. Runner thread, between steps.
std::string ChannelDumpText();

}  // namespace vircam_sim
