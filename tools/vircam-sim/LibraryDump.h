// What `lshal debug` would print for the library's two served interfaces.
#pragma once

#include <cstdio>

namespace vircam_sim {

// Writes both dumps to `out`, each under a heading. Main thread, after a run.
void PrintLibraryDumps(FILE* out);

}  // namespace vircam_sim
