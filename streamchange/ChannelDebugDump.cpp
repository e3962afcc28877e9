// Copyright (C) 2026 The libvircam Authors

// `lshal debug` on the channel service: its state and the switch history as
// plain text. Ids go out masked, as in the log.
#include <time.h>

#include <set>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/VirCameraStatus.h"
#include "utils/Anonymize.h"
#include "utils/DebugDump.h"

namespace pelcamera {

namespace {

constexpr const char* kUsage =
    "usage: lshal debug <IVirCameraChannel instance> [--history | --help]\n"
    "  (no option)  the service's state and the last 32 switch commands\n"
    "  --history    the last 32 switch commands only\n"
    "  --help       this text\n"
    "Device, service and session ids are masked as in the log.\n";
constexpr const char* kUsageLine =
    "unknown option; usage: lshal debug <IVirCameraChannel instance> [--history | --help]\n";

const char* YesNo(bool value) {
    return value ? "yes" : "no";
}

std::string Pair(const std::string& deviceId, const std::string& serviceId) {
    return GetAnonyString(deviceId) + " / " + GetAnonyString(serviceId);
}

std::string WallClock(std::chrono::system_clock::time_point when) {
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count();
    const time_t seconds = static_cast<time_t>(millis / 1000);
    tm local{};
    localtime_r(&seconds, &local);
    char text[32];
    snprintf(text, sizeof(text), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
             static_cast<int>(millis % 1000));
    return text;
}

// Session id 0 and virtual camera id -1 mean "not given yet".
std::string SessionIdText(uint32_t id) {
    return id == 0 ? "none" : GetAnonyUInt32(id);
}

// "yes" or "no" for a result's flag, "busy" when its step holds it.
const char* ReturnedText(AwaitedResult& result, const DumpDeadline& deadline) {
    if (!deadline.TryLock(result.mutex)) {
        return "busy";
    }
    std::lock_guard<std::mutex> lock(result.mutex, std::adopt_lock);
    return YesNo(result.returned);
}

std::string VirCamIdText(int32_t id) {
    return id < 0 ? "none" : std::to_string(id);
}

void AppendRecord(std::string& out, const SwitchRecord& record, const RunningSwitch& running) {
    AppendFormat(out, "  seq %u %s %s at %s: %s", record.seqNum, record.switchOn ? "on " : "off",
                 Pair(record.deviceId, record.serviceId).c_str(), WallClock(record.when).c_str(),
                 SwitchRefusalName(record.refusal));
    if (record.results.empty()) {
        out += ", no result yet";
    }
    for (const auto& result : record.results) {
        AppendFormat(out, ", result %d (%s)", result.code,
                     result.delivered ? "delivered" : "not delivered");
    }
    if (record.refusal == SwitchRefusal::NONE && !record.started) {
        out += ", queued";
    } else if (record.started && !record.finished) {
        out += ", running";
    } else if (record.finished) {
        AppendFormat(out, ", took %s", FormatDuration(record.total).c_str());
    }
    out += "\n";
    if (!record.switchOn || !record.started) {
        return;
    }
    out += "      steps:";
    for (size_t i = 0; i < kTimedSwitchPhases; ++i) {
        const char* name = SwitchPhaseName(static_cast<SwitchPhase>(i));
        const char* separator = i + 1 < kTimedSwitchPhases ? "," : "";
        if (record.phaseRan[i]) {
            AppendFormat(out, " %s %s%s", name, FormatDuration(record.phases[i]).c_str(),
                         separator);
        } else if (running.active && running.seqNum == record.seqNum &&
                   static_cast<size_t>(running.phase) == i) {
            AppendFormat(out, " %s running%s", name, separator);
        } else {
            AppendFormat(out, " %s -%s", name, separator);
        }
    }
    out += "\n";
}

}  // namespace

Return<void> VirCameraChannelForStreamChange::debug(const ::android::hardware::hidl_handle& fd,
                                                    const hidl_vec<hidl_string>& options) {
    switch (ParseDebugOptions(options)) {
        case DebugRequest::EVERYTHING: {
            const DumpDeadline deadline;
            WriteDebugText(fd, DumpState(deadline) + SwitchHistoryText());
            break;
        }
        case DebugRequest::HISTORY:
            WriteDebugText(fd, SwitchHistoryText());
            break;
        case DebugRequest::HELP:
            WriteDebugText(fd, kUsage);
            break;
        case DebugRequest::UNKNOWN:
            WriteDebugText(fd, kUsageLine);
            break;
    }
    return ::android::hardware::Void();
}

std::string VirCameraChannelForStreamChange::SwitchHistoryText() const {
    const std::vector<SwitchRecord> records = mHistory.Records();
    const RunningSwitch running = mHistory.Running();
    std::string out;
    AppendFormat(out, "switch history (last %zu commands, oldest first): %zu\n",
                 SwitchHistory::kCapacity, records.size());
    for (const auto& record : records) {
        AppendRecord(out, record, running);
    }
    return out;
}

std::string VirCameraChannelForStreamChange::BusyText() const {
    const RunningSwitch running = mHistory.Running();
    if (!running.active) {
        return "busy (held by a call in progress; no switch running)";
    }
    std::string text;
    AppendFormat(text, "busy (held by switch-%s seq %u, step %s, for %s)",
                 running.switchOn ? "on" : "off", running.seqNum, SwitchPhaseName(running.phase),
                 FormatDuration(running.inPhase).c_str());
    return text;
}

std::string VirCameraChannelForStreamChange::DumpState(const DumpDeadline& deadline) {
    std::string out = "IVirCameraChannel service\n";
    DumpSwitching(out, deadline);
    DumpSessions(out, deadline);
    DumpChannelCallbacks(out, deadline);
    return out;
}

void VirCameraChannelForStreamChange::DumpSwitching(std::string& out,
                                                    const DumpDeadline& deadline) {
    if (deadline.TryLock(mModeMutex)) {
        std::lock_guard<std::mutex> lock(mModeMutex, std::adopt_lock);
        AppendFormat(out, "mode: %s\n", CameraModeName(mCameraMode));
    } else {
        AppendFormat(out, "mode: %s\n", BusyText().c_str());
    }
    if (deadline.TryLock(mSeqNumMutex)) {
        std::lock_guard<std::mutex> lock(mSeqNumMutex, std::adopt_lock);
        AppendFormat(out, "next sequence number: %u\n", mSeqNum + 1);
    } else {
        AppendFormat(out, "next sequence number: %s\n", BusyText().c_str());
    }
    if (deadline.TryLock(mVirCamIdMutex)) {
        std::lock_guard<std::mutex> lock(mVirCamIdMutex, std::adopt_lock);
        AppendFormat(out, "next virtual camera id: %d\n", mVirCamIdCounter + 1);
    } else {
        AppendFormat(out, "next virtual camera id: %s\n", BusyText().c_str());
    }
    // A step holds its own mutex through the undo that follows a failure.
    AppendFormat(out,
                 "HAL init done: %s (results returned: control %s, configuration %s, data %s)\n",
                 ReturnedText(mHalInit, deadline), ReturnedText(mOpenCtrlSession, deadline),
                 ReturnedText(mConfigStream, deadline), ReturnedText(mOpenDataSession, deadline));
    if (deadline.TryLock(mPhysicalCameraIdMutex)) {
        std::lock_guard<std::mutex> lock(mPhysicalCameraIdMutex, std::adopt_lock);
        AppendFormat(out, "physical camera id: %s\n",
                     mPhysicalCameraId.empty() ? "(none)" : mPhysicalCameraId.c_str());
    } else {
        AppendFormat(out, "physical camera id: %s\n", BusyText().c_str());
    }
    // Held through the report of a result to device management.
    if (deadline.TryLock(mSwitchCallbackMutex)) {
        std::lock_guard<std::mutex> lock(mSwitchCallbackMutex, std::adopt_lock);
        AppendFormat(out, "switch callback: %s\n",
                     mSwitchCallback != nullptr ? "registered" : "none");
    } else {
        AppendFormat(out, "switch callback: %s\n", BusyText().c_str());
    }
    // Once started, the workers run until the process ends.
    const bool started = mSwitchThreadStarted;
    AppendFormat(out, "workers: %s, %d of 2 running; queued: switch-on %d, switch-off %d\n",
                 started ? "started" : "not started", started ? 2 : 0, mHistory.Queued(true),
                 mHistory.Queued(false));
    const RunningSwitch step = mHistory.Running();
    if (step.active) {
        AppendFormat(out, "running now: switch-%s seq %u, step %s, for %s\n",
                     step.switchOn ? "on" : "off", step.seqNum, SwitchPhaseName(step.phase),
                     FormatDuration(step.inPhase).c_str());
    } else {
        out += "running now: nothing\n";
    }
}

void VirCameraChannelForStreamChange::DumpSessions(std::string& out, const DumpDeadline& deadline) {
    std::vector<VirCamSession> sessions;
    {
        if (!deadline.TryLock(mSessionMutex)) {
            AppendFormat(out, "sessions: %s\n", BusyText().c_str());
            return;
        }
        std::lock_guard<std::mutex> lock(mSessionMutex, std::adopt_lock);
        for (const auto& entry : *mVirCamSessionMap) {
            sessions.push_back(*entry.second);
        }
    }
    AppendFormat(out, "sessions: %zu\n", sessions.size());
    for (const auto& session : sessions) {
        AppendFormat(out,
                     "  %s: control session %s, data session %s, virtual camera %s; results: "
                     "control %s, configuration %s, data %s\n",
                     Pair(session.deviceId, session.serviceId).c_str(),
                     SessionIdText(session.controlSessionId).c_str(),
                     SessionIdText(session.dataSessionId).c_str(),
                     VirCamIdText(session.virCamId).c_str(), YesNo(session.openCtrlSessionOk),
                     YesNo(session.configStreamOk), YesNo(session.openDataSessionOk));
    }
}

// The registry is held through every remote call of a switch step.
void VirCameraChannelForStreamChange::DumpChannelCallbacks(std::string& out,
                                                           const DumpDeadline& deadline) {
    std::vector<ChannelKey> registered;
    {
        if (!deadline.TryLock(mChannelCallbackMutex)) {
            AppendFormat(out, "channel callbacks: %s\n", BusyText().c_str());
            return;
        }
        std::lock_guard<std::mutex> lock(mChannelCallbackMutex, std::adopt_lock);
        for (const auto& entry : *mChannelCallbackMap) {
            if (entry.second != nullptr) {
                registered.push_back(entry.first);
            }
        }
    }
    std::set<ChannelKey> linked;
    bool linksKnown = false;
    if (deadline.TryLock(mDeathRecipientMutex)) {
        std::lock_guard<std::mutex> lock(mDeathRecipientMutex, std::adopt_lock);
        linksKnown = true;
        for (const auto& entry : *mDeathRecipientMap) {
            linked.insert(entry.first);
        }
    }
    AppendFormat(out, "channel callbacks: %zu\n", registered.size());
    for (const auto& key : registered) {
        AppendFormat(out, "  %s: death link %s\n", Pair(key.first, key.second).c_str(),
                     linksKnown ? YesNo(linked.count(key) != 0) : BusyText().c_str());
    }
}

}  // namespace pelcamera
