// Copyright (C) 2026 The libvircam Authors

#include "SimOptions.h"

#include <cstdio>
#include <cstdlib>

namespace vircam_sim {

namespace {

bool Number(const std::string& text, double min, double max, double& value) {
    char* end = nullptr;
    value = strtod(text.c_str(), &end);
    return !text.empty() && end != nullptr && *end == '\0' && value >= min && value <= max;
}

}  // namespace

bool ParseOptions(int argc, char** argv, SimOptions& options, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool hasValue = i + 1 < argc;
        const auto value = [&]() { return std::string(argv[++i]); };
        double number = 0;
        if (arg == "-h" || arg == "--help") {
            options.help = true;
        } else if (arg == "--log") {
            options.log = true;
            options.passOn.push_back(arg);
        } else if (arg == "--tour") {
            options.tour = true;
        } else if (arg == "--verbose") {
            options.verbose = true;
        } else if (arg == "--dump") {
            options.dump = true;
        } else if (arg == "--scenario" && hasValue) {
            options.scenarioFile = value();
        } else if (arg == "--cell" && hasValue) {
            options.cell = value();
        } else if (arg == "--trace" && hasValue) {
            options.tracePath = value();
        } else if (arg == "--parallel" && hasValue && Number(value(), 1, 32, number)) {
            options.parallel = static_cast<int>(number);
        } else if (arg == "--binder-threads" && hasValue && Number(argv[i + 1], 1, 64, number)) {
            options.passOn.insert(options.passOn.end(), {arg, value()});
            options.binderThreads = static_cast<int>(number);
        } else if (arg == "--latency" && hasValue && Number(argv[i + 1], 0, 60000, number)) {
            options.passOn.insert(options.passOn.end(), {arg, value()});
            options.latencyMs = static_cast<int>(number);
        } else if (arg == "--fps" && hasValue && Number(argv[i + 1], 1, 100000, number)) {
            options.passOn.insert(options.passOn.end(), {arg, value()});
            options.fps = number;
        } else if (arg == "--streams" && hasValue && Number(argv[i + 1], 1, 8, number)) {
            options.passOn.insert(options.passOn.end(), {arg, value()});
            options.streams = static_cast<int>(number);
        } else if (arg == "--stream-seconds" && hasValue && Number(value(), 0.1, 3600, number)) {
            options.streamSeconds = number;
        } else {
            error = "cannot use \"" + arg + "\"" + (hasValue ? "" : " (a value missing?)") +
                    "; try --help";
            return false;
        }
    }
    const int modes = (options.tour ? 1 : 0) + (options.cell.empty() ? 0 : 1) +
                      (options.scenarioFile.empty() ? 0 : 1);
    if (modes > 1) {
        error = "--tour, --cell and --scenario exclude each other";
        return false;
    }
    return true;
}

void PrintHelp(const char* program, const char* clockNote) {
    printf(R"(usage: %s [options]

Replays a camera handover on the desk: the library in the middle, and around
it the three peers a phone would have, each on threads of its own:
  pipeline   the camera HAL: opens camera 0 with three streams, lends memfd
             buffers, sends capture + metadata requests at its frame rate and
             checks every image against the test pattern of its frame
  devmgt     device management: registers the switch callback, names the
             physical camera (notify 101), commands switches, records results
  remote X   a remote device: opens the sessions the library asks for,
             answers after its latency, paints each frame into its buffer

With no option it plays the default handover: physical; switch on to A;
stream; a switch-on to B while virtual, which the library refuses; switch off;
switch on to B; stream; switch off. It prints a timeline (seconds, actor,
event; device, service and session ids masked as the library's log masks
them) and a summary, and exits 0 when every expectation held.

what to run:
  (nothing)            the default handover
  --scenario FILE      a scenario of your own (JSON; see tools/vircam-sim/
                       README.md, examples in tools/vircam-sim/scenarios/)
  --tour               the fault tour: 6 stages (controlSession, configStream,
                       dataSession, switch, streaming, switchOff) x 3 faults
                       (timeout, failure, death), each cell in a process of its
                       own; prints a table of switch results, final mode,
                       property, frames lost and resources left open
  --cell STAGE:FAULT   one cell of the tour, with its timeline
                       (e.g. --cell configStream:timeout)

what to show:
  --log                interleave the library's own log lines (info and up)
  --trace FILE         write a Chrome trace-event JSON file: open it at
                       https://ui.perfetto.dev or chrome://tracing
  --verbose            with --tour: print every cell's timeline, not only the
                       failed ones
  --dump               at the end of the run (or of the --cell), print what
                       `lshal debug` prints for both of the library's services

what to change (for every remote / the pipeline):
  --latency MS         remote result and image latency (default 0)
  --fps N              capture requests per second (default 30, at most 100000)
  --streams N          streams of the camera (default 3, at most 8)
  --stream-seconds S   length of each "stream" step of the default handover
  --parallel N         tour cells run side by side (default 6)
  --binder-threads N   binder threads of every process, the camera HAL's
                       included (default 6, as AOSP's camera provider)

environment:
  VIRCAM_SIM_LAUNCHER  words put before every tour cell's command, e.g.
                       "qemu-aarch64 -L /" for a simulator built for arm64

exit status: 0 every expectation held, 1 some did not, 2 bad command line or
scenario file.

%s)",
           program, clockNote);
}

}  // namespace vircam_sim
