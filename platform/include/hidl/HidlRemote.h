// Copyright (C) 2026 The libvircam Authors

// Host-only: peers in other processes. A RemoteProcess stands for the process
// that hosts one or more HIDL objects; the library reaches those objects
// through host proxies (RemoteProxy), which fail every call once the process
// has died and can be told to fail a chosen call in transport. As on a
// device, a death link belongs to the proxy it was made on: only that proxy
// can unlink it, and it goes when that proxy goes. A death is delivered to
// the linked recipients once each, on one of the runtime's notification
// threads; the deaths of two processes may be delivered at the same time.
//
// Calls that cross processes run on the serving process's binder pool (at
// most binderThreads() at a time; a call waits while every thread is busy).
// A call made back into a process whose thread is waiting for a call further
// down the same chain runs on that waiting thread, as binder does.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace android {
namespace hardware {

// Every method may be called on any thread; each takes mLock (the pool's
// methods the pool's own lock) only for its own bookkeeping and never calls a
// recipient, a served call or a peer while holding it.
class RemoteProcess : public virtual RefBase {
public:
    RemoteProcess();
    ~RemoteProcess() override;

    // The process dies: later calls through its proxies fail as dead objects and
    // every recipient still linked is told, once, on a notification thread.
    // A process that nobody here was linked to dies unnoticed: a later link
    // still succeeds and brings the notice at once.
    void kill();
    bool isDead() const;

    // The next `times` calls of `method` through any proxy of this process fail
    // in transport (the peer stays alive).
    void failNextCalls(const std::string& method, int times = 1);

    // Used by the proxies; `proxy` is the proxy object the link is made on.
    Status beginCall(const char* method);
    bool link(const void* proxy, const sp<hidl_death_recipient>& recipient, uint64_t cookie,
              const wp<hidl::base::V1_0::IBase>& who);
    // Removes the newest link of `recipient` made on `proxy`.
    bool unlink(const void* proxy, const sp<hidl_death_recipient>& recipient);
    // The proxy is going away, and its links with it.
    void dropLinks(const void* proxy);

    // The caller's thread, which blocks until `call` has run for it: on the
    // waiting thread of a call further down the caller's chain into this
    // process, else on this process's binder pool. While it blocks, the
    // caller's thread runs what the chain calls back into its own process.
    void serve(const std::function<void()>& call);

    // Any thread. The pool's bound; the default is setDefaultBinderThreads()'s
    // at the time the process was made.
    void setBinderThreads(size_t threads);
    size_t binderThreads() const;
    static void setDefaultBinderThreads(size_t threads);
    // The most pool threads that served calls at one time, and how many calls
    // had to wait for a free thread, since the process was made.
    size_t peakBusyThreads() const;
    size_t callsThatWaited() const;

    // The calling thread belongs to `process` until the scope ends: a thread a
    // simulated peer starts for itself, so that a call back into it while this
    // thread waits runs here.
    class ThreadScope {
    public:
        explicit ThreadScope(RemoteProcess* process);
        ~ThreadScope();
        ThreadScope(const ThreadScope&) = delete;
        ThreadScope& operator=(const ThreadScope&) = delete;

    private:
        RemoteProcess* mPrevious;
    };

    size_t linkedRecipients() const;
    // Linked recipients that still exist: a recipient dropped without an
    // unlink leaves only a weak entry behind, which holds nothing.
    size_t liveRecipients() const;

private:
    struct Link {
        const void* proxy;
        wp<hidl_death_recipient> recipient;
        uint64_t cookie;
        wp<hidl::base::V1_0::IBase> who;
    };

    // Notification thread: the notice reaches this process, and every link
    // made so far is told.
    void deliverDeathNotice();

    mutable std::mutex mLock;
    bool mDead = false;
    // The notice has been posted but not read yet: links made meanwhile are
    // told with it.
    bool mNoticePending = false;
    bool mNoticeReceived = false;
    std::vector<Link> mLinks;
    std::map<std::string, int> mFailures;

