// Copyright (C) 2026 The libvircam Authors

// Prints the usual console table, then each benchmark next to its floor
// (the benchmark of the same name with "Floor" appended) as a ratio.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace vircam_bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

private:
    std::map<std::string, double> mNanosPerIteration;
    std::vector<std::string> mOrder;
};

}  // namespace vircam_bench
