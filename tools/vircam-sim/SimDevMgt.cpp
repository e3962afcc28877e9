// Copyright (C) 2026 The libvircam Authors

#include "SimDevMgt.h"

#include "Names.h"
#include "SimClock.h"
#include "utils/Anonymize.h"

namespace vircam_sim {

namespace {

constexpr const char* kTrack = "devmgt";

std::string SwitchKey(uint32_t seqNum) {
    return "switch " + std::to_string(seqNum);
}

}  // namespace

SimDevMgt::SimDevMgt(const android::sp<vircam::IVirCameraChannel>& service, Recorder& recorder)
    : mService(new vircam::HostProxyVirCameraChannel(service, android::hardware::thisProcess())),
      mRecorder(recorder),
      mProcess(new android::hardware::RemoteProcess()),
      mProxy(new vircam::HostProxyVirCameraSwitchCallback(this, mProcess)) {}

void SimDevMgt::Shutdown() {
    android::sp<vircam::HostProxyVirCameraSwitchCallback> proxy = std::move(mProxy);
}

void SimDevMgt::RegisterCallback() {
    android::hardware::RemoteProcess::ThreadScope inDevMgt(mProcess.get());
    const auto status = mService->registerCameraSwitchCallback(mProxy);
    Say(Printf("registerCameraSwitchCallback -> %s",
               status.isOk() ? StatusName(status) : status.description().c_str()));
}

void SimDevMgt::Start(const std::string& physicalCameraId) {
    RegisterCallback();
    const std::string info = "{\"virCamInfo\":[\"" + physicalCameraId + "\"]}";
    Json::Value message(Json::objectValue);
    message["notifyKey"] = 101;
    message["notifyMsgData"] = info;
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    android::hardware::RemoteProcess::ThreadScope inDevMgt(mProcess.get());
    mService->notify(0, Json::writeString(builder, message)).isOk();
    Say("notify 101: the physical camera is \"" + physicalCameraId + "\"");
}

SwitchCommand SimDevMgt::SwitchOn(const RemoteConfig& remote) {
    return Command(true, remote);
}

SwitchCommand SimDevMgt::SwitchOff(const RemoteConfig& remote) {
    return Command(false, remote);
}

SwitchCommand SimDevMgt::Command(bool on, const RemoteConfig& remote) {
    SwitchCommand command{on, remote.name, CameraStatus::INTERNAL_ERROR, 0, NowUs()};
    // The library answers before an accepted task can start and before a
    // refusal's result, so the span opens inside the answer: every result,
    // early or late, then closes it with its code.
    const auto answer = [this, on, &remote, &command](CameraStatus status, uint32_t seqNum) {
        command.status = status;
        command.seqNum = seqNum;
        std::optional<SwitchResult> early;
        {
            std::lock_guard<std::mutex> lock(mLock);
            mCommanded.insert(seqNum);
            auto it = mEarly.find(seqNum);
            if (it != mEarly.end()) {
                early = it->second;
                mEarly.erase(it);
            }
        }
        mRecorder.trace().Begin(
            SwitchKey(seqNum), kTrack,
            Printf("switch-%s %s (seq %u)", on ? "on" : "off", remote.name.c_str(), seqNum),
            command.atUs);
        if (early) {
            EndSpan(*early);
        }
    };
    // A refusal's result comes back into devmgt while it waits for the answer,
    // and runs on this thread.
    android::hardware::RemoteProcess::ThreadScope inDevMgt(mProcess.get());
    {
        std::lock_guard<std::mutex> lock(mLock);
        mInCommand = true;
    }
    auto ret = on ? mService->switchOnVirtualCamera(remote.deviceId, remote.serviceId, answer)
                  : mService->switchOffVirtualCamera(remote.deviceId, remote.serviceId, answer);
    {
        std::lock_guard<std::mutex> lock(mLock);
        mInCommand = false;
        for (const auto& [seqNum, result] : mEarly) {
            EndSpan(result);  // an answer that never came: the span is not open
        }
        mEarly.clear();
    }
    if (!ret.isOk()) {
        Say(std::string("switch command failed in transport: ") + ret.description());
        return command;
    }
    Say(Printf("switch %s %s (%s / %s) -> %s, seq %u", on ? "on to" : "off from",
               remote.name.c_str(), pelcamera::GetAnonyString(remote.deviceId).c_str(),
               pelcamera::GetAnonyString(remote.serviceId).c_str(), StatusName(command.status),
               command.seqNum));
    return command;
}

SimDevMgt::Return<SimDevMgt::CameraStatus> SimDevMgt::notifySwitchOnResult(uint32_t seqNum,
                                                                           int32_t result) {
    return Record(true, seqNum, result);
}

SimDevMgt::Return<SimDevMgt::CameraStatus> SimDevMgt::notifySwitchOffResult(uint32_t seqNum,
                                                                            int32_t result) {
    return Record(false, seqNum, result);
}

void SimDevMgt::EndSpan(const SwitchResult& result) {
    Json::Value args(Json::objectValue);
    args["result"] = result.code;
    mRecorder.trace().End(SwitchKey(result.seqNum), result.atUs, args);
    if (result.on) {
        for (const char* step : {"step1", "step2", "step3", "step4"}) {
            mRecorder.trace().End(step, result.atUs, args);
        }
    }
}

SimDevMgt::Return<SimDevMgt::CameraStatus> SimDevMgt::Record(bool on, uint32_t seqNum,
                                                             int32_t code) {
    const SwitchResult result{on, seqNum, code, NowUs()};
    bool answered = true;
    {
        // A refusal's result comes inside the command's call, before its
        // answer: the answer closes the span then.
        std::lock_guard<std::mutex> lock(mLock);
        if (mInCommand && mCommanded.count(seqNum) == 0) {
            mEarly.emplace(seqNum, result);
            answered = false;
        }
    }
    if (answered) {
        EndSpan(result);
    }
    Say(Printf("notifySwitch%sResult(seq %u, %s)", on ? "On" : "Off", seqNum,
               SwitchResultText(code).c_str()));
    {
        std::lock_guard<std::mutex> lock(mLock);
        mResults.push_back(result);
        mArrived.notify_all();
    }
    // A device management busy with its own bookkeeping: the library's worker
    // waits in this call. No lock is held while it sleeps.
    if (mReturnDelay.count() > 0) {
        SleepFor(mReturnDelay);
    }
    return CameraStatus::OK;
}

std::optional<SwitchResult> SimDevMgt::WaitForResult(uint32_t seqNum,
                                                     std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    std::optional<SwitchResult> found;
    WaitFor(mArrived, lock, timeout, [&] {
        for (const auto& result : mResults) {
            if (result.seqNum == seqNum) {
                found = result;
            }
        }
        return found.has_value();
    });
    return found;
}

std::optional<SwitchResult> SimDevMgt::WaitForResult(uint32_t seqNum,
                                                     std::chrono::milliseconds timeout,
                                                     const std::function<bool()>& gone,
                                                     std::chrono::milliseconds grace) {
    constexpr std::chrono::milliseconds kSlice{50};
    const SimTime end = Now() + timeout;
    std::optional<SimTime> goneSince;
    while (Now() < end) {
        if (auto result = WaitForResult(seqNum, kSlice)) {
            return result;
        }
        if (!goneSince && gone()) {
            goneSince = Now();
        }
        if (goneSince && Now() - *goneSince > grace) {
            break;
        }
    }
    return std::nullopt;
}

std::optional<SwitchResult> SimDevMgt::WaitForUnasked(bool on, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    std::optional<SwitchResult> found;
    WaitFor(mArrived, lock, timeout, [&] {
        for (const auto& result : mResults) {
            if (result.on == on && mCommanded.count(result.seqNum) == 0 &&
                mClaimed.count(result.seqNum) == 0) {
                found = result;
                return true;
            }
        }
        return false;
    });
    if (found) {
        mClaimed.insert(found->seqNum);
    }
    return found;
}

std::vector<SwitchResult> SimDevMgt::Results() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mResults;
}

}  // namespace vircam_sim
