// Copyright (C) 2026 The libvircam Authors

#include "SwitchModel.h"

#include <algorithm>
#include <functional>
#include <sstream>

namespace vircam_fuzz {

namespace {

constexpr size_t kMaxWorlds = 64;

int32_t FailureCode(int stage) {
    return stage == kControl ? 1 : stage == kConfig ? 101 : 201;
}

}  // namespace

struct PendingAnswer {
    Ns at;
    int step;
    uint32_t id;
    bool ok;
    int remote;
};

// One way things can have gone so far. Plain data, copied at each open race.
struct World {
    bool exact = true;
    bool refuted = false;  // an intake answered otherwise than this world says
    std::string why;
    int32_t mode = kPhysical;
    int32_t transMode = kPhysical;
    int32_t transCamId = -1;
    int32_t virCamCounter = 100;
    bool property = false;
    bool switchCb = true;
    bool streams = true;
    uint32_t seq = 0;
    std::vector<ModelRemote> remotes;
    std::vector<bool> linked;
    std::array<int, kSlots> registry{};
    std::map<int, ModelSession> sessions;  // by slot: the library's key order
    std::vector<std::pair<int, uint32_t>> onQueue;
    // The running switch-on: its step (a RemoteStep; kSteps while polling
    // for streams) and when it wakes.
    bool onRunning = false;
    int onSlot = 0;
    uint32_t onSeq = 0;
    int stage = kControl;
    bool polling = false;
    bool waiting = false;
    int stepRemote = -1;
    std::array<bool, kSteps> returned{};  // results that came with nobody waiting for them
    std::vector<PendingAnswer> answers;
    std::vector<Ns> reopenAt;  // the pipeline backs its streams up again
    int sessionSerial = 0;
    Ns pollStart = 0;
    Ns wakeAt = kForever;
    std::vector<int> deathsPending;  // slots whose death handler waits for the registry
    std::vector<int> queuedDeaths;   // remotes whose death is told after those
    // A stream reconfiguration waiting for its result, on the translator's
    // stream lock.
    bool reconfig = false;
    int reconfigSlot = 0;
    int reconfigSerial = 0;
    Ns reconfigDeadline = kForever;
    // The reconfiguration's clean-up after a failed or missing result: it
    // takes the registry, so it waits while a switch-on step holds it. Its
    // session was looked up before it blocked; the erase takes whatever the
    // key holds once it is through.
    bool reconfigClearing = false;
    ModelSession clearingSession;
    // The pipeline's calls that wait on the translator's stream lock behind
    // that reconfiguration.
    struct Queued {
        bool close;
        std::function<void(World&, Ns)> run;
    };
    std::vector<Queued> afterReconfig;
    std::vector<Result> results;

    // Open races: replayed choices first, then new ones (0), with the other
    // outcomes left for forks.
    std::vector<int> preset;
    size_t presetPos = 0;
    std::vector<int> path;
    std::vector<std::vector<int>>* forks = nullptr;

    int Choose(int outcomes) {
        int choice = 0;
        if (presetPos < preset.size()) {
            choice = preset[presetPos++];
        } else if (forks != nullptr) {
            for (int other = 1; other < outcomes; ++other) {
                std::vector<int> fork = path;
                fork.push_back(other);
                forks->push_back(fork);
            }
        }
        path.push_back(choice);
        return choice;
    }

    int Newest(int slot) const {
        for (int g = static_cast<int>(remotes.size()) - 1; g >= 0; --g) {
            if (remotes[g].slot == slot) {
                return g;
            }
        }
        return -1;
    }

    // The result reaches device management if its callback is set; `racing`
    // when a death handler may clear that callback at the same moment.
    void Report(bool on, uint32_t seqNum, int32_t code, bool racing = false) {
        if (!switchCb) {
            return;
        }
        if (racing && Choose(2) == 1) {
            return;
        }
        results.push_back({on, seqNum, code});
    }

    void CloseAt(int remote, const ModelSession& session) {
        if (remote < 0 || !remotes[remote].alive) {
            return;
        }
        remotes[remote].control.erase(session.control);
        remotes[remote].data.erase(session.data);
    }
    // ClearChannelResource with the callback the registry holds.
    void ClearChannel(int slot) {
        auto it = sessions.find(slot);
        if (it != sessions.end()) {
            CloseAt(registry[slot], it->second);
        }
    }
    // ClearChannelResource with a callback in hand.
    void ClearWith(int remote, int slot) {
        auto it = sessions.find(slot);
        if (it != sessions.end()) {
            CloseAt(remote, it->second);
        }
    }

