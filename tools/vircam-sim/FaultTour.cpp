// Copyright (C) 2026 The libvircam Authors

#include "FaultTour.h"

#include <fcntl.h>
#include <json/json.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>  // environ

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Recorder.h"

namespace vircam_sim {

namespace {

constexpr const char* kCellPrefix = "CELL ";

Step SwitchStep(Action action, const std::string& remote, int32_t code) {
    Step step;
    step.action = action;
    step.remote = remote;
    step.expectCode = code;
    return step;
}

Step StreamStep(double seconds) {
    Step step;
    step.action = Action::kStream;
    step.seconds = seconds;
    return step;
}

Step AwaitSwitchOff() {
    Step step;
    step.action = Action::kAwaitSwitchOff;
    step.remote = "A";
    step.expectCode = 300;
    return step;
}

// The code a failed switch-on reports at each remote step.
int32_t StepFailureCode(Stage stage) {
    switch (stage) {
        case Stage::kControlSession:
            return 1;
        case Stage::kConfigStream:
            return 101;
        default:
            return 201;
    }
}

std::string Describe(const TourCell& cell) {
    const std::string stage = StageName(cell.stage);
    switch (cell.stage) {
        case Stage::kControlSession:
        case Stage::kConfigStream:
        case Stage::kDataSession:
            return cell.kind == FaultKind::kTimeout   ? "remote never reports the " + stage
                   : cell.kind == FaultKind::kFailure ? "remote reports the " + stage + " failed"
                                                      : "remote dies on the " + stage + " call";
        case Stage::kSwitch:
            return cell.kind == FaultKind::kTimeout
                       ? "the HAL registers its callback only after 2 s"
                   : cell.kind == FaultKind::kFailure
                       ? "switch-on to B while A is on: refused"
                       : "remote dies 20 ms after its data session opened";
        case Stage::kStreaming:
            return cell.kind == FaultKind::kTimeout   ? "remote stalls, keeps every buffer"
                   : cell.kind == FaultKind::kFailure ? "remote fails 5 capture requests"
                                                      : "remote dies while streaming";
        case Stage::kSwitchOff:
            return cell.kind == FaultKind::kTimeout   ? "remote hangs 3.5 s in flush"
                   : cell.kind == FaultKind::kFailure ? "remote's flush fails"
                                                      : "remote dies on flush";
        case Stage::kNone:
        case Stage::kReconfigure:  // not a cell of the tour
            break;
    }
    return "";
}

}  // namespace

std::vector<TourCell> TourCells() {
    std::vector<TourCell> cells;
    cells.reserve(18);
    for (const Stage stage : {Stage::kControlSession, Stage::kConfigStream, Stage::kDataSession,
                              Stage::kSwitch, Stage::kStreaming, Stage::kSwitchOff}) {
        for (const FaultKind kind : {FaultKind::kTimeout, FaultKind::kFailure, FaultKind::kDeath}) {
            cells.push_back({stage, kind});
        }
    }
    return cells;
}

std::string CellName(const TourCell& cell) {
    return std::string(StageName(cell.stage)) + ":" + FaultName(cell.kind);
}

bool CellFromName(const std::string& name, TourCell& cell) {
    const size_t colon = name.find(':');
    if (colon == std::string::npos) {
        return false;
    }
    const auto stage = StageFromName(name.substr(0, colon));
    const auto kind = FaultFromName(name.substr(colon + 1));
    if (!stage || !kind) {
        return false;
    }
    cell = {*stage, *kind};
    return true;
}

Scenario CellScenario(const TourCell& cell) {
    Scenario scenario;
    scenario.name = CellName(cell);
    scenario.description = Describe(cell);
    scenario.pipeline = DefaultPipeline();
    RemoteConfig remote = DefaultRemote("A");
    remote.fault = {cell.stage, cell.kind, 10};
    scenario.remotes = {remote};
    auto& steps = scenario.steps;
    steps.push_back(StreamStep(0.2));
    switch (cell.stage) {
        case Stage::kControlSession:
        case Stage::kConfigStream:
        case Stage::kDataSession:
            steps.push_back(SwitchStep(Action::kSwitchOn, "A", StepFailureCode(cell.stage)));
            steps.push_back(StreamStep(0.3));
            break;
        case Stage::kSwitch:
            if (cell.kind == FaultKind::kTimeout) {
                scenario.pipeline.halReadyAfterMs = 2000;
                steps.push_back(SwitchStep(Action::kSwitchOn, "A", 101));
                steps.push_back(StreamStep(1.0));
            } else if (cell.kind == FaultKind::kFailure) {
                scenario.remotes.front().fault = Fault();
                scenario.remotes.push_back(DefaultRemote("B"));
                steps.push_back(SwitchStep(Action::kSwitchOn, "A", 300));
                steps.push_back(StreamStep(0.5));
                steps.push_back(SwitchStep(Action::kSwitchOn, "B", 301));
                steps.back().expectRefused = true;
                steps.push_back(StreamStep(0.3));
                steps.push_back(SwitchStep(Action::kSwitchOff, "A", 300));
            } else {
                steps.push_back(SwitchStep(Action::kSwitchOn, "A", 300));
                steps.push_back(AwaitSwitchOff());
            }
            steps.push_back(StreamStep(0.3));
            break;
        case Stage::kStreaming:
            steps.push_back(SwitchStep(Action::kSwitchOn, "A", 300));
            steps.push_back(StreamStep(1.0));
            steps.push_back(cell.kind == FaultKind::kDeath
                                ? AwaitSwitchOff()
                                : SwitchStep(Action::kSwitchOff, "A", 300));
            steps.push_back(StreamStep(0.3));
            break;
        case Stage::kSwitchOff:
            steps.push_back(SwitchStep(Action::kSwitchOn, "A", 300));
            steps.push_back(StreamStep(0.5));
            steps.push_back(SwitchStep(Action::kSwitchOff, "A", 300));
            steps.push_back(StreamStep(0.3));
            break;
        case Stage::kNone:
        case Stage::kReconfigure:  // not a cell of the tour
            break;
    }
    return scenario;
}

void PrintCellLine(const TourCell& cell, const RunReport& report, FILE* out) {
    Json::Value line(Json::objectValue);
    line["cell"] = CellName(cell);
    line["fault"] = Describe(cell);
    line["results"] = report.ResultsText();
    line["mode"] = report.mode;
    line["property"] = report.property;
    line["lost"] = Json::Int64(report.frames.lost);
    line["corrupted"] = Json::Int64(report.frames.corrupted);
    line["flushed"] = Json::Int64(report.frames.flushedByRemote + report.frames.flushedByPipeline);
    line["open"] = Json::UInt64(report.ResourcesOpen());
    line["passed"] = report.Passed();
    Json::Value& failures = line["failures"] = Json::Value(Json::arrayValue);
    for (const auto& failure : report.failures) {
        failures.append(failure);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    fprintf(out, "%s%s\n", kCellPrefix, Json::writeString(builder, line).c_str());
    fflush(out);
}

namespace {

struct Child {
    TourCell cell{};
    pid_t pid = -1;
    std::string outputPath;
    int status = 0;
};

// The words of VIRCAM_SIM_LAUNCHER, split at spaces: the command (an
// emulator such as "qemu-aarch64 -L /") under which a cell must start when
// this binary cannot be executed by the kernel directly.
std::vector<std::string> LauncherWords() {
    std::vector<std::string> words;
    const char* launcher = getenv(kLauncherVariable);
    std::istringstream in(launcher != nullptr ? launcher : "");
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

bool Spawn(const std::string& self, const std::vector<std::string>& passOn, Child& child) {
    char path[] = "/tmp/vircam-sim-cell-XXXXXX";
    const int fd = mkstemp(path);
    if (fd < 0) {
        return false;
    }
    child.outputPath = path;
    std::vector<std::string> args = LauncherWords();
    args.insert(args.end(), {self, "--cell", CellName(child.cell)});
    args.insert(args.end(), passOn.begin(), passOn.end());
    std::vector<char*> argv;
    argv.reserve(args.size() + 1);
    for (auto& arg : args) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fd, STDERR_FILENO);
    // The launcher, when there is one, is looked up on PATH; `self` is absolute.
    const int spawned = posix_spawnp(&child.pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fd);
    return spawned == 0;
}

std::string ReadAll(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The cell's own report, or a failed one that says why there is none.
Json::Value CellLine(const Child& child, const std::string& output) {
    Json::Value line;
    const size_t at = output.rfind(kCellPrefix);
    Json::Reader reader(Json::Features::strictMode());
    if (at == std::string::npos ||
        !reader.parse(output.substr(at + strlen(kCellPrefix)), line, false)) {
        line = Json::Value(Json::objectValue);
        line["cell"] = CellName(child.cell);
        line["results"] = "?";
        line["passed"] = false;
        line["failures"].append(
            Printf("the cell's process ended with status %d and no report", child.status));
    }
    if (child.status != 0 && line["passed"].asBool()) {
        line["passed"] = false;
        line["failures"].append(Printf("exit status %d", child.status));
    }
    return line;
}

void PrintRow(const Json::Value& line, FILE* out) {
    fprintf(out, "%-22s %-30s %-9s %-10s %5s %5s  %s\n", line["cell"].asCString(),
            line["results"].asCString(), line.get("mode", "?").asCString(),
            ("\"" + line.get("property", "?").asString() + "\"").c_str(),
            line.get("lost", "?").asString().c_str(), line.get("open", "?").asString().c_str(),
            line["passed"].asBool() ? "ok" : "FAILED");
}

}  // namespace

int RunFaultTour(const std::string& self, const std::vector<std::string>& passOn, int parallel,
                 bool verbose, FILE* out) {
    std::vector<Child> children;
    for (const auto& cell : TourCells()) {
        Child child;
        child.cell = cell;
        children.push_back(child);
    }
    fprintf(out, "fault tour: %zu cells, %d at a time, each in a process of its own\n",
            children.size(), parallel);
    size_t next = 0;
    size_t done = 0;
    int running = 0;
    while (done < children.size()) {
        while (running < parallel && next < children.size()) {
            if (!Spawn(self, passOn, children[next])) {
                fprintf(out, "cannot start %s\n", self.c_str());
                return static_cast<int>(children.size());
            }
            ++next;
            ++running;
        }
        int status = 0;
        const pid_t pid = wait(&status);
        if (pid < 0) {
            break;
        }
        for (auto& child : children) {
            if (child.pid == pid) {
                child.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
                fprintf(out, "  [%zu/%zu] %s done\n", ++done, children.size(),
                        CellName(child.cell).c_str());
                fflush(out);
            }
        }
        --running;
    }
    fprintf(out, "\n%-22s %-30s %-9s %-10s %5s %5s  %s\n", "stage:fault", "switch results", "mode",
            "property", "lost", "open", "check");
    int failed = 0;
    std::vector<std::pair<Json::Value, std::string>> failures;
    for (const auto& child : children) {
        const std::string output = ReadAll(child.outputPath);
        unlink(child.outputPath.c_str());
        const Json::Value line = CellLine(child, output);
        PrintRow(line, out);
        if (!line["passed"].asBool() || verbose) {
            failures.emplace_back(line, output);
        }
        failed += line["passed"].asBool() ? 0 : 1;
    }
    fprintf(out, "\nwhat each fault is:\n");
    for (const auto& child : children) {
        fprintf(out, "  %-22s %s\n", CellName(child.cell).c_str(), Describe(child.cell).c_str());
    }
    for (const auto& [line, output] : failures) {
        fprintf(out, "\n==== %s: %s\n", line["cell"].asCString(),
                line["passed"].asBool() ? "timeline" : "FAILED");
        for (const auto& failure : line["failures"]) {
            fprintf(out, "  - %s\n", failure.asCString());
        }
        fprintf(out, "%s", output.c_str());
    }
    fprintf(out, "\n%d of %zu cells as expected\n", static_cast<int>(children.size()) - failed,
            children.size());
    return failed;
}

}  // namespace vircam_sim
