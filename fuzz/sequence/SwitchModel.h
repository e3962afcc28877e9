// Copyright (C) 2026 The libvircam Authors

// An executable model of the switch contract: modes, the switch-on queue
// worked newest first, refusals and their codes, sequence numbers, what each
// step's answer, failure, silence or death leads to, rollback and switch-off.
// It runs beside the library on the same virtual time and predicts, for every
// command, the one result device management must receive (or that none
// comes). Where the contract leaves a race open it keeps one "world" per
// outcome, and an observation is accepted when some world predicted it.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "Script.h"

namespace vircam_fuzz {

constexpr int kSlots = 2;
enum Mode : int32_t { kPhysical = 0, kVirtual = 1, kSwitching = 2 };
constexpr Ns kForever = INT64_MAX / 4;

struct Result {
    bool on;
    uint32_t seq;
    int32_t code;
    bool operator<(const Result& o) const {
        return on != o.on ? on < o.on : seq != o.seq ? seq < o.seq : code < o.code;
    }
    bool operator==(const Result& o) const { return on == o.on && seq == o.seq && code == o.code; }
};

// What the fuzzer reads from the library and its peers once time has settled.
struct Observed {
    std::vector<Result> results;
    int32_t mode;
    int32_t translatorMode;
    bool property;  // the system property names a camera
    // Per remote generation (in the order the model created them), the
    // sessions it still has open, control and data; dead remotes excluded.
    std::vector<std::set<uint32_t>> openControl;
    std::vector<std::set<uint32_t>> openData;
    std::vector<bool> alive;
};

// One remote process: a slot's generation.
struct ModelRemote {
    int slot;
    bool alive = true;
    uint32_t nextId;
    std::array<Answer, kSteps> script;
    std::set<uint32_t> control, data;
};

struct ModelSession {
    int remote;  // the generation that opened its sessions
    uint32_t control = 0, data = 0;
    int32_t virCamId = -1;
    int serial = 0;  // tells sessions of one key apart
    std::array<bool, kSteps> ok{};
};

struct World;

// The fuzzer's thread only; no lock anywhere.
class SwitchModel {
public:
    SwitchModel();
    ~SwitchModel();

    // A fresh sequence: physical, no sessions, one live remote per slot with
    // the given scripts and first session ids, the switch callback set, the
    // pipeline's streams backed up. `lastSeq` is the library's last number.
    void Reset(uint32_t lastSeq, const std::array<std::array<Answer, kSteps>, kSlots>& scripts,
               const std::array<uint32_t, kSlots>& firstIds);

    // Lets every world run up to (not including) virtual time t; `settled`
    // when the driver waited for everything timed to happen, so what happens
    // at t itself is over too.
    void AdvanceTo(Ns t, bool settled = false);
    // True when some world has a switch-on task running or queued.
    bool Switching() const;
    // True when some world has a stream reconfiguration waiting.
    bool Reconfiguring() const;

    // Driver events at time t, in the order they happen. The intakes keep
    // the worlds whose answer matches the observed one.
    void SwitchOn(Ns t, int slot, int32_t status, uint32_t seq);
    void SwitchOff(Ns t, int slot, int32_t status, uint32_t seq);
    void SetScript(int slot, RemoteStep step, Answer answer);
    void Kill(Ns t, int slot);
    // A new process for the slot, registered; first session id given.
    void Replace(Ns t, int slot, uint32_t firstId);
    void RegisterSwitchCallback(Ns t);
    void Reconfigure(Ns t);
    // The pipeline closes the camera; with `reopenAfter` >= 0 it backs its
    // streams up again that long after the close went through.
    void Close(Ns t, Ns reopenAfter);

    // Runs every world to the end of time.
    void Finish();
    // Empty when some world predicted exactly what was observed, or when the
    // races of this sequence came to more worlds than the model keeps;
    // otherwise what the closest world expected.
    std::string Check(const Observed& observed) const;

    size_t Worlds() const { return mWorlds.size(); }
    // Each world's predicted results and whether it is exact, for reading a
    // reproducer's run.
    std::string Describe() const;
    bool Exact() const;
    // Every remote generation created so far, in order: its slot.
    const std::vector<int>& Generations() const { return mGenerations; }

private:
    template <typename Fn>
    void ForEach(Fn&& fn);

    std::vector<World*> mWorlds;
    std::vector<int> mGenerations;
    // Some world was dropped: the model can no longer say what must not happen.
    bool mOverflowed = false;
};

}  // namespace vircam_fuzz