    // Switch-off, run by the switch-off worker at once: it never waits on time.
    void DoSwitchOff(uint32_t seqNum, int slot, bool racing) {
        if (mode == kPhysical) {
            mode = kSwitching;
        }
        if (transMode == kVirtual) {
            transMode = kPhysical;
            transCamId = -1;
            ClearChannel(slot);
            DropLink(slot);
            sessions.erase(slot);
            Report(false, seqNum, 300, racing);
            mode = kPhysical;
            property = false;
        } else {
            Report(false, seqNum, 301, racing);
            if (mode == kSwitching) {
                mode = kVirtual;
            }
        }
    }

    void DropLink(int slot) {
        for (size_t g = 0; g < remotes.size(); ++g) {
            if (remotes[g].slot == slot) {
                linked[g] = false;
            }
        }
        registry[slot] = -1;
    }

    uint32_t IntakeOn(Ns t, int slot, int32_t* status) {
        const uint32_t seqNum = ++seq;
        if (mode != kPhysical || sessions.count(slot) != 0) {
            *status = 1;
            Report(true, seqNum, 301);
            return seqNum;
        }
        *status = 0;
        onQueue.emplace_back(slot, seqNum);
        if (!onRunning) {
            StartNextOn(t);
        }
        return seqNum;
    }

    uint32_t IntakeOff(int slot, int32_t* status, bool fromDeath) {
        const uint32_t seqNum = ++seq;
        *status = 0;
        if (mode == kVirtual && sessions.count(slot) != 0) {
            if (onRunning) {
                exact = false;  // would wait for the switch-on: not generated
            }
            DoSwitchOff(seqNum, slot, fromDeath);
        } else {
            Report(false, seqNum, 300);
        }
        return seqNum;
    }

    // A remote process dies at t; its recipient (if still linked) queues a
    // switch-off, then drops the channel's entries and the switch callback,
    // after whatever step holds the registry.
    void Death(Ns /*t*/, int remote) {
        if (!remotes[remote].alive) {
            return;
        }
        remotes[remote].alive = false;
        remotes[remote].control.clear();
        remotes[remote].data.clear();
        if (!linked[remote]) {
            return;
        }
        if (!deathsPending.empty() && Choose(2) == 1) {
            // Deaths may be told one after the other on a single thread, the
            // next one only once the blocked handler is done.
            queuedDeaths.push_back(remote);
            return;
        }
        HandleDeath(remote);
    }

    void HandleDeath(int remote) {
        if (!linked[remote]) {
            return;
        }
        const int slot = remotes[remote].slot;
        int32_t status = 0;
        IntakeOff(slot, &status, true);
        if (onRunning) {
            deathsPending.push_back(slot);  // the running step holds the registry
        } else {
            DropLink(slot);
            switchCb = false;
        }
    }

    void ApplyPendingDeaths() {
        for (int slot : deathsPending) {
            DropLink(slot);
            switchCb = false;
        }
        deathsPending.clear();
        auto queued = std::move(queuedDeaths);
        queuedDeaths.clear();
        for (int remote : queued) {
            HandleDeath(remote);
        }
    }

    void StartNextOn(Ns t) {
        if (onQueue.empty()) {
            return;
        }
        onSlot = onQueue.back().first;
        onSeq = onQueue.back().second;
        onQueue.pop_back();
        onRunning = true;
        returned = {};
        if (mode == kPhysical) {
            mode = kSwitching;
        }
        property = true;
        if (!switchCb) {
            Fallback(t);
            return;
        }
        if (sessions.count(onSlot) != 0) {
            ClearWith(registry[onSlot], onSlot);
            sessions.erase(onSlot);
        }
        OpenStep(t, kControl);
    }

