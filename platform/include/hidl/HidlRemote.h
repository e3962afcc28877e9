// Host-only: peers in other processes. A RemoteProcess stands for the process
// that hosts one or more HIDL objects; the library reaches those objects
// through host proxies (RemoteProxy), which fail every call once the process
// has died and can be told to fail a chosen call in transport. As on a
// device, a death link belongs to the proxy it was made on: only that proxy
// can unlink it, and it goes when that proxy goes. Deaths are delivered to
// the linked recipients once, on the runtime's own notification thread.
#pragma once

#include <android/hidl/base/1.0/IBase.h>
#include <hidl/HidlSupport.h>
#include <hidl/Status.h>

#include <map>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace android {
namespace hardware {

// Every method may be called on any thread; each takes mLock only for its own
// bookkeeping and never calls a recipient or a peer while holding it.
class RemoteProcess : public virtual RefBase {
public:
    // The process dies: later calls through its proxies fail as dead objects and
    // every recipient still linked is told, once, on the notification thread.
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

    mutable std::mutex mLock;
    bool mDead = false;
    std::vector<Link> mLinks;
    std::map<std::string, int> mFailures;
};

// Blocks until every death notification queued so far has been delivered.
void waitForDeathNotifications();

// Whether the calling thread is the runtime's death-notification thread.
bool onDeathNotificationThread();

namespace details {

template <typename R>
struct is_return : std::false_type {};
template <typename T>
struct is_return<Return<T>> : std::true_type {};

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
    template <typename T>
    using hidl_vec = ::android::hardware::hidl_vec<T>;
    template <typename T>
    using Return = ::android::hardware::Return<T>;

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

protected:
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

    sp<I> mImpl;
    sp<RemoteProcess> mProcess;
};

}  // namespace details
}  // namespace hardware
}  // namespace android
