// Copyright (C) 2026 The libvircam Authors

// Sequences of what the library's peers can do to it, on virtual time:
// switch commands, remote answers landing anywhere in a step (inside the
// call, at once, late, just before, on or just after the 3 s deadline, never),
// failures and deaths, re-registrations, and the pipeline's reconfigurations,
// flushes and closes while switching. The contract's model runs beside the
// library and judges each sequence: the results device management received,
// the modes, the property, and the sessions left open at the remotes.
//
// Input: 6 bytes of initial scripts (control, config, data of each remote),
// then two bytes per event: the gap before it and the action, then its
// argument (remote, step, answer).
#include <android-base/properties.h>
#include <android/log.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ScriptedRemote.h"
#include "SwitchModel.h"
#include "VirtualClock.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "support/FakeSwitchCallback.h"
#include "support/FakeTranslatorCallback.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace {

using namespace vircam_fuzz;  // NOLINT(google-build-using-namespace): the fuzzer's own
using CameraStatus = android::hardware::camera::common::V1_0::Status;

const char* const kDevices[kSlots] = {"devA", "devB"};
const char* const kIds[kSlots] = {"cam1", "cam2"};
constexpr size_t kMaxEvents = 24;

enum Action : uint8_t {
    kOn,
    kOff,
    kScript,
    kKill,
    kReplace,
    kRegisterSwitchCallback,
    kReconfigure,
    kClose,
    kFlush,
    kCapture,
    kActions
};

// Gaps between events; each also moves 1 us so that an event never falls on
// an instant the library acts on (those races are the answers' to explore).
constexpr Ns kGaps[] = {kMs, 100 * kMs, kSecond, 2 * kSecond, 2900 * kMs, 3500 * kMs, 10 * kMs, -1};
constexpr Ns kGapShift = 1000;
constexpr Ns kReopenDelay = 10 * kMs;

struct Event {
    Ns gap;  // -1: once everything timed has happened
    Action action;
    int slot;
    RemoteStep step;
    Answer answer;
};

struct Input {
    std::array<std::array<Answer, kSteps>, kSlots> scripts{};
    std::vector<Event> events;
};

Input Decode(const uint8_t* data, size_t size) {
    Input input;
    size_t at = 0;
    for (int slot = 0; slot < kSlots; ++slot) {
        for (int step = 0; step < kSteps; ++step) {
            const uint8_t byte = at < size ? data[at++] : 0;
            input.scripts[slot][step] =
                static_cast<Answer>(byte % static_cast<uint8_t>(Answer::kCount));
        }
    }
    while (at + 1 < size && input.events.size() < kMaxEvents) {
        const uint8_t head = data[at++];
        const uint8_t arg = data[at++];
        Event event;
        event.gap = kGaps[head & 7];
        event.action = static_cast<Action>((head >> 3) % kActions);
        event.slot = arg & 1;
        event.step = static_cast<RemoteStep>(((arg >> 1) & 3) % kSteps);
        event.answer = static_cast<Answer>((arg >> 3) % static_cast<uint8_t>(Answer::kCount));
        input.events.push_back(event);
    }
    return input;
}

android::hardware::hidl_vec<vircam::VirStream> PipelineStreams() {
    android::hardware::hidl_vec<vircam::VirStream> streams(2);
    streams[0].streamId = 0;
    streams[0].width = 1920;
    streams[0].height = 1080;
    streams[0].format = 34;
    streams[1].streamId = 1;
    streams[1].width = 640;
    streams[1].height = 480;
    streams[1].format = 0x32315659;
    return streams;
}

// The peers around the library for the whole run: the library's registries
// outlive every single input.
struct Peers {
    Peers()
        // Yielding, not asleep, between looks: on a virtual machine each sleep
        // costs as much CPU as the yields, but takes twice its length.
        : clock(vircam_testclock::InstallVirtualClock(vircam_testclock::Pace::kSpin)),
          service(CreateVirtualCameraStreamChange()),
          channel(service),
          translatorChannel(CreateVirtualCameraTranslator()),
          translator(pelcamera::CVirtualSwitchCameraTranslator::GetInstance()) {
        translatorChannel->RegisterCameraTranslatorCallback(0, pipeline.proxy).isOk();
        channel->notify(0, R"({"notifyKey":101,"notifyMsgData":"{\"virCamInfo\":[\"0\"]}"})")
            .isOk();
    }

    vircam_testclock::VirtualClock& clock;
    pelcamera::VirCameraChannelForStreamChange* service;
    android::sp<vircam::IVirCameraChannel> channel;
    android::sp<vircam::IVirCameraTranslator> translatorChannel;
    pelcamera::CVirtualSwitchCameraTranslator* translator;
    vircam_test::RemoteSwitchCallback devMgt;
    vircam_test::RemoteTranslatorCallback pipeline;
    // Every remote process of the current sequence, oldest first.
    std::vector<std::unique_ptr<RemotePeer>> remotes;
    std::array<int, kSlots> newest{};
    uint32_t generation = 0;
};