    // Step1 or Step3: open a session on the remote and wait for its result.
    // Step1 or Step3: open a session on the remote and wait for its result.
    void OpenStep(Ns t, int step) {
        if (step == kControl) {
            ModelSession fresh;
            fresh.remote = registry[onSlot];
            fresh.serial = ++sessionSerial;
            sessions.emplace(onSlot, fresh);
        }
        const int remote = registry[onSlot];
        if (remote < 0) {
            ReleaseRegistry(t, !onQueue.empty());
            Fallback(t);  // no report; the session stays
            return;
        }
        if (!remotes[remote].alive) {
            StepFailed(t, step, remote);
            return;
        }
        const Answer answer = remotes[remote].script[step];
        const uint32_t id = remotes[remote].nextId++;
        if (answer == Answer::kDieOnCall) {
            Death(t, remote);
            StepFailed(t, step, remote);
            return;
        }
        if (answer == Answer::kCallError) {
            StepFailed(t, step, remote);
            return;
        }
        ModelRemote& peer = remotes[remote];
        (step == kControl ? peer.control : peer.data).insert(id);
        // An answer sent from a thread the moment the call came may arrive
        // before the call has returned, as one sent inside the call does: the
        // session's id is not stored yet.
        const bool early =
            answer == Answer::kBeforeReturn ||
            ((answer == Answer::kAtOnce || answer == Answer::kFail) && Choose(2) == 1);
        if (early) {
            Arrive(t, {t, step, id, AnswerOk(answer), remote});
        }
        ModelSession& session = sessions[onSlot];
        (step == kControl ? session.control : session.data) = id;
        session.remote = remote;
        stepRemote = remote;
        if (!early) {
            Schedule(t, step, id, answer, remote);
        }
        Await(t, step);
    }

    void ConfigStep(Ns t) {
        const int remote = registry[onSlot];
        if (remote < 0) {
            ReleaseRegistry(t, !onQueue.empty());
            Fallback(t);
            return;
        }
        stepRemote = remote;  // the step keeps the callback it found
        if (!streams) {
            polling = true;
            pollStart = t;
            stage = kConfig;
            wakeAt = t + kPollAttempts * kPollInterval;
            return;
        }
        ConfigCall(t);
    }

    void ConfigCall(Ns t) {
        polling = false;
        wakeAt = kForever;
        const int remote = stepRemote;
        if (!remotes[remote].alive) {
            StepFailed(t, kConfig, remote);
            return;
        }
        const Answer answer = remotes[remote].script[kConfig];
        if (answer == Answer::kDieOnCall) {
            Death(t, remote);
            StepFailed(t, kConfig, remote);
            return;
        }
        if (answer == Answer::kCallError) {
            StepFailed(t, kConfig, remote);
            return;
        }
        const uint32_t controlId = sessions[onSlot].control;
        if (answer == Answer::kBeforeReturn) {
            Arrive(t, {t, kConfig, controlId, true, remote});
        } else {
            Schedule(t, kConfig, controlId, answer, remote);
        }
        Await(t, kConfig);
    }

    void Schedule(Ns t, int step, uint32_t id, Answer answer, int remote) {
        Ns delay = 0;
        if (DelayedAnswer(answer, &delay)) {
            answers.push_back({t + delay, step, id, AnswerOk(answer), remote});
        }
    }

    // A remote's result reaches the library: it goes to the session with its
    // id, else to the first session still being set up, and wakes the wait
    // for that session, or is flagged for the wait still to come.
    void Arrive(Ns t, const PendingAnswer& answer) {
        if (!remotes[answer.remote].alive) {
            return;
        }
        ModelSession* target = nullptr;
        for (auto& [slot, session] : sessions) {
            const uint32_t id = answer.step == kData ? session.data : session.control;
            if (id == answer.id) {
                target = &session;
                break;
            }
        }
        for (auto it = sessions.begin(); target == nullptr && it != sessions.end(); ++it) {
            if (it->second.control == 0 || it->second.data == 0) {
                target = &it->second;
            }
        }
        if (target == nullptr) {
            return;
        }
        target->ok[answer.step] = answer.ok;
        if (onRunning && waiting && stage == answer.step && sessions.count(onSlot) != 0 &&
            sessions[onSlot].serial == target->serial) {
            waiting = false;
            Resume(t);
            return;
        }
        if (reconfig && !reconfigClearing && answer.step == kConfig &&
            sessions.count(reconfigSlot) != 0 && sessions[reconfigSlot].serial == target->serial &&
            reconfigSerial == target->serial) {
            ReconfigEnd(t, true);
            return;
        }
        returned[answer.step] = true;
    }

