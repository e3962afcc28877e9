#include "streamchange/AwaitedResult.h"

#include <algorithm>

namespace pelcamera {

bool AwaitedResult::Deliver(Subject subject) {
    const auto sleeper = std::find_if(mSleepers.begin(), mSleepers.end(), [subject](Sleeper* s) {
        return !s->delivered && (s->subject == nullptr || s->subject == subject);
    });
    if (sleeper == mSleepers.end()) {
        returned = true;
        return false;
    }
    (*sleeper)->delivered = true;
    // Every sleeper wakes and looks at its own entry; the ones still waiting
    // sleep on.
    cond.notify_all();
    return true;
}

bool AwaitedResult::SleepUntil(std::unique_lock<std::mutex>& lock, Subject subject,
                               VirCamClock::TimePoint deadline) {
    Sleeper self{subject, false};
    mSleepers.push_back(&self);
    while (!self.delivered) {
        if (Clock().WaitUntil(cond, lock, deadline) == std::cv_status::timeout) {
            break;
        }
    }
    mSleepers.erase(std::find(mSleepers.begin(), mSleepers.end(), &self));
    return self.delivered;
}

}  // namespace pelcamera
