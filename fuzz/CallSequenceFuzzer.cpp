// Random sequences of the calls that the library's peers can make, in any
// order: switch commands, registrations, remote answers (mostly prompt, now
// and then failing, dying or silent), pipeline requests and closes. After
// each sequence, once the switch workers are idle, the channel service's
// mode, the translator's mode and the system property must agree.
#include <android-base/properties.h>
#include <android/log.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "support/FakeRemoteChannel.h"
#include "support/FakeSwitchCallback.h"
#include "support/FakeTranslatorCallback.h"
#include "translator/CVirtualSwitchCameraTranslator.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace {

using namespace vircam_test;  // NOLINT(google-build-using-namespace): the fakes
using CameraStatus = android::hardware::camera::common::V1_0::Status;

constexpr int kRemotes = 2;
const char* const kDevices[kRemotes] = {"devA", "devB"};
const char* const kIds[kRemotes] = {"cam1", "cam2"};

// The peers around the library, kept for the whole run: the library's
// registries outlive every single input.
struct Peers {
    Peers()
        : service(CreateVirtualCameraStreamChange()),
          channel(service),
          translatorChannel(CreateVirtualCameraTranslator()),
          translator(pelcamera::CVirtualSwitchCameraTranslator::GetInstance()) {
        translatorChannel->RegisterCameraTranslatorCallback(0, pipeline.proxy).isOk();
        channel->registerCameraSwitchCallback(devMgt.proxy).isOk();
        for (int i = 0; i < kRemotes; ++i) {
            Replace(i);
        }
    }

    // A fresh remote process for channel i, registered as "W_" + id.
    void Replace(int i) {
        remotes[i] = std::make_unique<RemoteChannel>(static_cast<uint32_t>(100 * (i + 1)));
        remotes[i]->fake->SetService(channel);
        remotes[i]->fake->EchoImages();
        channel->registerVirtualChannelCallback(kDevices[i], std::string("W_") + kIds[i],
                                                remotes[i]->proxy)
            .isOk();
    }

    pelcamera::VirCameraChannelForStreamChange* service;
    android::sp<vircam::IVirCameraChannel> channel;
    android::sp<vircam::IVirCameraTranslator> translatorChannel;
    pelcamera::CVirtualSwitchCameraTranslator* translator;
    RemoteSwitchCallback devMgt;
    RemoteTranslatorCallback pipeline;
    std::unique_ptr<RemoteChannel> remotes[kRemotes];
};

Peers& GetPeers() {
    static Peers peers;
    return peers;
}

StepScript RandomScript(FuzzedDataProvider& in) {
    StepScript script;
    switch (in.ConsumeIntegralInRange<int>(0, 15)) {
        case 0:
            script.result = in.ConsumeIntegralInRange<int32_t>(0, 300);
            break;
        case 1:
            script.callStatus = CameraStatus::INTERNAL_ERROR;
            break;
        case 2:
            script.mode = AnswerMode::kBeforeReturn;
            break;
        case 3:
            // Silent remotes cost a 3 s time-out each: keep them rare.
            script.mode = in.ConsumeIntegralInRange<int>(0, 7) == 0 ? AnswerMode::kNever
                                                                      : AnswerMode::kAtOnce;
            break;
        case 4:
            script.dieOnCall = in.ConsumeBool();
            break;
        default:
            break;
    }
    return script;
}

// Waits until the workers have nothing left: no new result for a while and
// the channel not switching.
void Quiesce(Peers& peers) {
    size_t results = peers.devMgt.fake->Results().size();
    for (int idle = 0; idle < 3;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const size_t now = peers.devMgt.fake->Results().size();
        const bool switching = peers.service->GetCameraMode() == pelcamera::ON_SWITCHING;
        idle = (now == results && !switching) ? idle + 1 : 0;
        results = now;
    }
}

void SwitchCommand(Peers& peers, FuzzedDataProvider& in, bool on) {
    const int i = in.ConsumeIntegralInRange<int>(0, kRemotes - 1);
    auto ignore = [](CameraStatus, uint32_t) {};
    if (on) {
        peers.channel->switchOnVirtualCamera(kDevices[i], kIds[i], ignore).isOk();
    } else {
        peers.channel->switchOffVirtualCamera(kDevices[i], kIds[i], ignore).isOk();
    }
    Quiesce(peers);
}

