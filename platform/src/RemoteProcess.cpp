// Copyright (C) 2026 The libvircam Authors

#include <hidl/HidlRemote.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <iterator>
#include <thread>

namespace android {
namespace hardware {

namespace {

// The runtime's death-notification threads: deliveries never run on the
// thread that killed the peer, and no runtime lock is held while they run.
// A few threads, as a device reads death notices on whichever binder thread
// is free: two processes' deaths can be handled at the same time.
class DeathNotifier {
public:
    static constexpr size_t kThreads = 3;

    // Never destroyed, like a device's runtime: a process that exits while
    // peers die still posts their notices.
    static DeathNotifier& instance() {
        static DeathNotifier* const notifier = new DeathNotifier();
        return *notifier;
    }

    void post(std::function<void()> delivery) {
        std::lock_guard<std::mutex> lock(mLock);
        mQueue.push_back(std::move(delivery));
        ++mPosted;
        mWake.notify_all();
    }

    // Every delivery posted so far, and every one those posted in turn
    // (a link made from a recipient), has run to its end.
    void drain() {
        std::unique_lock<std::mutex> lock(mLock);
        mWake.wait(lock, [&] { return mDelivered >= mPosted; });
    }

    bool onThread() const {
        for (const auto& thread : mThreads) {
            if (std::this_thread::get_id() == thread.get_id()) {
                return true;
            }
        }
        return false;
    }

private:
    DeathNotifier() {
        for (size_t i = 0; i < kThreads; ++i) {
            mThreads.emplace_back([this] { run(); });
        }
    }

    void run() {
        std::unique_lock<std::mutex> lock(mLock);
        while (true) {
            mWake.wait(lock, [&] { return !mQueue.empty(); });
            auto delivery = std::move(mQueue.front());
            mQueue.pop_front();
            lock.unlock();
            delivery();
            delivery = nullptr;
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
    std::vector<std::thread> mThreads;  // last: start once the rest is ready
};

std::atomic<size_t> gDefaultBinderThreads{6};

// A thread blocked in a call across processes. Calls made back into its
// process by the callee's chain are handed to it and run here.
struct Waiter {
    std::mutex lock;
    std::condition_variable wake;
    std::deque<std::function<void()>> nested;
    bool replied = false;
};

// One hop of a call chain: which process's thread waits, and where.
struct ChainLink {
    const RemoteProcess* process;
    std::shared_ptr<Waiter> waiter;
    std::shared_ptr<const ChainLink> parent;
};

thread_local RemoteProcess* tProcess = nullptr;
thread_local std::shared_ptr<const ChainLink> tChain;

const RemoteProcess* currentProcess() {
    return tProcess != nullptr ? tProcess : thisProcess().get();
}

// Runs a served call with the chain it belongs to, then tells its caller.
void runServed(const std::function<void()>& call, const std::shared_ptr<const ChainLink>& chain) {
    std::shared_ptr<const ChainLink> previous = std::move(tChain);
    tChain = chain;
    call();
    tChain = std::move(previous);
    std::lock_guard<std::mutex> lock(chain->waiter->lock);
    chain->waiter->replied = true;
    chain->waiter->wake.notify_all();
}

}  // namespace

// A process's binder pool: threads start when calls need them, up to the
// bound, and end after a while without work.
struct RemoteProcess::Pool : std::enable_shared_from_this<Pool> {
    static constexpr std::chrono::milliseconds kIdle{200};

    explicit Pool(RemoteProcess* owner) : owner(owner), bound(gDefaultBinderThreads.load()) {}

    void post(std::function<void()> job) {
        std::lock_guard<std::mutex> guard(lock);
        queue.push_back(std::move(job));
        // A woken thread counts as idle until it runs: calls posted in that
        // moment must not all count on it, or one waits behind the other's
        // call while the pool could start a thread for it.
        if (idle >= queue.size()) {
            wake.notify_one();
            return;
        }
        if (threads < bound) {
            ++threads;
            std::thread([self = shared_from_this()] { self->run(); }).detach();
            return;
        }
        ++waited;
    }

    void run() {
        tProcess = owner;
        std::unique_lock<std::mutex> guard(lock);
        while (!stopped) {
            if (queue.empty()) {
                ++idle;
                const bool woken =
                    wake.wait_for(guard, kIdle, [&] { return stopped || !queue.empty(); });
                --idle;
                if (!woken || stopped) {
                    break;
                }
            }
            auto job = std::move(queue.front());
            queue.pop_front();
            ++busy;
            peak = std::max(peak, busy);
            guard.unlock();
            job();
            job = nullptr;
            guard.lock();
            --busy;
        }
        --threads;
        tProcess = nullptr;
    }

