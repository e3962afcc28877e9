// Copyright (C) 2026 The libvircam Authors

#include "RunReport.h"

#include <algorithm>
#include <set>

#include "Recorder.h"

namespace vircam_sim {

namespace {

std::string Latencies(std::vector<double> values) {
    if (values.empty()) {
        return "none";
    }
    std::sort(values.begin(), values.end());
    std::string text;
    for (const double value : values) {
        text += Printf("%s%.1f", text.empty() ? "" : ", ", value);
    }
    return text + " ms";
}

long long Count(int64_t value) {
    return static_cast<long long>(value);
}

}  // namespace

std::string RunReport::ResultsText() const {
    std::set<uint32_t> commanded;
    std::set<uint32_t> refused;
    for (const auto& command : commands) {
        commanded.insert(command.seqNum);
        if (command.status != android::hardware::camera::common::V1_0::Status::OK) {
            refused.insert(command.seqNum);
        }
    }
    std::string text;
    for (const auto& result : results) {
        text += Printf("%s%s %d%s", text.empty() ? "" : ", ", result.on ? "on" : "off", result.code,
                       refused.count(result.seqNum) != 0     ? " refused"
                       : commanded.count(result.seqNum) == 0 ? " unasked"
                                                             : "");
    }
    for (const auto& command : forgotten) {
        text += Printf("%s%s none", text.empty() ? "" : ", ", command.on ? "on" : "off");
    }
    return text.empty() ? "none" : text;
}

void PrintSummary(const RunReport& report, FILE* out) {
    const FrameStats& f = report.frames;
    fprintf(out, "\nsummary of \"%s\" (%.1f s)\n", report.scenario.c_str(),
            static_cast<double>(report.durationUs) / 1e6);
    fprintf(out, "  switch results   %s\n", report.ResultsText().c_str());
    fprintf(out, "  switch-on        %s (command to result 300)\n",
            Latencies(report.switchOnMs).c_str());
    fprintf(out, "  switch-off       %s (command to result 300)\n",
            Latencies(report.switchOffMs).c_str());
    fprintf(out,
            "  frames           sent %lld, delivered %lld, lost %lld, corrupted %lld\n"
            "                   flushed %lld (returned by the remote %lld, given up at the flush "
            "notice %lld)\n"
            "                   refused %lld, skipped for want of a buffer %lld, late %lld, "
            "stray %lld, local sensor %lld\n",
            Count(f.sent), Count(f.delivered), Count(f.lost), Count(f.corrupted),
            Count(f.flushedByRemote + f.flushedByPipeline), Count(f.flushedByRemote),
            Count(f.flushedByPipeline), Count(f.refused), Count(f.skipped), Count(f.late),
            Count(f.stray), Count(f.local));
    fprintf(out,
            "  rate             %.1f frames/s paced; %.1f capture requests/s to the library while "
            "virtual; %lld metadata requests\n",
            report.requestRate, report.virtualRequestRate, Count(f.metaSent));
    fprintf(out, "  final state      camera %s, property \"%s\"\n", report.mode.c_str(),
            report.property.c_str());
    fprintf(out, "  left open        %zu sessions, %zu death links, %d file descriptors\n",
            report.sessionsOpen, report.deathLinks, report.fdsLeaked);
    if (report.Passed()) {
        fprintf(out, "  verdict          every expectation met\n");
        return;
    }
    fprintf(out, "  verdict          %zu expectation(s) failed:\n", report.failures.size());
    for (const auto& failure : report.failures) {
        fprintf(out, "                   - %s\n", failure.c_str());
    }
}

}  // namespace vircam_sim