    void Await(Ns t, int step) {
        stage = step;
        if (returned[step]) {
            Resume(t);
            return;
        }
        waiting = true;
        wakeAt = t + kStepTimeout;
    }

    // The step's wait is over with a result: the session's flag decides.
    void Resume(Ns t) {
        waiting = false;
        wakeAt = kForever;
        if (sessions.count(onSlot) != 0 && sessions[onSlot].ok[stage]) {
            StepDone(t);
        } else {
            StepFailed(t, stage, stepRemote);
        }
    }

    void OnWake(Ns t) {
        if (polling) {
            ConfigCall(t);
            return;
        }
        waiting = false;
        StepFailed(t, stage, stepRemote);  // timed out
    }

    void StepFailed(Ns t, int step, int remote) {
        waiting = false;
        Report(true, onSeq, FailureCode(step));
        ClearWith(remote, onSlot);
        sessions.erase(onSlot);
        ReleaseRegistry(t, !onQueue.empty());
        ApplyPendingDeaths();
        Fallback(t);
    }

    void StepDone(Ns t) {
        wakeAt = kForever;
        if (stage == kData && reconfigClearing) {
            exact = false;  // the clean-up races the translator switch and Step5
        }
        ReleaseRegistry(t, stage != kData);
        if (!deathsPending.empty()) {
            exact = false;  // the next step races the death handler for the registry
            ApplyPendingDeaths();
        }
        if (stage == kControl) {
            ConfigStep(t);
        } else if (stage == kConfig) {
            OpenStep(t, kData);
        } else {
            SwitchTranslator(t);
        }
    }

    void SwitchTranslator(Ns t) {
        const int32_t id = ++virCamCounter;
        sessions[onSlot].virCamId = id;
        transMode = kVirtual;
        transCamId = id;
        Report(true, onSeq, 300);
        for (auto it = sessions.begin(); it != sessions.end();) {
            if (it->first != onSlot) {
                ClearChannel(it->first);
                it = sessions.erase(it);
            } else {
                ++it;
            }
        }
        if (mode == kSwitching) {
            mode = kVirtual;
        }
        End(t);
    }

    void Fallback(Ns t) {
        mode = kPhysical;
        property = false;
        End(t);
    }

    void End(Ns t) {
        wakeAt = kForever;
        polling = false;
        waiting = false;
        returned = {};
        onRunning = false;
        ReleaseRegistry(t, false);
        ApplyPendingDeaths();
        StartNextOn(t);
    }

    int SessionOfCamera(int32_t camId) const {
        for (const auto& [slot, session] : sessions) {
            if (session.virCamId == camId) {
                return slot;
            }
        }
        return -1;
    }

    // The pipeline backs up its streams; the translator's stream lock is held
    // through a running reconfiguration's wait.
    void Backup(Ns t) {
        if (reconfig) {
            afterReconfig.push_back({false, [](World& w, Ns at) { w.Backup(at); }});
            return;
        }
        // Only the first backup after a close ends the poll: the poll's next
        // fetch finds streams whatever later backups change.
        const bool hadStreams = streams;
        streams = true;
        if (onRunning && polling && !hadStreams) {
            const Ns since = t - pollStart;
            const Ns fetches = (since + kPollInterval - 1) / kPollInterval;
            if (fetches + 1 <= kPollAttempts) {
                wakeAt = pollStart + (fetches + 1) * kPollInterval;
            }
        }
        if (transMode != kVirtual) {
            return;
        }
        const int slot = SessionOfCamera(transCamId);
        if (slot < 0) {
            return;
        }
        const int remote = registry[slot];
        if (remote < 0) {
            return;
        }
        if (onRunning) {
            exact = false;  // a reconfiguration while a switch-on runs: not modelled
        }
        const Answer answer = remotes[remote].script[kConfig];
        if (!remotes[remote].alive || answer == Answer::kCallError ||
            answer == Answer::kDieOnCall) {
            if (remotes[remote].alive) {
                if (answer == Answer::kDieOnCall && Choose(2) == 1) {
                    // The death's switch-off may find the session erased.
                    ClearWith(remote, slot);
                    sessions.erase(slot);
                    Death(t, remote);
                    return;
                }
                if (answer == Answer::kDieOnCall) {
                    Death(t, remote);
                }
            }
            ClearWith(remote, slot);
            sessions.erase(slot);
            return;
        }
        const uint32_t controlId = sessions[slot].control;
        // A result sent the moment the call came may be in before the wait
        // begins: then it is flagged, and the flag outlives this wait.
        const bool early =
            answer == Answer::kBeforeReturn ||
            ((answer == Answer::kAtOnce || answer == Answer::kFail) && Choose(2) == 1);
        if (early) {
            Arrive(t, {t, kConfig, controlId, AnswerOk(answer), remote});
        } else {
            Schedule(t, kConfig, controlId, answer, remote);
        }
        if (sessions.count(slot) == 0) {
            return;
        }
        if (returned[kConfig]) {
            if (!sessions[slot].ok[kConfig]) {
                ClearChannel(slot);
                sessions.erase(slot);
            }
            return;
        }
        reconfig = true;
        reconfigSlot = slot;
        reconfigSerial = sessions[slot].serial;
        reconfigDeadline = t + kStepTimeout;
    }