    void stop() {
        std::lock_guard<std::mutex> guard(lock);
        stopped = true;
        wake.notify_all();
    }

    RemoteProcess* const owner;  // identity only: the pool may outlive it
    std::mutex lock;
    std::condition_variable wake;
    std::deque<std::function<void()>> queue;
    size_t bound;
    size_t threads = 0;
    size_t idle = 0;
    size_t busy = 0;
    size_t peak = 0;
    size_t waited = 0;
    bool stopped = false;
};

RemoteProcess::RemoteProcess() : mPool(std::make_shared<Pool>(this)) {}

RemoteProcess::~RemoteProcess() {
    mPool->stop();
}

RemoteProcess::ThreadScope::ThreadScope(RemoteProcess* process) : mPrevious(tProcess) {
    tProcess = process;
}

RemoteProcess::ThreadScope::~ThreadScope() {
    tProcess = mPrevious;
}

void RemoteProcess::serve(const std::function<void()>& call) {
    auto waiter = std::make_shared<Waiter>();
    auto chain = std::make_shared<const ChainLink>(ChainLink{currentProcess(), waiter, tChain});
    std::function<void()> job = [&call, chain] { runServed(call, chain); };
    bool nested = false;
    for (const ChainLink* link = tChain.get(); link != nullptr; link = link->parent.get()) {
        if (link->process == this) {
            std::lock_guard<std::mutex> lock(link->waiter->lock);
            link->waiter->nested.push_back(std::move(job));
            link->waiter->wake.notify_all();
            nested = true;
            break;
        }
    }
    if (!nested) {
        mPool->post(std::move(job));
    }
    // Waiting, this thread serves what the chain calls back into its process.
    std::unique_lock<std::mutex> lock(waiter->lock);
    while (true) {
        waiter->wake.wait(lock, [&] { return waiter->replied || !waiter->nested.empty(); });
        if (waiter->replied) {
            return;
        }
        auto inner = std::move(waiter->nested.front());
        waiter->nested.pop_front();
        lock.unlock();
        inner();
        inner = nullptr;
        lock.lock();
    }
}

void RemoteProcess::setBinderThreads(size_t threads) {
    std::lock_guard<std::mutex> lock(mPool->lock);
    mPool->bound = std::max<size_t>(threads, 1);
}

size_t RemoteProcess::binderThreads() const {
    std::lock_guard<std::mutex> lock(mPool->lock);
    return mPool->bound;
}

void RemoteProcess::setDefaultBinderThreads(size_t threads) {
    gDefaultBinderThreads = std::max<size_t>(threads, 1);
}

size_t RemoteProcess::peakBusyThreads() const {
    std::lock_guard<std::mutex> lock(mPool->lock);
    return mPool->peak;
}

size_t RemoteProcess::callsThatWaited() const {
    std::lock_guard<std::mutex> lock(mPool->lock);
    return mPool->waited;
}

void RemoteProcess::kill() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mDead) {
            return;
        }
        mDead = true;
        if (mLinks.empty()) {
            return;  // nobody here was linked: the death goes unnoticed
        }
        mNoticePending = true;
    }
    sp<RemoteProcess> self = this;
    DeathNotifier::instance().post([self] { self->deliverDeathNotice(); });
}

void RemoteProcess::deliverDeathNotice() {
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mNoticePending = false;
        mNoticeReceived = true;
        links.swap(mLinks);
    }
    // One thread tells this process's recipients, one after the other.
    for (auto& link : links) {
        sp<hidl_death_recipient> recipient = link.recipient.promote();
        if (recipient != nullptr) {
            recipient->serviceDied(link.cookie, link.who);
        }
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
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mNoticeReceived || recipient == nullptr) {
            return false;
        }
        // Like the binder driver, the runtime keeps only a weak reference.
        mLinks.push_back({proxy, recipient, cookie, who});
        // Dead but unnoticed: the driver reports the death at once, possibly
        // before the caller has stored its recipient anywhere.
        if (!mDead || mNoticePending) {
            return true;
        }
        mNoticePending = true;
    }
    sp<RemoteProcess> self = this;
    DeathNotifier::instance().post([self] { self->deliverDeathNotice(); });
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

const sp<RemoteProcess>& thisProcess() {
    // Never destroyed: pool threads may still be ending at exit.
    static const sp<RemoteProcess>* const process = new sp<RemoteProcess>(new RemoteProcess());
    return *process;
}

void waitForDeathNotifications() {
    DeathNotifier::instance().drain();
}

bool onDeathNotificationThread() {
    return DeathNotifier::instance().onThread();
}

size_t deathNotificationThreads() {
    return DeathNotifier::kThreads;
}

}  // namespace hardware
}  // namespace android