Peers& GetPeers() {
    static Peers* peers = new Peers();  // never destroyed: the workers run on
    return *peers;
}

uint32_t FirstSessionId(Peers& peers, int slot) {
    return 100000u * static_cast<uint32_t>(slot + 1) + 1000u * (peers.generation++ % 90);
}

// A new process for the slot, registered as "W_" + id.
void Register(Peers& peers, int slot, const std::array<Answer, kSteps>& script, uint32_t firstId) {
    Answer raw[kSteps] = {script[0], script[1], script[2]};
    peers.remotes.push_back(std::make_unique<RemotePeer>(firstId, peers.channel, raw));
    peers.newest[slot] = static_cast<int>(peers.remotes.size()) - 1;
    peers.channel
        ->registerVirtualChannelCallback(kDevices[slot], std::string("W_") + kIds[slot],
                                         peers.remotes.back()->proxy)
        .isOk();
}

// Brings the library back to physical, no sessions, fresh remotes, the
// switch callback set, the streams backed up; returns the last sequence number.
uint32_t ResetLibrary(Peers& peers, const Input& input, std::array<uint32_t, kSlots>& firstIds) {
    for (int slot = 0; slot < kSlots; ++slot) {
        for (int guard = 0; guard < 4; ++guard) {
            auto session = peers.service->GetVirCamSession(kDevices[slot], kIds[slot]);
            if (session == nullptr) {
                break;
            }
            peers.service->Close(session->virCamId);
        }
    }
    peers.translatorChannel->Close(0).isOk();
    peers.translatorChannel->BackupPhyConfigStreams(0, PipelineStreams()).isOk();
    peers.channel->registerCameraSwitchCallback(peers.devMgt.proxy).isOk();
    peers.remotes.clear();
    for (int slot = 0; slot < kSlots; ++slot) {
        firstIds[slot] = FirstSessionId(peers, slot);
        Register(peers, slot, input.scripts[slot], firstIds[slot]);
    }
    uint32_t lastSeq = 0;
    peers.channel
        ->switchOffVirtualCamera(kDevices[0], kIds[0],
                                 [&](CameraStatus, uint32_t seq) { lastSeq = seq; })
        .isOk();
    peers.devMgt.fake->ForgetRecords();
    peers.pipeline.fake->ForgetRecords();
    return lastSeq;
}

[[noreturn]] void Fail(const std::string& why, const Input& input) {
    fprintf(stderr, "== the library broke the contract: %s\n   events:", why.c_str());
    for (const Event& e : input.events) {
        fprintf(stderr, " [gap %lld act %d slot %d step %d answer %d]",
                static_cast<long long>(e.gap), e.action, e.slot, e.step,
                static_cast<int>(e.answer));
    }
    fprintf(stderr, "\n");
    abort();
}

}  // namespace

