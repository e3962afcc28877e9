// Copyright (C) 2026 The libvircam Authors

// `lshal debug` on the channel service, read through a real pipe: the state,
// the switch history with its codes, a dump taken while a step waits on a
// silent remote, masked ids, and the options and descriptors it must survive.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cctype>
#include <sstream>

#include "support/DebugPipe.h"
#include "support/SwitchHarness.h"
#include "utils/Anonymize.h"

namespace vircam_test {
namespace {

using std::chrono::milliseconds;

// The history line of a sequence number, and the steps line after it.
struct HistoryEntry {
    std::string line;
    std::string steps;
};

HistoryEntry FindEntry(const std::string& dump, uint32_t seqNum) {
    std::istringstream in(dump);
    std::string line;
    const std::string prefix = "  seq " + std::to_string(seqNum) + " ";
    while (std::getline(in, line)) {
        if (line.rfind(prefix, 0) != 0) {
            continue;
        }
        HistoryEntry entry{line, ""};
        if (std::getline(in, line) && line.rfind("      steps:", 0) == 0) {
            entry.steps = line;
        }
        return entry;
    }
    return {};
}

std::string History(SwitchHarness& h) {
    return ReadDebug(*h.channel, {"--history"}).text;
}

bool DigitsAt(const std::string& text, size_t pos, size_t count) {
    if (pos + count > text.size()) {
        return false;
    }
    for (size_t i = pos; i < pos + count; ++i) {
        if (isdigit(static_cast<unsigned char>(text[i])) == 0) {
            return false;
        }
    }
    return true;
}

// Wall-clock times ("08:16:31.902") become "<when>" and durations ("0.276 ms",
// "1.203 s") "<t>", so that a whole line can be compared.
std::string Normalized(const std::string& text) {
    std::string out;
    size_t i = 0;
    while (i < text.size()) {
        const bool wordStart = i == 0 || isdigit(static_cast<unsigned char>(text[i - 1])) == 0;
        if (wordStart && DigitsAt(text, i, 2) && text.compare(i + 2, 1, ":") == 0 &&
            DigitsAt(text, i + 3, 2) && text.compare(i + 5, 1, ":") == 0 &&
            DigitsAt(text, i + 6, 2) && text.compare(i + 8, 1, ".") == 0 &&
            DigitsAt(text, i + 9, 3)) {
            out += "<when>";
            i += 12;
            continue;
        }
        size_t j = i;
        while (wordStart && DigitsAt(text, j, 1)) {
            ++j;
        }
        if (j > i && text.compare(j, 1, ".") == 0 && DigitsAt(text, j + 1, 3)) {
            const size_t unit = j + 4;
            if (text.compare(unit, 3, " ms") == 0) {
                out += "<t>";
                i = unit + 3;
                continue;
            }
            if (text.compare(unit, 2, " s") == 0) {
                out += "<t>";
                i = unit + 2;
                continue;
            }
        }
        out += text[i++];
    }
    return out;
}

StepScript NeverAnswers() {
    StepScript s;
    s.mode = AnswerMode::kNever;
    return s;
}

TEST(ChannelDebugDumpTest, HistoryRecordsAcceptedRefusedAndFailedCommandsWithTheirCodes) {
    SwitchHarness h;
    h.SwitchOnAndWait("devA", "cam1");  // seq 2
    RemoteChannel& other = h.AddRemote("devB", "cam2", 50);
    EXPECT_EQ(3u, h.SwitchOn("devB", "cam2").seqNum);   // refused: virtual
    EXPECT_EQ(4u, h.SwitchOff("devB", "cam2").seqNum);  // refused: not the pair in use
    EXPECT_EQ(5u, h.SwitchOff("devA", "cam1").seqNum);
    ASSERT_TRUE(h.WaitForResults(4));
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    StepScript callFails;
    callFails.callStatus = CameraStatus::INTERNAL_ERROR;
    other.fake->Script(RemoteStep::kControlSession, callFails);
    EXPECT_EQ(6u, h.SwitchOn("devB", "cam2").seqNum);  // fails at the control session
    ASSERT_TRUE(h.WaitForResults(5));
    ASSERT_TRUE(WaitUntil(
        [&] { return FindEntry(History(h), 6).line.find(", took ") != std::string::npos; }));
    // Without a switch callback a result is still recorded, as not delivered.
    ASSERT_EQ(CameraStatus::OK,
              static_cast<CameraStatus>(h.channel->unregisterCameraSwitchCallback()));
    EXPECT_EQ(7u, h.SwitchOff("devA", "cam1").seqNum);

    const std::string dump = History(h);
    EXPECT_EQ(0u, dump.find("switch history (last 32 commands, oldest first): 6\n")) << dump;
    const auto line = [&](uint32_t seqNum) { return Normalized(FindEntry(dump, seqNum).line); };
    const auto steps = [&](uint32_t seqNum) { return Normalized(FindEntry(dump, seqNum).steps); };
    EXPECT_EQ("  seq 2 on  d**A / c**1 at <when>: accepted, result 300 (delivered), took <t>",
              line(2));
    EXPECT_EQ("      steps: hal init <t>, control <t>, configuration <t>, data <t>, switch <t>",
              steps(2));
    EXPECT_EQ("  seq 3 on  d**B / c**2 at <when>: refused (mode), result 301 (delivered)", line(3));
    EXPECT_EQ("", steps(3));  // never ran
    EXPECT_EQ(
        "  seq 4 off d**B / c**2 at <when>: refused (pair not in use), result 300 (delivered)",
        line(4));
    EXPECT_EQ("  seq 5 off d**A / c**1 at <when>: accepted, result 300 (delivered), took <t>",
              line(5));
    EXPECT_EQ("", steps(5));  // a switch-off has no steps of its own
    EXPECT_EQ("  seq 6 on  d**B / c**2 at <when>: accepted, result 1 (delivered), took <t>",
              line(6));
    EXPECT_EQ("      steps: hal init <t>, control <t>, configuration -, data -, switch -",
              steps(6));
    EXPECT_EQ("  seq 7 off d**A / c**1 at <when>: refused (mode), result 300 (not delivered)",
              line(7));
}

TEST(ChannelDebugDumpTest, HistoryKeepsTheLast32Commands) {
    SwitchHarness h;
    for (int i = 0; i < 34; ++i) {
        h.SwitchOff("devA", "cam1");  // seq 2 to 35, all refused in physical
    }
    const std::string dump = History(h);
    EXPECT_EQ(0u, dump.find("switch history (last 32 commands, oldest first): 32\n")) << dump;
    EXPECT_EQ("", FindEntry(dump, 3).line);
    EXPECT_NE("", FindEntry(dump, 4).line);
    EXPECT_NE("", FindEntry(dump, 35).line);
    EXPECT_LT(dump.find("  seq 4 "), dump.find("  seq 35 "));
}

TEST(ChannelDebugDumpTest, DumpsTheStateItReads) {
    SwitchHarness h;
    std::string dump = ReadDebug(*h.channel).text;
    EXPECT_NE(std::string::npos, dump.find("mode: PHYSICAL\n")) << dump;
    EXPECT_NE(std::string::npos, dump.find("sessions: 0\n"));
    EXPECT_NE(std::string::npos, dump.find("running now: nothing\n"));

    h.SwitchOnAndWait("devA", "cam1");
    ASSERT_TRUE(h.WaitUntilIdle());
    dump = h.Dump();
    for (const char* expected : {
             "IVirCameraChannel service\n",
             "mode: VIRTUAL\n",
             "next sequence number: 3\n",
             "next virtual camera id: 102\n",
             "HAL init done: no (results returned: control no, configuration no, data no)\n",
             "physical camera id: 2\n",
             "switch callback: registered\n",
             "workers: started, 2 of 2 running; queued: switch-on 0, switch-off 0\n",
             "running now: nothing\n",
             // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one block of lines
             "sessions: 1\n"
             "  d**A / c**1: control session 1*, data session 1*, virtual camera 101; results: "
             "control yes, configuration yes, data yes\n",
             "channel callbacks: 1\n  d**A / c**1: death link yes\n",
             "switch history (last 32 commands, oldest first): 1\n",
         }) {
        EXPECT_NE(std::string::npos, dump.find(expected)) << expected << "\nin\n" << dump;
    }
    // The history comes last, after the state.
    EXPECT_LT(dump.find("channel callbacks:"), dump.find("switch history"));
}

TEST(ChannelDebugDumpTest, ADumpDuringASilentStepReturnsAtOnceAndSaysBusy) {
    SwitchHarness h;
    h.remote.fake->Script(RemoteStep::kControlSession, NeverAnswers());
    ASSERT_EQ(2u, h.SwitchOn("devA", "cam1").seqNum);
    // The step holds the registry through its call and its 3 s wait.
    ASSERT_TRUE(WaitUntil(
        [&] {
            return ReadDebug(*h.channel).text.find("channel callbacks: busy") != std::string::npos;
        },
        std::chrono::seconds(2)));

    const DebugOutput out = ReadDebug(*h.channel);
    EXPECT_LT(out.took, milliseconds(500)) << "the step waits 3 s";
    EXPECT_NE(std::string::npos, out.text.find("mode: ON_SWITCHING\n")) << out.text;
    const std::string text = Normalized(out.text);
    for (const char* expected : {
             // A sleeping step holds none of the result flags' locks.
             "\nHAL init done: no (results returned: control no, configuration no, data no)\n",
             "\nrunning now: switch-on seq 2, step control, for <t>\n",
             "\nchannel callbacks: busy (held by switch-on seq 2, step control, for <t>)\n",
         }) {
        EXPECT_NE(std::string::npos, text.find(expected)) << expected << "\nin\n" << out.text;
    }
    EXPECT_NE(std::string::npos, out.text.find(", no result yet, running\n      steps: hal init "))
        << out.text;
    EXPECT_NE(std::string::npos,
              out.text.find(" control running, configuration -, data -, switch -\n"))
        << out.text;
    EXPECT_NE(std::string::npos,
              out.text.find("  d**A / c**1: control session 1*, data session none, virtual "
                            "camera none; results: control no, configuration no, data no\n"))
        << out.text;

    // Once the step has timed out, nothing is busy any more.
    ASSERT_TRUE(h.WaitForResults(1));
    ASSERT_TRUE(h.WaitForMode(pelcamera::PHYSICAL));
    ASSERT_TRUE(WaitUntil([&] {
        return ReadDebug(*h.channel).text.find("running now: nothing") != std::string::npos;
    }));
    const std::string after = ReadDebug(*h.channel).text;
    EXPECT_EQ(std::string::npos, after.find("busy")) << after;
    EXPECT_NE(std::string::npos, FindEntry(after, 2).line.find("accepted, result 1 (delivered)"));
}

TEST(ChannelDebugDumpTest, NoDeviceServiceOrSessionIdInClear) {
    SwitchHarness h;
    h.AddRemote("phoneDevice7731", "rearCam5592", 48271);
    h.SwitchOnAndWait("phoneDevice7731", "rearCam5592");
    h.SwitchOn("otherDevice4410", "frontCam8820");  // refused, still in the history
    const std::string dump = ReadDebug(*h.channel).text;
    for (const char* clear :
         {"phoneDevice7731", "rearCam5592", "otherDevice4410", "frontCam8820", "48271", "48272"}) {
        EXPECT_EQ(std::string::npos, dump.find(clear)) << clear << " in\n" << dump;
    }
    for (const std::string& masked : {pelcamera::GetAnonyString("phoneDevice7731") + " / " +
                                          pelcamera::GetAnonyString("rearCam5592"),
                                      pelcamera::GetAnonyString("otherDevice4410") + " / " +
                                          pelcamera::GetAnonyString("frontCam8820"),
                                      "control session " + pelcamera::GetAnonyUInt32(48271),
                                      "data session " + pelcamera::GetAnonyUInt32(48272)}) {
        EXPECT_NE(std::string::npos, dump.find(masked)) << masked << " not in\n" << dump;
    }
}

TEST(ChannelDebugDumpTest, OptionsChooseWhatIsWritten) {
    SwitchHarness h;
    h.SwitchOff("devA", "cam1");
    const std::string help = ReadDebug(*h.channel, {"--help"}).text;
    EXPECT_EQ(0u, help.find("usage: lshal debug <IVirCameraChannel instance> [--history | --help]"))
        << help;
    EXPECT_NE(std::string::npos, help.find("  --history "));
    const std::string usageLine =
        "unknown option; usage: lshal debug <IVirCameraChannel instance> [--history | --help]\n";
    EXPECT_EQ(usageLine, ReadDebug(*h.channel, {"--bogus"}).text);
    EXPECT_EQ(usageLine, ReadDebug(*h.channel, {"--history", "--help"}).text);
    EXPECT_EQ(usageLine, ReadDebug(*h.channel, {""}).text);

    const std::string history = ReadDebug(*h.channel, {"--history"}).text;
    EXPECT_EQ(0u, history.find("switch history (last 32 commands, oldest first): 1\n"));
    EXPECT_EQ(std::string::npos, history.find("mode:"));
    EXPECT_EQ(history, h.service->SwitchHistoryText());
}

TEST(ChannelDebugDumpTest, UnusableDescriptorsEndTheCallQuietly) {
    SwitchHarness h;
    const auto none = Options({});
    EXPECT_TRUE(h.channel->debug(android::hardware::hidl_handle(), none).isOk());
    native_handle_t* noFds = native_handle_create(0, 1);
    EXPECT_TRUE(h.channel->debug(noFds, none).isOk());
    native_handle_delete(noFds);
    EXPECT_TRUE(h.channel->debug(BorrowedFdHandle(-1).Handle(), none).isOk());
    int closedFd = dup(STDERR_FILENO);
    ASSERT_GE(closedFd, 0);
    close(closedFd);
    EXPECT_TRUE(h.channel->debug(BorrowedFdHandle(closedFd).Handle(), none).isOk());

    // A reader gone away: the write fails with EPIPE and no SIGPIPE is left
    // to end the process.
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    close(ends[0]);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(h.channel->debug(BorrowedFdHandle(ends[1]).Handle(), none).isOk());
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(500));
    close(ends[1]);
    sigset_t pending;
    sigemptyset(&pending);
    ASSERT_EQ(0, sigpending(&pending));
    EXPECT_EQ(0, sigismember(&pending, SIGPIPE));
    // The service still answers.
    EXPECT_NE(std::string::npos, ReadDebug(*h.channel).text.find("mode: PHYSICAL"));
}

}  // namespace
}  // namespace vircam_test
