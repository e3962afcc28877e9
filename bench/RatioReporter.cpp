// Copyright (C) 2026 The libvircam Authors

#include "RatioReporter.h"

#include <cstdio>

namespace vircam_bench {

namespace {

// "BM_CaptureRequestFloor/4/16" -> "BM_CaptureRequest/4/16"
std::string WithoutFloor(const std::string& name) {
    const std::string marker = "Floor";
    const size_t at = name.find(marker);
    return at == std::string::npos ? name : name.substr(0, at) + name.substr(at + marker.size());
}

}  // namespace

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const auto& run : runs) {
        if (run.error_occurred || run.iterations == 0) {
            continue;
        }
        const std::string name = run.benchmark_name();
        mNanosPerIteration[name] =
            run.GetAdjustedRealTime() * (run.time_unit == benchmark::kMicrosecond ? 1e3 : 1.0);
        mOrder.push_back(name);
    }
}

void RatioReporter::Finalize() {
    ConsoleReporter::Finalize();
    std::printf("\n%-34s %12s %12s %8s\n", "library vs floor", "library ns", "floor ns", "ratio");
    for (const auto& name : mOrder) {
        if (name.find("Floor") == std::string::npos) {
            continue;
        }
        auto library = mNanosPerIteration.find(WithoutFloor(name));
        if (library == mNanosPerIteration.end()) {
            continue;
        }
        const double floor = mNanosPerIteration[name];
        std::printf("%-34s %12.1f %12.1f %8.2f\n", library->first.c_str(), library->second, floor,
                    library->second / floor);
    }
}

}  // namespace vircam_bench