    void ReconfigEnd(Ns t, bool delivered) {
        const int slot = reconfigSlot;
        reconfigDeadline = kForever;
        if (sessions.count(slot) != 0 && (!delivered || !sessions[slot].ok[kConfig])) {
            clearingSession = sessions[slot];
            if (onRunning) {
                // A switch-on step holds the registry through its call and
                // wait: the clean-up and the translator's stream lock wait.
                if (slot == onSlot) {
                    exact = false;  // would erase the running switch-on's session
                }
                reconfigClearing = true;
                return;
            }
            CloseAt(registry[slot], clearingSession);
            sessions.erase(slot);
        }
        FinishReconfig(t);
    }

    // A switch-on step has let the registry go (`again`: the worker takes it
    // straight back for its next step, so a waiting clean-up may come before
    // or after that step).
    void ReleaseRegistry(Ns t, bool again) {
        if (!reconfigClearing) {
            return;
        }
        if (again && Choose(2) == 1) {
            return;
        }
        if (!deathsPending.empty()) {
            exact = false;  // the clean-up and a death handler race for the registry
        }
        reconfigClearing = false;
        CloseAt(registry[reconfigSlot], clearingSession);
        sessions.erase(reconfigSlot);
        FinishReconfig(t);
    }

    // The lock goes to the calls that waited for it in no set order, and a
    // close and a backup each take it twice (streams, then the channel), so a
    // close can come between a backup's two halves, or a death's switch-off
    // between the close's. Backups alone come to the same in any order; with a
    // close among them: first come, first served, and not judged.
    void FinishReconfig(Ns t) {
        reconfig = false;
        std::vector<Queued> after = std::move(afterReconfig);
        afterReconfig.clear();
        const size_t closes = static_cast<size_t>(
            std::count_if(after.begin(), after.end(), [](const Queued& op) { return op.close; }));
        if (closes != 0 && closes != after.size()) {
            exact = false;
        }
        for (size_t i = 0; i < after.size(); ++i) {
            if (reconfig) {  // one of them waits for its own result: the rest wait again
                afterReconfig.insert(afterReconfig.end(),
                                     after.begin() + static_cast<std::ptrdiff_t>(i), after.end());
                return;
            }
            after[i].run(*this, t);
        }
    }

    void DoClose(Ns t, Ns reopenAfter) {
        if (reconfig) {
            afterReconfig.push_back(
                {true, [reopenAfter](World& w, Ns at) { w.DoClose(at, reopenAfter); }});
            return;
        }
        if (reopenAfter >= 0) {
            reopenAt.push_back(t + reopenAfter);
        }
        streams = false;
        mode = kPhysical;
        property = false;
        const int slot = SessionOfCamera(transCamId);
        if (slot >= 0) {
            if (onRunning) {
                // Its clean-up waits for the running step's hold on the
                // registry, the session (this slot's or one a switch-on left
                // behind) stays in the table meanwhile, and the clean-up then
                // races the next step: not modelled.
                exact = false;
            }
            ClearChannel(slot);
            sessions.erase(slot);
            registry[slot] = -1;
        }
        transMode = kPhysical;
        transCamId = -1;
    }

