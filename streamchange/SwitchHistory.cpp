// Copyright (C) 2026 The libvircam Authors

#include "streamchange/SwitchHistory.h"

#include "utils/VirCamClock.h"

namespace pelcamera {

const char* SwitchPhaseName(SwitchPhase phase) {
    switch (phase) {
        case SwitchPhase::HAL_INIT:
            return "hal init";
        case SwitchPhase::CONTROL:
            return "control";
        case SwitchPhase::CONFIGURATION:
            return "configuration";
        case SwitchPhase::DATA:
            return "data";
        case SwitchPhase::SWITCH:
            return "switch";
        case SwitchPhase::STARTING:
            return "starting";
        case SwitchPhase::PREPARE:
            return "clearing an old session of the pair";
        case SwitchPhase::CLEAR_OLD:
            return "closing other sessions";
        case SwitchPhase::SWITCH_OFF:
            return "switch-off";
    }
    return "?";
}

const char* SwitchRefusalName(SwitchRefusal refusal) {
    switch (refusal) {
        case SwitchRefusal::NONE:
            return "accepted";
        case SwitchRefusal::MODE:
            return "refused (mode)";
        case SwitchRefusal::BUSY:
            return "refused (busy)";
        case SwitchRefusal::NOT_IN_USE:
            return "refused (pair not in use)";
    }
    return "?";
}

void SwitchHistory::Command(uint32_t seqNum, bool switchOn, const std::string& deviceId,
                            const std::string& serviceId, SwitchRefusal refusal) {
    SwitchRecord record;
    record.seqNum = seqNum;
    record.switchOn = switchOn;
    record.deviceId = deviceId;
    record.serviceId = serviceId;
    record.refusal = refusal;
    record.when = std::chrono::system_clock::now();
    std::lock_guard<std::mutex> lock(mLock);
    if (refusal == SwitchRefusal::NONE) {
        ++mQueued[switchOn ? 1 : 0];
    }
    if (mRecords.size() == kCapacity) {
        mRecords.pop_front();
    }
    mRecords.push_back(std::move(record));
}

void SwitchHistory::Result(uint32_t seqNum, int32_t code, bool delivered) {
    std::lock_guard<std::mutex> lock(mLock);
    SwitchRecord* record = FindLocked(seqNum);
    if (record != nullptr) {
        record->results.push_back({code, delivered});
    }
}

SwitchRecord* SwitchHistory::FindLocked(uint32_t seqNum) {
    for (auto it = mRecords.rbegin(); it != mRecords.rend(); ++it) {
        if (it->seqNum == seqNum) {
            return &*it;
        }
    }
    return nullptr;
}

void SwitchHistory::EnterPhaseLocked(uint32_t seqNum, SwitchPhase phase) {
    mRunning.seqNum = seqNum;
    mRunning.phase = phase;
    mPhaseStart = Clock().Now();
}

SwitchHistory::Sequence::Sequence(SwitchHistory& history, uint32_t seqNum, bool switchOn)
    : mHistory(history), mSeqNum(seqNum), mStart(Clock().Now()) {
    std::lock_guard<std::mutex> lock(mHistory.mLock);
    int32_t& queued = mHistory.mQueued[switchOn ? 1 : 0];
    queued = queued > 0 ? queued - 1 : 0;
    mHistory.mRunning.active = true;
    mHistory.mRunning.switchOn = switchOn;
    mHistory.EnterPhaseLocked(seqNum, switchOn ? SwitchPhase::STARTING : SwitchPhase::SWITCH_OFF);
    SwitchRecord* record = mHistory.FindLocked(seqNum);
    if (record != nullptr) {
        record->started = true;
    }
}

SwitchHistory::Sequence::~Sequence() {
    const auto total = Clock().Now() - mStart;
    std::lock_guard<std::mutex> lock(mHistory.mLock);
    mHistory.mRunning.active = false;
    SwitchRecord* record = mHistory.FindLocked(mSeqNum);
    if (record != nullptr) {
        record->finished = true;
        record->total = total;
    }
}

SwitchHistory::PhaseClock::PhaseClock(SwitchHistory& history, uint32_t seqNum)
    : mHistory(history), mSeqNum(seqNum) {}

SwitchHistory::PhaseClock::~PhaseClock() {
    EndCurrent();
}

void SwitchHistory::PhaseClock::Enter(SwitchPhase phase) {
    EndCurrent();
    mInPhase = true;
    mPhase = phase;
    mStart = Clock().Now();
    std::lock_guard<std::mutex> lock(mHistory.mLock);
    mHistory.EnterPhaseLocked(mSeqNum, phase);
}

void SwitchHistory::PhaseClock::EndCurrent() {
    const auto index = static_cast<size_t>(mPhase);
    if (!mInPhase || index >= kTimedSwitchPhases) {
        return;
    }
    mInPhase = false;
    const auto duration = Clock().Now() - mStart;
    std::lock_guard<std::mutex> lock(mHistory.mLock);
    SwitchRecord* record = mHistory.FindLocked(mSeqNum);
    if (record != nullptr) {
        record->phases[index] = duration;
        record->phaseRan[index] = true;
    }
}

std::vector<SwitchRecord> SwitchHistory::Records() const {
    std::lock_guard<std::mutex> lock(mLock);
    return {mRecords.begin(), mRecords.end()};
}

RunningSwitch SwitchHistory::Running() const {
    std::lock_guard<std::mutex> lock(mLock);
    RunningSwitch running = mRunning;
    if (running.active) {
        running.inPhase = Clock().Now() - mPhaseStart;
    }
    return running;
}

int32_t SwitchHistory::Queued(bool switchOn) const {
    std::lock_guard<std::mutex> lock(mLock);
    return mQueued[switchOn ? 1 : 0];
}

}  // namespace pelcamera