    struct Pool;
    std::shared_ptr<Pool> mPool;
};

// The process the library lives in (the camera HAL's): host proxies of the
// library's own services serve their calls on its pool. Threads that belong to
// no simulated peer belong to it.
const sp<RemoteProcess>& thisProcess();

// Blocks until every death notification queued so far has been delivered.
void waitForDeathNotifications();

// Whether the calling thread is one of the runtime's death-notification threads.
bool onDeathNotificationThread();
size_t deathNotificationThreads();

namespace details {

template <typename R>
struct is_return : std::false_type {};
template <typename T>
struct is_return<Return<T>> : std::true_type {};

// What a call's arguments become on the other side: a copy that is freed
// (its handles' descriptors closed) when the callee returns. A hidl_handle
// copy clones its native handle.
template <typename T>
T copyOf(const T& value) {
    return T(value);
}

// The results a callee passes to a _cb: copied when the callee calls it and
// handed to the caller's own callback after the callee has returned, valid
// only inside that callback.
template <typename... Results>
class ReplyOf {
public:
    std::function<void(const Results&...)> sink() {
        return [this](const Results&... results) { mValues.reset(new Values(results...)); };
    }
    template <typename Callback>
    void deliver(const Callback& callback) {
        if (mValues != nullptr) {
            std::unique_ptr<Values> values = std::move(mValues);
            std::apply(callback, *values);
        }
    }

private:
    using Values = std::tuple<Results...>;
    std::unique_ptr<Values> mValues;
};

// What every host proxy knows, whatever its interface: the object it calls
// into and the process that object lives in. A remote castFrom makes a new
// proxy of the child type from these.
class RemoteProxyBase {
public:
    virtual ~RemoteProxyBase() = default;
    virtual sp<hidl::base::V1_0::IBase> remoteObject() const = 0;
    virtual const sp<RemoteProcess>& process() const = 0;
};

// The host proxy class of interface I, named by the proxy's own header.
template <typename I>
struct HostProxyOf {
    using type = void;
};

// Shared part of every host proxy: transport checks and death links. Called
// on the caller's thread, as a binder proxy is; the peer's method runs there
// too, with no lock of the proxy held.
template <typename I>
class RemoteProxy : public I, public RemoteProxyBase {
protected:
    // The names a proxy's method declarations use, as in a generated header.
    using hidl_string = ::android::hardware::hidl_string;
    using hidl_handle = ::android::hardware::hidl_handle;
    template <typename T>
    using hidl_vec = ::android::hardware::hidl_vec<T>;
    template <typename T>
    using Return = ::android::hardware::Return<T>;
    template <typename T>
    static T copyOf(const T& value) {
        return details::copyOf(value);
    }

public:
    RemoteProxy(const sp<I>& impl, const sp<RemoteProcess>& process)
        : mImpl(impl), mProcess(process) {}
    ~RemoteProxy() override { mProcess->dropLinks(this); }

    bool isRemote() const override { return true; }
    sp<hidl::base::V1_0::IBase> remoteObject() const override { return mImpl; }
    const sp<RemoteProcess>& process() const override { return mProcess; }

    Return<void> interfaceChain(typename I::interfaceChain_cb cb) override {
        return transact("interfaceChain", [&] { return mImpl->interfaceChain(cb); });
    }
    Return<void> interfaceDescriptor(typename I::interfaceDescriptor_cb cb) override {
        return transact("interfaceDescriptor", [&] { return mImpl->interfaceDescriptor(cb); });
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        return mProcess->link(this, recipient, cookie, wp<hidl::base::V1_0::IBase>(this));
    }
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        return mProcess->unlink(this, recipient);
    }
    Return<void> ping() override {
        return transact("ping", [&] { return mImpl->ping(); });
    }
    // lshal reaches a service from its own process: the service writes to a
    // duplicate of the descriptor, closed when the call returns.
    Return<void> debug(const hidl_handle& fd, const hidl_vec<hidl_string>& options) override {
        return transactAcross("debug", [&] { return mImpl->debug(copyOf(fd), copyOf(options)); });
    }

protected:
    // A call inside the peer's process space in all but name: on the caller's
    // thread, arguments shared (the pipeline reaches the translator so).
    template <typename Fn>
    auto transact(const char* method, Fn&& fn) -> decltype(fn()) {
        using R = decltype(fn());
        static_assert(is_return<R>::value, "a HIDL call returns a Return");
        Status status = mProcess->beginCall(method);
        if (!status.isOk()) {
            return R(status);
        }
        R reply = fn();
        // A peer that dies while it handles the call never sends its reply.
        if (mProcess->isDead()) {
            reply.isOk();
            return R(Status::fromStatusT(DEAD_OBJECT));
        }
        return reply;
    }

    // A call that crosses processes: served on the peer's binder pool (or on
    // a thread of its waiting for this chain). `fn` makes the callee's copies
    // of the arguments itself, so that they die when the callee returns.
    template <typename Fn>
    auto transactAcross(const char* method, Fn&& fn) -> decltype(fn()) {
        using R = decltype(fn());
        static_assert(is_return<R>::value, "a HIDL call returns a Return");
        Status status = mProcess->beginCall(method);
        if (!status.isOk()) {
            return R(status);
        }
        std::unique_ptr<R> reply;
        mProcess->serve([&] { reply = std::make_unique<R>(fn()); });
        if (mProcess->isDead()) {
            reply->isOk();
            return R(Status::fromStatusT(DEAD_OBJECT));
        }
        return std::move(*reply);
    }

    sp<I> mImpl;
    sp<RemoteProcess> mProcess;
};

}  // namespace details
}  // namespace hardware
}  // namespace android
