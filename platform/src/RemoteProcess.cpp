#include <hidl/HidlRemote.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <functional>
#include <iterator>
#include <thread>

namespace android {
namespace hardware {

namespace {

// The runtime's death-notification thread: deliveries never run on the
// thread that killed the peer, and no runtime lock is held while they run.
class DeathNotifier {
public:
    static DeathNotifier& instance() {
        static DeathNotifier notifier;
        return notifier;
    }

    void post(std::function<void()> delivery) {
        std::lock_guard<std::mutex> lock(mLock);
        mQueue.push_back(std::move(delivery));
        ++mPosted;
        mWake.notify_all();
    }

    void drain() {
        std::unique_lock<std::mutex> lock(mLock);
        const uint64_t target = mPosted;
        mWake.wait(lock, [&] { return mDelivered >= target; });
    }

    bool onThread() const { return std::this_thread::get_id() == mThread.get_id(); }

    ~DeathNotifier() {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mStop = true;
            mWake.notify_all();
        }
        mThread.join();
    }

private:
    DeathNotifier() : mThread([this] { run(); }) {}

    void run() {
        std::unique_lock<std::mutex> lock(mLock);
        while (true) {
            mWake.wait(lock, [&] { return mStop || !mQueue.empty(); });
            if (mQueue.empty()) {
                return;
            }
            auto delivery = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            delivery();
            lock.lock();
            ++mDelivered;
            mWake.notify_all();
        }
    }

    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<std::function<void()>> mQueue;
    uint64_t mPosted = 0;
    uint64_t mDelivered = 0;
    bool mStop = false;
    std::thread mThread;  // last: starts once the rest is ready
};

}  // namespace

void RemoteProcess::kill() {
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mDead) {
            return;
        }
        mDead = true;
        links.swap(mLinks);
    }
    for (auto& link : links) {
        DeathNotifier::instance().post([link] {
            sp<hidl_death_recipient> recipient = link.recipient.promote();
            if (recipient != nullptr) {
                recipient->serviceDied(link.cookie, link.who);
            }
        });
    }
}

bool RemoteProcess::isDead() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mDead;
}

void RemoteProcess::failNextCalls(const std::string& method, int times) {
    std::lock_guard<std::mutex> lock(mLock);
    mFailures[method] += times;
}

Status RemoteProcess::beginCall(const char* method) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mDead) {
        return Status::fromStatusT(DEAD_OBJECT);
    }
    auto it = mFailures.find(method);
    if (it != mFailures.end() && it->second > 0) {
        if (--it->second == 0) {
            mFailures.erase(it);
        }
        return Status::fromStatusT(FAILED_TRANSACTION);
    }
    return Status::ok();
}

bool RemoteProcess::link(const void* proxy, const sp<hidl_death_recipient>& recipient,
                         uint64_t cookie, const wp<hidl::base::V1_0::IBase>& who) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mDead || recipient == nullptr) {
        return false;
    }
    // Like the binder driver, the runtime keeps only a weak reference.
    mLinks.push_back({proxy, recipient, cookie, who});
    return true;
}

bool RemoteProcess::unlink(const void* proxy, const sp<hidl_death_recipient>& recipient) {
    std::lock_guard<std::mutex> lock(mLock);
    for (auto it = mLinks.rbegin(); it != mLinks.rend(); ++it) {
        if (it->proxy == proxy && it->recipient == recipient) {
            mLinks.erase(std::next(it).base());
            return true;
        }
    }
    return false;
}

void RemoteProcess::dropLinks(const void* proxy) {
    std::lock_guard<std::mutex> lock(mLock);
    mLinks.erase(std::remove_if(mLinks.begin(), mLinks.end(),
                                [proxy](const Link& link) { return link.proxy == proxy; }),
                 mLinks.end());
}

size_t RemoteProcess::linkedRecipients() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mLinks.size();
}

size_t RemoteProcess::liveRecipients() const {
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> lock(mLock);
        links = mLinks;
    }
    // Promoted outside the lock: a recipient whose last reference goes here
    // may unlink itself on the way out.
    size_t live = 0;
    for (const auto& link : links) {
        live += link.recipient.promote() != nullptr ? 1 : 0;
    }
    return live;
}

void waitForDeathNotifications() {
    DeathNotifier::instance().drain();
}

bool onDeathNotificationThread() {
    return DeathNotifier::instance().onThread();
}

}  // namespace hardware
}  // namespace android