    // Everything that decides what this world does from now on: two worlds
    // with one signature are one.
    std::string Signature() const {
        std::ostringstream out;
        out << exact << refuted << mode << transMode << transCamId << virCamCounter << property
            << switchCb << streams << seq << '|';
        for (size_t g = 0; g < remotes.size(); ++g) {
            const ModelRemote& r = remotes[g];
            out << r.alive << linked[g] << r.nextId << ':';
            for (Answer a : r.script) {
                out << static_cast<int>(a) << ',';
            }
            for (uint32_t id : r.control) {
                out << 'c' << id;
            }
            for (uint32_t id : r.data) {
                out << 'd' << id;
            }
            out << ';';
        }
        for (int slot : registry) {
            out << slot << ',';
        }
        for (const auto& [slot, session] : sessions) {
            out << 's' << slot << ':' << session.remote << ',' << session.control << ','
                << session.data << ',' << session.virCamId << ',' << session.serial << ','
                << session.ok[0] << session.ok[1] << session.ok[2];
        }
        out << '|';
        for (const auto& task : onQueue) {
            out << task.first << ':' << task.second << ',';
        }
        out << onRunning << onSlot << ':' << onSeq << ':' << stage << polling << waiting << ':'
            << stepRemote << ':' << pollStart << ':' << wakeAt << ':' << returned[0] << returned[1]
            << returned[2] << ':' << sessionSerial << '|';
        for (const PendingAnswer& a : answers) {
            out << a.at << ',' << a.step << ',' << a.id << ',' << a.ok << ',' << a.remote << ';';
        }
        for (Ns at : reopenAt) {
            out << 'o' << at;
        }
        for (int slot : deathsPending) {
            out << 'p' << slot;
        }
        for (int remote : queuedDeaths) {
            out << 'q' << remote;
        }
        out << '|' << reconfig << reconfigSlot << ':' << reconfigSerial << ':' << reconfigDeadline
            << ':' << afterReconfig.size() << '|' << reconfigClearing << ':'
            << clearingSession.remote << ',' << clearingSession.control << ','
            << clearingSession.data << ',' << clearingSession.serial << '|';
        std::vector<Result> sorted = results;
        std::sort(sorted.begin(), sorted.end());
        for (const Result& r : sorted) {
            out << r.on << ',' << r.seq << ',' << r.code << ';';
        }
        return out.str();
    }

