// Copyright (C) 2026 The libvircam Authors

// vircam-sim as its users meet it: the trace it writes must load as
// trace-event JSON with the switch steps in order, and a scenario file with a
// mistake must be refused with the place of the mistake.
#include <dirent.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tools/vircam-sim/Scenario.h"

namespace vircam_test {
namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// The simulator's path comes from ctest: the first argument after the gtest ones.
std::string gSimulator;

TEST(VirCamSimTraceTest, HandoverTraceIsTraceEventJsonWithTheSwitchStepsInOrder) {
    ASSERT_FALSE(gSimulator.empty());
    const std::string trace =
        testing::TempDir() + "vircam-sim-trace-" + std::to_string(getpid()) + ".json";
    const std::string command =
        gSimulator + " --stream-seconds 0.4 --trace " + trace + " > /dev/null";
    ASSERT_EQ(0, std::system(command.c_str()));

    Json::Value root;
    Json::Reader reader(Json::Features::strictMode());
    ASSERT_TRUE(reader.parse(ReadFile(trace), root, false)) << reader.getFormattedErrorMessages();
    unlink(trace.c_str());
    const Json::Value& events = root["traceEvents"];
    ASSERT_TRUE(events.isArray());

    std::map<int, std::string> tracks;
    for (const auto& event : events) {
        if (event["ph"].asString() == "M" && event["name"].asString() == "thread_name") {
            tracks[event["tid"].asInt()] = event["args"]["name"].asString();
        }
    }
    std::vector<std::string> steps;
    std::map<std::string, int> framesPerStream;
    std::vector<int64_t> switchOnResults;
    int64_t lastStepStart = -1;
    for (const auto& event : events) {
        const std::string phase = event["ph"].asString();
        ASSERT_TRUE(event.isMember("pid") && event.isMember("tid") && event.isMember("name"));
        if (phase == "M") {
            continue;
        }
        ASSERT_TRUE(phase == "X" || phase == "i") << phase;
        ASSERT_TRUE(event["ts"].isIntegral() && event["ts"].asInt64() >= 0);
        ASSERT_EQ(1u, tracks.count(event["tid"].asInt())) << "an event on an unnamed track";
        if (phase != "X") {
            continue;
        }
        ASSERT_TRUE(event["dur"].isIntegral() && event["dur"].asInt64() >= 0);
        const std::string& track = tracks[event["tid"].asInt()];
        if (track == "library switch steps") {
            EXPECT_GE(event["ts"].asInt64(), lastStepStart);
            lastStepStart = event["ts"].asInt64();
            steps.push_back(event["name"].asString().substr(0, 5));
        } else if (track.rfind("stream ", 0) == 0) {
            // A frame still out at a switch-off comes back through the flush
            // (a slow machine makes that likely); anything else is a fault.
            const std::string outcome = event["args"]["outcome"].asString();
            EXPECT_TRUE(outcome == "delivered" || outcome.rfind("flushed by the ", 0) == 0)
                << track << ": " << outcome;
            ++framesPerStream[track];
        } else if (track == "devmgt" && event["name"].asString().rfind("switch-on", 0) == 0 &&
                   event.isMember("args")) {
            switchOnResults.push_back(event["args"]["result"].asInt64());
        }
    }
    // Two switches get through all four steps; the refused one opens none.
    const std::vector<std::string> expected{"Step1", "Step2", "Step3", "Step4",
                                            "Step1", "Step2", "Step3", "Step4"};
    EXPECT_EQ(expected, steps);
    // The refused switch-on to B closes its span with 301 as well.
    EXPECT_EQ((std::vector<int64_t>{300, 301, 300}), switchOnResults);
    ASSERT_EQ(3u, framesPerStream.size());
    for (const auto& [track, frames] : framesPerStream) {
        EXPECT_GT(frames, 10) << track;
    }
}

TEST(VirCamSimScenarioTest, ExampleLoadsAndMistakesAreNamedByTheirPlace) {
    using vircam_sim::ParseScenario;
    vircam_sim::Scenario scenario;
    std::string error;
    ASSERT_TRUE(
        ParseScenario(ReadFile(std::string(VIRCAM_SOURCE_DIR) +
                               "/tools/vircam-sim/scenarios/remote-dies-while-streaming.json"),
                      scenario, error))
        << error;
    ASSERT_EQ(2u, scenario.remotes.size());
    EXPECT_EQ(vircam_sim::Stage::kStreaming, scenario.remotes[0].fault.stage);
    EXPECT_EQ(4u, scenario.pipeline.streams.size());

    ASSERT_TRUE(
        ParseScenario(ReadFile(std::string(VIRCAM_SOURCE_DIR) +
                               "/tools/vircam-sim/scenarios/calls-pile-up-during-a-step.json"),
                      scenario, error))
        << error;
    ASSERT_EQ(8u, scenario.steps.size());
    EXPECT_EQ(vircam_sim::Action::kRegister, scenario.steps[1].action);
    EXPECT_EQ("C", scenario.steps[1].remote);
    EXPECT_EQ(300, scenario.steps[1].inMs);
    EXPECT_EQ(vircam_sim::Action::kWithdraw, scenario.steps[3].action);

    const std::vector<std::pair<std::string, std::string>> mistakes{
        {R"({"steps": [{"register": "Z"}]})", "steps[0].register"},
        {R"({"steps": [{"withdraw": "A", "inMs": -1}]})", "steps[0].inMs"},
        {R"({"steps": [{"stream": 1}, {"switchOn": "C"}]})", "steps[1].switchOn"},
        {R"({"steps": [{"stream": 1, "wait": 2}]})", "steps[0]: needs exactly one"},
        {R"({"steps": [{"switchOn": "A", "expect": "300"}]})", "steps[0].expect"},
        {R"({"remotes": [{"name": "A", "fault": {"stage": "flush", "kind": "death"}}],
             "steps": [{"stream": 1}]})",
         "remotes[0].fault.stage"},
        {R"({"pipeline": {"streams": [{"width": 64, "height": 64, "format": "NV99"}]},
             "steps": [{"stream": 1}]})",
         "pipeline.streams[0].format"},
        {R"({"stesp": []})", "scenario.stesp: unknown key"},
        {R"({"steps": [{"stream": 1},]})", "not valid JSON"},
    };
    for (const auto& [text, where] : mistakes) {
        error.clear();
        EXPECT_FALSE(ParseScenario(text, scenario, error)) << text;
        EXPECT_EQ(0u, error.find(where)) << error;
    }
}

