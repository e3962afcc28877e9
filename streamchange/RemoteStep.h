// Copyright (C) 2026 The libvircam Authors

// One row per remote step of a switch-on. The rows are defined with the
// sequence (SwitchOnSequence.cpp); the result protocol (StepResults.cpp) and
// a reconfiguration's wait (VirCamRequestPath.cpp) read them too.
#pragma once

#include "streamchange/VirCameraChannelForStreamChange.h"

namespace pelcamera {

// Everything one step needs, in the order the step runs: its place in the
// sequence, its call, its wait, and the notice of its result.
struct VirCameraChannelForStreamChange::RemoteStep {
    using Self = VirCameraChannelForStreamChange;
    using Callback = sp<vircam::IVirCameraChannelCallback>;
    using Run = bool (Self::*)(uint32_t seqNum, const ChannelKey& key,
                               std::shared_ptr<VirCamSession>& session);
    using Call = bool (Self::*)(const RemoteStep& step, uint32_t seqNum, const ChannelKey& key,
                                const Callback& callback, std::shared_ptr<VirCamSession>& session);
    using After = bool (Self::*)(uint32_t seqNum, const ChannelKey& key, const Callback& callback,
                                 std::shared_ptr<VirCamSession>& session);
    using OpenCall = Return<void> (vircam::IVirCameraChannelCallback::*)(
        const hidl_string&, const hidl_string&,
        vircam::IVirCameraChannelCallback::openControlSession_cb);

    // The sequence.
    SwitchStep kind;
    SwitchPhase phase;
    Run run;                     // the step's own function
    const char* name;            // which its lines name
    const char* started;         // "[StepN] ..."
    const char* sequenceFailed;  // DoSwitchOnVirtualCamera's line when the step fails
    int32_t failureCode;         // to device management when the step fails

    // The call, made with the registry held.
    Call call;
    // The open steps: the remote's open method, the session field its id
    // goes to, the line when it fails, and the step's result function. The
    // configuration has none of these: its call's reply goes straight to
    // DealConfigStreamResult.
    OpenCall open;
    uint32_t VirCamSession::*sessionId;
    const char* openFailed;
    After after;

    // The wait.
    AwaitedResult Self::*result;
    const char* waiter;        // the result function, which the wait's lines name
    const char* noWait;        // the result came before the wait
    const char* timedOut;      // with -1
    const char* failedAtLast;  // the result came and was a failure
    bool VirCamSession::*flag;

    // The notice: the notifier's name, how it finds the session, the code
    // that means success, and its lines.
    const char* notifier;
    SessionType lookup;
    vircam::VirCamOptRet success;
    const char* notFound;
    bool notFoundWithRet;  // whether notFound takes the code too
    const char* resultFailed;
    const char* resultOk;
};

}  // namespace pelcamera