    // Runs what happens before t, in time order. Two things at one instant
    // are a race: an answer on a step's deadline is one the contract leaves
    // open (both orders are kept); any other is not generated on purpose and
    // makes the world inexact.
    void RunBefore(Ns t) {
        for (;;) {
            const Ns worker = onRunning ? wakeAt : kForever;
            const Ns pipeline = reconfig ? reconfigDeadline : kForever;
            size_t first = answers.size();
            for (size_t i = 0; i < answers.size(); ++i) {
                if (first == answers.size() || answers[i].at < answers[first].at) {
                    first = i;
                }
            }
            const Ns answer = first < answers.size() ? answers[first].at : kForever;
            Ns reopen = kForever;
            for (Ns at : reopenAt) {
                reopen = std::min(reopen, at);
            }
            const Ns next = std::min({worker, pipeline, answer, reopen});
            if (next >= t) {
                if (next == t && t < kForever) {
                    exact = false;  // the driver acts on an instant the library also does
                }
                return;
            }
            int atOnce = (worker == next) + (pipeline == next);
            for (Ns at : reopenAt) {
                atOnce += at == next;
            }
            for (const PendingAnswer& a : answers) {
                atOnce += a.at == next;
            }
            bool answerFirst = answer == next;
            if (atOnce > 1) {
                if (atOnce == 2 && answer == next && (worker == next || pipeline == next)) {
                    answerFirst = Choose(2) == 0;
                } else {
                    exact = false;
                }
            }
            if (reopen == next && !answerFirst && worker != next && pipeline != next) {
                reopenAt.erase(std::find(reopenAt.begin(), reopenAt.end(), next));
                Backup(next);
            } else if (answerFirst) {
                const PendingAnswer arriving = answers[first];
                answers.erase(answers.begin() + static_cast<std::ptrdiff_t>(first));
                Arrive(next, arriving);
            } else if (worker == next) {
                OnWake(next);
            } else {
                ReconfigEnd(next, false);
            }
        }
    }
};

SwitchModel::SwitchModel() = default;

SwitchModel::~SwitchModel() {
    for (World* world : mWorlds) {
        delete world;
    }
}

void SwitchModel::Reset(uint32_t lastSeq,
                        const std::array<std::array<Answer, kSteps>, kSlots>& scripts,
                        const std::array<uint32_t, kSlots>& firstIds) {
    for (World* world : mWorlds) {
        delete world;
    }
    mWorlds.clear();
    mGenerations.clear();
    mOverflowed = false;
    auto* world = new World();
    world->seq = lastSeq;
    for (int slot = 0; slot < kSlots; ++slot) {
        ModelRemote remote;
        remote.slot = slot;
        remote.nextId = firstIds[slot];
        remote.script = scripts[slot];
        world->remotes.push_back(remote);
        world->linked.push_back(true);
        world->registry[slot] = slot;
        mGenerations.push_back(slot);
    }
    mWorlds.push_back(world);
}

// Runs `fn` on every world; each open race it meets forks the world from
// where it stood before `fn`, replaying the same choices up to the race.
template <typename Fn>
void SwitchModel::ForEach(Fn&& fn) {
    std::vector<World*> next;
    bool refutedKept = false;
    for (World* world : mWorlds) {
        const World before = *world;
        std::vector<std::vector<int>> forks;
        std::vector<World*> pending{world};
        world->preset.clear();
        bool first = true;
        while (!pending.empty() || !forks.empty()) {
            World* current = nullptr;
            if (first) {
                current = pending.back();
                pending.pop_back();
                first = false;
            } else {
                current = new World(before);
                current->preset = forks.back();
                forks.pop_back();
            }
            current->presetPos = 0;
            current->path.clear();
            current->forks = &forks;
            fn(*current);
            current->forks = nullptr;
            current->preset.clear();
            // One refuted world is enough to say what was expected; the rest
            // would only crowd out the worlds still alive.
            if (current->refuted && refutedKept) {
                delete current;
            } else if (next.size() < kMaxWorlds) {
                refutedKept = refutedKept || current->refuted;
                next.push_back(current);
            } else {
                mOverflowed = true;
                delete current;
            }
        }
    }
    // Races whose outcomes come to the same world leave one.
    std::set<std::string> seen;
    std::vector<World*> distinct;
    for (World* world : next) {
        if (world->afterReconfig.empty() && !seen.insert(world->Signature()).second) {
            delete world;
        } else {
            distinct.push_back(world);
        }
    }
    mWorlds.swap(distinct);
}

void SwitchModel::AdvanceTo(Ns t, bool settled) {
    ForEach([t, settled](World& w) { w.RunBefore(settled ? t + 1 : t); });
}

bool SwitchModel::Switching() const {
    return std::any_of(mWorlds.begin(), mWorlds.end(),
                       [](const World* w) { return w->onRunning || !w->onQueue.empty(); });
}

bool SwitchModel::Reconfiguring() const {
    return std::any_of(mWorlds.begin(), mWorlds.end(), [](const World* w) { return w->reconfig; });
}

void SwitchModel::SwitchOn(Ns t, int slot, int32_t status, uint32_t seq) {
    ForEach([&](World& w) {
        int32_t predicted = 0;
        const uint32_t expected = w.IntakeOn(t, slot, &predicted);
        if ((expected != seq || predicted != status) && w.exact) {
            w.refuted = true;
            w.why = "switch-on answered " + std::to_string(status) + "/" + std::to_string(seq) +
                    ", expected " + std::to_string(predicted) + "/" + std::to_string(expected);
            w.seq = seq;
        }
    });
}

void SwitchModel::SwitchOff(Ns /*t*/, int slot, int32_t status, uint32_t seq) {
    ForEach([&](World& w) {
        int32_t predicted = 0;
        const uint32_t expected = w.IntakeOff(slot, &predicted, false);
        if ((expected != seq || predicted != status) && w.exact) {
            w.refuted = true;
            w.why = "switch-off answered " + std::to_string(status) + "/" + std::to_string(seq) +
                    ", expected " + std::to_string(predicted) + "/" + std::to_string(expected);
            w.seq = seq;
        }
    });
}

void SwitchModel::SetScript(int slot, RemoteStep step, Answer answer) {
    ForEach([&](World& w) { w.remotes[w.Newest(slot)].script[step] = answer; });
}

void SwitchModel::Kill(Ns t, int slot) {
    ForEach([&](World& w) { w.Death(t, w.Newest(slot)); });
}

void SwitchModel::Replace(Ns /*t*/, int slot, uint32_t firstId) {
    mGenerations.push_back(slot);
    ForEach([&](World& w) {
        ModelRemote remote;
        remote.slot = slot;
        remote.nextId = firstId;
        remote.script = w.remotes[w.Newest(slot)].script;
        for (size_t g = 0; g < w.remotes.size(); ++g) {
            if (w.remotes[g].slot == slot) {
                w.linked[g] = false;
            }
        }
        w.remotes.push_back(remote);
        w.linked.push_back(true);
        w.registry[slot] = static_cast<int>(w.remotes.size()) - 1;
    });
}

void SwitchModel::RegisterSwitchCallback(Ns /*t*/) {
    ForEach([](World& w) { w.switchCb = true; });
}

void SwitchModel::Reconfigure(Ns t) {
    ForEach([t](World& w) { w.Backup(t); });
}

void SwitchModel::Close(Ns t, Ns reopenAfter) {
    ForEach([t, reopenAfter](World& w) { w.DoClose(t, reopenAfter); });
}

void SwitchModel::Finish() {
    AdvanceTo(kForever);
}

bool SwitchModel::Exact() const {
    return !mOverflowed &&
           std::all_of(mWorlds.begin(), mWorlds.end(), [](const World* w) { return w->exact; });
}

namespace {

std::string Text(const std::vector<Result>& results) {
    std::ostringstream out;
    for (const Result& r : results) {
        out << (r.on ? " on" : " off") << "(" << r.seq << ")=" << r.code;
    }
    return out.str();
}

}  // namespace

std::string SwitchModel::Describe() const {
    std::ostringstream out;
    for (const World* w : mWorlds) {
        std::vector<Result> results = w->results;
        std::sort(results.begin(), results.end());
        out << (w->refuted ? "refuted"
                : w->exact ? "exact"
                           : "inexact")
            << ":" << Text(results) << " mode " << w->mode << "\n";
    }
    return out.str();
}

std::string SwitchModel::Check(const Observed& observed) const {
    std::vector<Result> seen = observed.results;
    std::sort(seen.begin(), seen.end());
    std::string closest;
    for (const World* w : mWorlds) {
        if (w->refuted) {
            if (closest.empty()) {
                closest = w->why;
            }
            continue;
        }
        if (!w->exact) {
            return "";
        }
        std::vector<Result> expected = w->results;
        std::sort(expected.begin(), expected.end());
        std::ostringstream why;
        if (expected != seen) {
            why << "results: expected" << Text(expected) << ", saw" << Text(seen);
        } else if (w->mode != observed.mode || w->transMode != observed.translatorMode ||
                   w->property != observed.property) {
            why << "state: expected mode " << w->mode << ", translator " << w->transMode
                << ", property " << w->property << "; saw " << observed.mode << ", "
                << observed.translatorMode << ", " << observed.property;
        } else {
            for (size_t g = 0; g < w->remotes.size() && g < observed.alive.size(); ++g) {
                if (!observed.alive[g] || !w->remotes[g].alive) {
                    continue;
                }
                if (w->remotes[g].control != observed.openControl[g] ||
                    w->remotes[g].data != observed.openData[g]) {
                    auto ids = [](const std::set<uint32_t>& set) {
                        std::string text;
                        for (uint32_t id : set) {
                            text += " " + std::to_string(id);
                        }
                        return text.empty() ? std::string(" none") : text;
                    };
                    why << "remote generation " << g << " (slot " << w->remotes[g].slot
                        << "): expected open control" << ids(w->remotes[g].control) << ", data"
                        << ids(w->remotes[g].data) << "; saw control"
                        << ids(observed.openControl[g]) << ", data" << ids(observed.openData[g]);
                    break;
                }
            }
        }
        if (why.str().empty()) {
            return "";
        }
        if (closest.empty()) {
            closest = why.str();
        }
    }
    if (mOverflowed) {
        return "";
    }
    return closest.empty() ? "no world left"
                           : closest + " (" + std::to_string(mWorlds.size()) + " worlds)";
}

}  // namespace vircam_fuzz