// The language's later words: each reads into the step or expectation it
// names, and each is refused where it means nothing.
TEST(VirCamSimScenarioTest, TimingWordsReadIntoStepsAndAreRefusedWhereTheyMeanNothing) {
    using vircam_sim::Action;
    using vircam_sim::ParseScenario;
    vircam_sim::Scenario scenario;
    std::string error;
    ASSERT_TRUE(ParseScenario(R"({
        "pipeline": {"flushNoticeDelayMs": 250},
        "devmgt": {"reregisterAfterDeath": false, "resultReturnDelayMs": 40},
        "remotes": [{"name": "A", "rejectsUnknownSessions": true,
                     "fault": {"stage": "reconfigure", "kind": "timeout"}}],
        "steps": [{"switchOn": "A", "async": true, "expect": 300},
                  {"switchOff": "A", "afterResult": true, "expect": "none"},
                  {"awaitResult": "A"}, {"reconfigure": true, "async": true, "succeeds": false},
                  {"flush": true, "succeeds": true}, {"register": "A"},
                  {"registerSwitchCallback": true}, {"dump": ["running now: nothing"]}],
        "expect": {"framesRefusedAtLeast": 3, "unknownSessionCallsAtLeast": 2,
                   "unknownSessionCallsAtMost": 5, "dump": ["mode: VIRTUAL"]}})",
                              scenario, error))
        << error;
    EXPECT_EQ(250, scenario.pipeline.flushNoticeDelayMs);
    EXPECT_FALSE(scenario.devmgt.reregisterAfterDeath);
    EXPECT_EQ(40, scenario.devmgt.resultReturnDelayMs);
    ASSERT_EQ(1u, scenario.remotes.size());
    EXPECT_TRUE(scenario.remotes[0].rejectsUnknownSessions);
    EXPECT_EQ(vircam_sim::Stage::kReconfigure, scenario.remotes[0].fault.stage);
    ASSERT_EQ(8u, scenario.steps.size());
    EXPECT_TRUE(scenario.steps[0].async);
    EXPECT_FALSE(scenario.steps[0].afterResult);
    EXPECT_EQ(300, scenario.steps[0].expectCode.value_or(0));
    EXPECT_TRUE(scenario.steps[1].afterResult);
    EXPECT_TRUE(scenario.steps[1].expectNoResult);
    EXPECT_EQ(Action::kAwaitResult, scenario.steps[2].action);
    EXPECT_EQ("A", scenario.steps[2].remote);
    EXPECT_EQ(Action::kReconfigure, scenario.steps[3].action);
    EXPECT_TRUE(scenario.steps[3].async);
    EXPECT_EQ(false, scenario.steps[3].expectSucceeds.value_or(true));
    EXPECT_EQ(Action::kFlush, scenario.steps[4].action);
    EXPECT_EQ(true, scenario.steps[4].expectSucceeds.value_or(false));
    EXPECT_EQ(Action::kRegister, scenario.steps[5].action);
    EXPECT_EQ(Action::kRegisterSwitchCallback, scenario.steps[6].action);
    EXPECT_EQ(Action::kDump, scenario.steps[7].action);
    EXPECT_EQ(std::vector<std::string>{"running now: nothing"}, scenario.steps[7].dumpLines);
    EXPECT_EQ(3, scenario.expect.framesRefusedAtLeast.value_or(0));
    EXPECT_EQ(2, scenario.expect.unknownSessionCallsAtLeast.value_or(0));
    EXPECT_EQ(5, scenario.expect.unknownSessionCallsAtMost.value_or(0));
    EXPECT_EQ(std::vector<std::string>{"mode: VIRTUAL"}, scenario.expect.dump);

    const std::vector<std::pair<std::string, std::string>> mistakes{
        {R"({"steps": [{"stream": 1, "async": true}]})", "steps[0].async"},
        {R"({"steps": [{"reconfigure": true, "afterResult": true}]})", "steps[0].afterResult"},
        {R"({"steps": [{"switchOn": "A", "succeeds": true}]})", "steps[0].succeeds"},
        {R"({"steps": [{"flush": false}]})", "steps[0].flush"},
        {R"({"steps": [{"register": "Z"}]})", "steps[0].register"},
        {R"({"steps": [{"awaitResult": "A", "async": "yes"}]})", "steps[0].async"},
        {R"({"devmgt": {"reregister": true}, "steps": [{"stream": 1}]})",
         "devmgt.reregister: unknown key"},
        {R"({"expect": {"dump": []}, "steps": [{"stream": 1}]})", "expect.dump"},
        {R"({"steps": [{"dump": ["mode: VIRTUAL", 3]}]})", "steps[0].dump[1]"},
        {R"({"pipeline": {"flushNoticeDelayMs": -1}, "steps": [{"stream": 1}]})",
         "pipeline.flushNoticeDelayMs"},
    };
    for (const auto& [text, where] : mistakes) {
        error.clear();
        EXPECT_FALSE(ParseScenario(text, scenario, error)) << text;
        EXPECT_EQ(0u, error.find(where)) << error;
    }
}

