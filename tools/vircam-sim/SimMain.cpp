// Copyright (C) 2026 The libvircam Authors

#include "SimMain.h"

#include <android/log.h>
#include <hidl/HidlRemote.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "FaultTour.h"
#include "LibraryDump.h"
#include "Recorder.h"
#include "ScenarioRunner.h"
#include "SimClock.h"
#include "SimOptions.h"

namespace {

using namespace vircam_sim;

constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

Recorder* gLogRecorder = nullptr;

// The library's log: on the timeline with --log, nowhere otherwise (and
// then not even formatted, so that it costs the frames nothing).
void RouteLibraryLog(Recorder& recorder, bool show) {
    gLogRecorder = &recorder;
    recorder.SetShowLibraryLog(show);
    __android_log_set_minimum_priority(show ? ANDROID_LOG_INFO : ANDROID_LOG_SILENT);
    __android_log_set_logger([](const struct __android_logger_data* data, const char* message) {
        if (gLogRecorder != nullptr && gLogRecorder->ShowLibraryLog()) {
            gLogRecorder->LibraryLog(data->priority, data->tag, message);
        }
    });
}

void ApplyOverrides(const SimOptions& options, Scenario& scenario) {
    for (auto& remote : scenario.remotes) {
        if (options.latencyMs) {
            remote.resultLatencyMs = remote.imageLatencyMs = *options.latencyMs;
        }
    }
    if (options.fps) {
        scenario.pipeline.fps = *options.fps;
    }
    if (options.streams) {
        const auto wanted = static_cast<size_t>(*options.streams);
        const StreamConfig extra{320, 240, 0x21};  // a small BLOB stream
        while (scenario.pipeline.streams.size() < wanted) {
            scenario.pipeline.streams.push_back(extra);
        }
        scenario.pipeline.streams.resize(wanted);
    }
    if (options.streamSeconds) {
        for (auto& step : scenario.steps) {
            if (step.action == Action::kStream && step.seconds >= 1.0) {
                step.seconds = *options.streamSeconds;
            }
        }
    }
}

bool LoadScenario(const SimOptions& options, Scenario& scenario, TourCell& cell) {
    if (!options.cell.empty()) {
        if (!CellFromName(options.cell, cell)) {
            fprintf(stderr, "no tour cell \"%s\"; try --help\n", options.cell.c_str());
            return false;
        }
        scenario = CellScenario(cell);
        return true;
    }
    if (options.scenarioFile.empty()) {
        scenario = DefaultScenario();
        return true;
    }
    std::ifstream in(options.scenarioFile);
    if (!in) {
        fprintf(stderr, "cannot read %s\n", options.scenarioFile.c_str());
        return false;
    }
    std::stringstream text;
    text << in.rdbuf();
    std::string error;
    if (!ParseScenario(text.str(), scenario, error)) {
        fprintf(stderr, "%s: %s\n", options.scenarioFile.c_str(), error.c_str());
        return false;
    }
    return true;
}

std::string SelfPath(const char* argv0) {
    char path[PATH_MAX] = {0};
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path) - 1);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string(argv0);
}

int RunOne(const SimOptions& options) {
    Scenario scenario;
    TourCell cell{};
    if (!LoadScenario(options, scenario, cell)) {
        return kExitUsage;
    }
    ApplyOverrides(options, scenario);
    // Before any simulated process exists: each takes its pool's bound when made.
    android::hardware::RemoteProcess::setDefaultBinderThreads(
        static_cast<size_t>(options.binderThreads));
    android::hardware::thisProcess()->setBinderThreads(static_cast<size_t>(options.binderThreads));
    Recorder recorder(stdout);
    RouteLibraryLog(recorder, options.log);
    if (!options.tracePath.empty()) {
        recorder.trace().Enable();
    }
    printf("%9s  %-10s %s\n", "seconds", "actor", "event");
    RunReport report;
    {
        ScenarioRunner runner(scenario, recorder);
        report = runner.Run();
    }
    PrintSummary(report, stdout);
    if (!options.tracePath.empty()) {
        if (!recorder.trace().WriteTo(options.tracePath)) {
            fprintf(stderr, "cannot write %s\n", options.tracePath.c_str());
            return kExitUsage;
        }
        printf("trace written to %s (open it at https://ui.perfetto.dev or chrome://tracing)\n",
               options.tracePath.c_str());
    }
    if (!options.cell.empty()) {
        PrintCellLine(cell, report, stdout);
    }
    if (options.dump) {
        PrintLibraryDumps(stdout);
    }
    gLogRecorder = nullptr;
    return report.Passed() ? 0 : kExitFailed;
}

}  // namespace

namespace vircam_sim {

int SimMain(int argc, char** argv, const char* timeNote) {
    NowUs();
    SimOptions options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error)) {
        fprintf(stderr, "%s\n", error.c_str());
        return kExitUsage;
    }
    if (options.help) {
        PrintHelp(argv[0], timeNote);
        return 0;
    }
    if (options.tour) {
        const int failed = RunFaultTour(SelfPath(argv[0]), options.passOn, options.parallel,
                                        options.verbose, stdout);
        return failed == 0 ? 0 : kExitFailed;
    }
    return RunOne(options);
}

}  // namespace vircam_sim