// How many times virtual time jumped, for the speed figures.
__attribute__((destructor)) static void ReportJumps() {
    if (getenv("VIRCAM_FUZZ_JUMPS") != nullptr) {
        fprintf(stderr, "virtual clock jumps: %llu\n",
                static_cast<unsigned long long>(GetPeers().clock.Jumps()));
    }
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    // No memory watcher unless asked for: its thread is one more for the
    // virtual clock to read at every look, about a tenth of all its reads. A
    // sequence allocates little, and the corpus replays under ASan's leak
    // checks. A -rss_limit_mb given on the command line comes later and wins.
    static char noWatcher[] = "-rss_limit_mb=0";
    static std::vector<char*> args;
    args.assign(*argv, *argv + *argc);
    args.insert(args.begin() + 1, noWatcher);
    args.push_back(nullptr);
    *argv = args.data();
    *argc = static_cast<int>(args.size()) - 1;
    // VIRCAM_FUZZ_LOG=1 keeps the library's log, to read a reproducer's run.
    if (getenv("VIRCAM_FUZZ_LOG") == nullptr) {
        __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    }
    GetPeers();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Peers& peers = GetPeers();
    const Input input = Decode(data, size);
    std::array<uint32_t, kSlots> firstIds{};
    const uint32_t lastSeq = ResetLibrary(peers, input, firstIds);
    SwitchModel model;
    model.Reset(lastSeq, input.scripts, firstIds);

    std::array<std::array<Answer, kSteps>, kSlots> scripts = input.scripts;
    std::vector<std::thread> pipelineCalls;
    const auto start = peers.clock.Now();
    auto now = [&] { return static_cast<Ns>((peers.clock.Now() - start).count()); };
    for (const Event& event : input.events) {
        if (event.gap < 0) {
            peers.clock.Settle();
        } else {
            peers.clock.SleepFor(std::chrono::nanoseconds(event.gap + kGapShift));
        }
        const Ns t = now();
        model.AdvanceTo(t, event.gap < 0);
        CameraStatus status = CameraStatus::OK;
        uint32_t seq = 0;
        auto reply = [&](CameraStatus s, uint32_t n) {
            status = s;
            seq = n;
        };
        switch (event.action) {
            case kOn:
                peers.channel->switchOnVirtualCamera(kDevices[event.slot], kIds[event.slot], reply)
                    .isOk();
                model.SwitchOn(t, event.slot, static_cast<int32_t>(status), seq);
                break;
            case kOff:
                peers.channel->switchOffVirtualCamera(kDevices[event.slot], kIds[event.slot], reply)
                    .isOk();
                model.SwitchOff(t, event.slot, static_cast<int32_t>(status), seq);
                break;
            case kScript:
                peers.remotes[peers.newest[event.slot]]->fake->SetScript(event.step, event.answer);
                scripts[event.slot][event.step] = event.answer;
                model.SetScript(event.slot, event.step, event.answer);
                break;
            case kKill:
                model.Kill(t, event.slot);
                peers.remotes[peers.newest[event.slot]]->process->kill();
                break;
            case kReplace: {
                // A registration waits for a running step and then races the
                // next one for the registry; keep it to quiet moments.
                if (model.Switching()) {
                    break;
                }
                const uint32_t firstId = FirstSessionId(peers, event.slot);
                model.Replace(t, event.slot, firstId);
                Register(peers, event.slot, scripts[event.slot], firstId);
                break;
            }
            case kRegisterSwitchCallback:
                peers.channel->registerCameraSwitchCallback(peers.devMgt.proxy).isOk();
                model.RegisterSwitchCallback(t);
                break;
            case kReconfigure:
                // The remotes answer this reconfiguration (and later stream
                // configurations) as the event says.
                for (int slot = 0; slot < kSlots; ++slot) {
                    peers.remotes[peers.newest[slot]]->fake->SetScript(kConfig, event.answer);
                    scripts[slot][kConfig] = event.answer;
                    model.SetScript(slot, kConfig, event.answer);
                }
                model.Reconfigure(t);
                pipelineCalls.emplace_back([&peers] {
                    peers.translatorChannel->BackupPhyConfigStreams(0, PipelineStreams()).isOk();
                });
                break;
            case kClose: {
                // Mostly the camera opens again and configures its streams
                // 10 ms later; now and then it stays closed, and a switch-on
                // polls for streams 300 times.
                const bool reopen = static_cast<int>(event.answer) % 4 != 0;
                model.Close(t, reopen ? kReopenDelay : -1);
                pipelineCalls.emplace_back([&peers, reopen] {
                    peers.translatorChannel->Close(0).isOk();
                    if (reopen) {
                        peers.clock.SleepFor(std::chrono::nanoseconds(kReopenDelay));
                        peers.translatorChannel->BackupPhyConfigStreams(0, PipelineStreams())
                            .isOk();
                    }
                });
                break;
            }
            case kFlush:
                pipelineCalls.emplace_back([&peers] { peers.translatorChannel->Flush(0).isOk(); });
                break;
            default:
                pipelineCalls.emplace_back([&peers] {
                    android::hardware::hidl_vec<vircam::VirImageBuffer> request(1);
                    request[0].frameNumber = 1;
                    request[0].streamId = 0;
                    request[0].bufferId = 1;
                    peers.translatorChannel->ProcessCaptureRequest(0, request).isOk();
                });
                break;
        }
    }
    peers.clock.Settle();
    for (auto& call : pipelineCalls) {
        call.join();
    }
    model.Finish();

    Observed observed;
    std::map<std::pair<bool, uint32_t>, int> perCommand;
    for (const auto& result : peers.devMgt.fake->Results()) {
        observed.results.push_back({result.switchOn, result.seqNum, result.code});
        if (++perCommand[{result.switchOn, result.seqNum}] > 1) {
            Fail("a result sent twice for seq " + std::to_string(result.seqNum), input);
        }
    }
    observed.mode = peers.service->GetCameraMode();
    observed.translatorMode = peers.translator->GetCamStatus().camMode;
    observed.property = android::base::GetProperty("vendor.vorsk_vircam_info", "0") != "0";
    for (const auto& remote : peers.remotes) {
        observed.openControl.push_back(remote->fake->OpenControl());
        observed.openData.push_back(remote->fake->OpenData());
        observed.alive.push_back(!remote->process->isDead());
    }
    if (getenv("VIRCAM_FUZZ_JUMPS") != nullptr) {
        static uint64_t last = 0;
        const uint64_t jumps = peers.clock.Jumps();
        fprintf(stderr, "jumps %llu events %zu\n", static_cast<unsigned long long>(jumps - last),
                input.events.size());
        last = jumps;
    }
    if (getenv("VIRCAM_FUZZ_LOG") != nullptr) {
        fprintf(stderr, "model:\n%s", model.Describe().c_str());
    }
    const std::string why = model.Check(observed);
    if (!why.empty()) {
        Fail(why, input);
    }
    return 0;
}