void PipelineCall(Peers& peers, FuzzedDataProvider& in) {
    auto& translator = *peers.translatorChannel;
    switch (in.ConsumeIntegralInRange<int>(0, 6)) {
        case 0: {
            android::hardware::hidl_vec<vircam::VirImageBuffer> request(
                in.ConsumeIntegralInRange<size_t>(0, 3));
            for (auto& element : request) {
                element.frameNumber = in.ConsumeIntegral<int32_t>();
                element.streamId = in.ConsumeIntegralInRange<int32_t>(0, 2);
                element.bufferId = in.ConsumeIntegralInRange<uint64_t>(0, 4);
            }
            translator.ProcessCaptureRequest(0, request).isOk();
            break;
        }
        case 1:
            translator.RegisterBuffer(0, in.ConsumeIntegralInRange<uint64_t>(0, 2),
                                      in.ConsumeIntegralInRange<uint64_t>(0, 4), nullptr)
                .isOk();
            break;
        case 2: {
            vircam::VirMetaRequest meta{};
            meta.frameNumber = in.ConsumeIntegral<int32_t>();
            translator.ProcessMetaRequest(0, meta).isOk();
            break;
        }
        case 3: {
            android::hardware::hidl_vec<vircam::VirStream> streams(
                in.ConsumeIntegralInRange<size_t>(0, 3));
            for (auto& stream : streams) {
                stream.format = in.ConsumeIntegral<int32_t>();
                stream.width = in.ConsumeIntegral<uint32_t>();
            }
            translator.BackupPhyConfigStreams(0, streams).isOk();
            break;
        }
        case 4:
            translator.Flush(0).isOk();
            break;
        case 5:
            translator.Close(0).isOk();
            break;
        default:
            translator.RunCommonCmdTranslator(in.ConsumeIntegralInRange<uint32_t>(0, 3), "").isOk();
            break;
    }
}

void RemoteEvent(Peers& peers, FuzzedDataProvider& in) {
    const int i = in.ConsumeIntegralInRange<int>(0, kRemotes - 1);
    switch (in.ConsumeIntegralInRange<int>(0, 5)) {
        case 0:
            peers.remotes[i]->fake->Script(
                static_cast<RemoteStep>(in.ConsumeIntegralInRange<int>(0, 2)), RandomScript(in));
            break;
        case 1:
            peers.remotes[i]->process->kill();
            android::hardware::waitForDeathNotifications();
            Quiesce(peers);
            break;
        case 2:
            peers.Replace(i);
            break;
        case 3:
            peers.channel
                ->unregisterVirtualChannelCallback(kDevices[i], std::string("X_") + kIds[i])
                .isOk();
            break;
        case 4:
            peers.channel
                ->notifyOpenDataSessionResult(in.ConsumeIntegralInRange<uint32_t>(0, 210),
                                              vircam::VirCamOptRet::OPT_DATA_SESSION_OK)
                .isOk();
            break;
        default:
            peers.channel->registerCameraSwitchCallback(peers.devMgt.proxy).isOk();
            break;
    }
}

// The property follows the channel service; the translator follows it too
// once the workers are idle.
void CheckConsistent(Peers& peers) {
    const int32_t mode = peers.service->GetCameraMode();
    const std::string property = android::base::GetProperty("vendor.vorsk_vircam_info", "0");
    const auto status = peers.translator->GetCamStatus();
    const bool consistent =
        mode != pelcamera::ON_SWITCHING &&
        (mode == pelcamera::VIRTUAL) == (property != "0") &&
        (mode == pelcamera::VIRTUAL) == (status.camMode == pelcamera::VIRTUAL);
    if (!consistent) {
        __android_log_print(ANDROID_LOG_FATAL, "VirCam_Fuzz",
                            "inconsistent: channel mode %d, property %s, translator %d/%d", mode,
                            property.c_str(), status.camMode, status.camId);
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    __android_log_set_minimum_priority(ANDROID_LOG_FATAL);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Peers& peers = GetPeers();
    FuzzedDataProvider in(data, size);
    for (int op = 0; op < 16 && in.remaining_bytes() > 0; ++op) {
        switch (in.ConsumeIntegralInRange<int>(0, 3)) {
            case 0:
                SwitchCommand(peers, in, in.ConsumeBool());
                break;
            case 1:
                PipelineCall(peers, in);
                break;
            case 2:
                RemoteEvent(peers, in);
                break;
            default:
                peers.channel->notify(0, in.ConsumeRandomLengthString(64)).isOk();
                break;
        }
    }
    Quiesce(peers);
    CheckConsistent(peers);
    peers.devMgt.fake->ForgetRecords();
    peers.pipeline.fake->ForgetRecords();
    for (auto& remote : peers.remotes) {
        remote->fake->ForgetRecords();
    }
    return 0;
}
