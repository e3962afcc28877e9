// Copyright (C) 2026 The libvircam Authors

// The library's channel service with every peer around it: the
// device-management side, one or more remote channels and a pipeline
// callback on the translator. Remote channels are registered as "W_" + id
// and switched with id, the convention of the device-management side.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <hostproxy/HostProxyVirCameraChannel.h>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "support/FakeRemoteChannel.h"
#include "support/FakeSwitchCallback.h"
#include "support/FakeTranslatorCallback.h"
#include "translator/CVirtualSwitchCameraTranslator.h"

namespace vircam_test {

using CameraStatus = android::hardware::camera::common::V1_0::Status;

// Polls `done` until it holds or `timeout` passes, both on the library's
// clock: on virtual time each poll moves time by its interval only, so a test
// that waits for a step to be inside its 3 s wait finds it there, as it would
// in real time.
bool WaitUntil(const std::function<bool()>& done,
               std::chrono::milliseconds timeout = std::chrono::seconds(15));

std::string VirCamProperty();

// The physical streams the pipeline backs up: a preview, a YV12 stream and
// a third format.
android::hardware::hidl_vec<vircam::VirStream> PipelineStreams();

class SwitchHarness {
    // First: the remotes must exist before `remote` below is initialised.
    std::vector<std::unique_ptr<RemoteChannel>> mRemotes;

public:
    struct Reply {
        CameraStatus status;
        uint32_t seqNum;
    };

    // `withPipeline`: register a pipeline callback and back up its streams
    // first, as a running camera would have. `withSwitchCallback`: register
    // device management's switch callback, which starts the workers.
    explicit SwitchHarness(bool withPipeline = true, bool withSwitchCallback = true);
    ~SwitchHarness();

    // A remote channel for (deviceId, id), registered as "W_" + id.
    RemoteChannel& AddRemote(const std::string& deviceId, const std::string& id,
                             uint32_t firstSessionId);
    Reply SwitchOn(const std::string& deviceId, const std::string& id);
    Reply SwitchOff(const std::string& deviceId, const std::string& id);
    // Switches on and waits for the result and the virtual mode.
    void SwitchOnAndWait(const std::string& deviceId, const std::string& id);
    bool WaitForResults(size_t count) const;
    bool WaitForMode(int32_t mode) const;
    // The worker sets the mode before its sequence ends: this waits for the end.
    bool WaitUntilIdle() const;
    // What `lshal debug` prints of the channel service.
    std::string Dump(const std::vector<std::string>& options = {}) const;
    // The history says sequence `seqNum` has ended.
    bool WaitForEnd(uint32_t seqNum) const;
    // The worker runs sequence `seqNum` in `step` ("hal init", "control", ...).
    bool WaitForStep(uint32_t seqNum, const std::string& step) const;
    bool HasSession(const std::string& deviceId, const std::string& id) const;
    // The remote keyed as the registry keys it.
    bool Registered(const std::string& deviceId, const std::string& id) const;

    pelcamera::VirCameraChannelForStreamChange* service;
    android::sp<vircam::IVirCameraChannel> channel;
    pelcamera::CVirtualSwitchCameraTranslator* translator;
    RemoteSwitchCallback devMgt;
    RemoteTranslatorCallback pipeline;
    RemoteChannel& remote;  // the first remote: ("devA", "cam1"), sessions from 10
};

// How many calls the remote has had whose text starts with `prefix`.
size_t CallsStartingWith(const RemoteChannel& remote, const std::string& prefix);

}  // namespace vircam_test
