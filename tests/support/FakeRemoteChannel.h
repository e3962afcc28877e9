// Copyright (C) 2026 The libvircam Authors

// The fake remote channel, in a process of its own.
#pragma once

#include <hostproxy/HostProxyVirCameraChannelCallback.h>

#include "hostsupport/FakeRemoteChannel.h"
#include "support/NativeBuffer.h"
#include "support/RemotePeer.h"

namespace vircam_test {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;
using vircam_fakes::AnswerMode;
using vircam_fakes::FakeRemoteChannel;
using vircam_fakes::RemoteStep;
using vircam_fakes::SeenBuffer;
using vircam_fakes::StepScript;

struct RemoteChannel : RemotePeer<FakeRemoteChannel, vircam::HostProxyVirCameraChannelCallback> {
    explicit RemoteChannel(uint32_t firstSessionId = 10) : RemotePeer(firstSessionId) {
        fake->AttachProcess(process);
    }
    ~RemoteChannel() { fake->StopThreads(); }
};

}  // namespace vircam_test