// Every scenario shipped with the simulator reads; CI plays each one.
TEST(VirCamSimScenarioTest, EveryShippedScenarioReads) {
    const std::string folder = std::string(VIRCAM_SOURCE_DIR) + "/tools/vircam-sim/scenarios";
    DIR* dir = opendir(folder.c_str());
    ASSERT_NE(nullptr, dir);
    int files = 0;
    while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        if (name.size() < 5 || name.substr(name.size() - 5) != ".json") {
            continue;
        }
        ++files;
        vircam_sim::Scenario scenario;
        std::string error;
        EXPECT_TRUE(vircam_sim::ParseScenario(ReadFile(folder + "/" + name), scenario, error))
            << name << ": " << error;
        EXPECT_EQ(name, scenario.name + ".json") << "a scenario is named as its file";
        EXPECT_FALSE(scenario.description.empty()) << name;
    }
    closedir(dir);
    EXPECT_GT(files, 1);
}

}  // namespace
}  // namespace vircam_test

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (argc > 1) {
        // A cross-built simulator starts under the emulator, as its tour cells do.
        const char* launcher = getenv("VIRCAM_SIM_LAUNCHER");
        vircam_test::gSimulator =
            (launcher != nullptr && *launcher != '\0' ? std::string(launcher) + " " : "") + argv[1];
    }
    return RUN_ALL_TESTS();
}
