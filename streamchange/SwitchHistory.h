// Copyright (C) 2026 The libvircam Authors

// The last switch commands and what became of them, and the switch step
// running now, kept for `lshal debug`. It only records: nothing in a switch
// depends on it.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "utils/ThreadAnnotations.h"

namespace pelcamera {

// The parts of a switch a dump can name. The first five are timed for every
// switch-on.
enum class SwitchPhase : int32_t {
    HAL_INIT = 0,
    CONTROL,
    CONFIGURATION,
    DATA,
    SWITCH,
    STARTING,    // before the HAL-init wait
    PREPARE,     // clearing an old session of the same pair
    CLEAR_OLD,   // closing the sessions of other pairs after a switch
    SWITCH_OFF,  // the whole switch-off sequence
};
inline constexpr size_t kTimedSwitchPhases = 5;
const char* SwitchPhaseName(SwitchPhase phase);

// Why the intake turned a command away.
enum class SwitchRefusal : int32_t {
    NONE = 0,
    MODE,        // not in the mode the command needs
    BUSY,        // switch-on: the pair already has a session
    NOT_IN_USE,  // switch-off: the pair is not the one switched to
};
const char* SwitchRefusalName(SwitchRefusal refusal);

struct SwitchRecord {
    uint32_t seqNum = 0;
    bool switchOn = true;
    std::string deviceId;  // in clear: a dump masks them
    std::string serviceId;
    SwitchRefusal refusal = SwitchRefusal::NONE;
    std::chrono::system_clock::time_point when;
    // Every result reported for the command, in order, and whether the
    // device-management side took it.
    struct Result {
        int32_t code;
        bool delivered;
    };
    std::vector<Result> results;
    bool started = false;
    bool finished = false;
    std::chrono::steady_clock::duration total{};
    // Unset phases were not reached.
    std::array<std::chrono::steady_clock::duration, kTimedSwitchPhases> phases{};
    std::array<bool, kTimedSwitchPhases> phaseRan{};
};

struct RunningSwitch {
    bool active = false;
    uint32_t seqNum = 0;
    bool switchOn = true;
    SwitchPhase phase = SwitchPhase::STARTING;
    std::chrono::steady_clock::duration inPhase{};
};

// Every method takes only mLock, a leaf lock never held across a call out;
// a recording method may run with any of the service's locks held.
class SwitchHistory {
public:
    static constexpr size_t kCapacity = 32;

    // Binder thread of the command, before it is queued or refused.
    void Command(uint32_t seqNum, bool switchOn, const std::string& deviceId,
                 const std::string& serviceId, SwitchRefusal refusal);
    // Whichever thread reports a result, after the report.
    void Result(uint32_t seqNum, int32_t code, bool delivered);

    // A switch worker, for the length of one sequence.
    class Sequence {
    public:
        Sequence(SwitchHistory& history, uint32_t seqNum, bool switchOn);
        ~Sequence();
        Sequence(const Sequence&) = delete;
        Sequence& operator=(const Sequence&) = delete;

    private:
        SwitchHistory& mHistory;
        uint32_t mSeqNum;
        std::chrono::steady_clock::time_point mStart;
    };

    // The switch-on worker: times the phases of one sequence. Enter ends the
    // phase before (its time is kept if it is one of the timed five) and
    // starts the next; the destructor ends the last.
    class PhaseClock {
    public:
        PhaseClock(SwitchHistory& history, uint32_t seqNum);
        ~PhaseClock();
        PhaseClock(const PhaseClock&) = delete;
        PhaseClock& operator=(const PhaseClock&) = delete;

        void Enter(SwitchPhase phase);

    private:
        void EndCurrent();

        SwitchHistory& mHistory;
        uint32_t mSeqNum;
        bool mInPhase = false;
        SwitchPhase mPhase = SwitchPhase::STARTING;
        std::chrono::steady_clock::time_point mStart;
    };

    // Any thread.
    std::vector<SwitchRecord> Records() const;
    RunningSwitch Running() const;
    // Commands accepted and not started yet.
    int32_t Queued(bool switchOn) const;

private:
    SwitchRecord* FindLocked(uint32_t seqNum) REQUIRES(mLock);
    void EnterPhaseLocked(uint32_t seqNum, SwitchPhase phase) REQUIRES(mLock);

    // A leaf lock: guards the records and what runs now; nothing is called
    // out while it is held.
    mutable std::mutex mLock;
    std::deque<SwitchRecord> mRecords GUARDED_BY(mLock);
    std::array<int32_t, 2> mQueued GUARDED_BY(mLock){};  // [0] switch-off, [1] switch-on
    RunningSwitch mRunning GUARDED_BY(mLock);
    std::chrono::steady_clock::time_point mPhaseStart GUARDED_BY(mLock);
};

}  // namespace pelcamera
