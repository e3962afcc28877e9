// Host-only: peers in other processes. A RemoteProcess stands for the process
// that hosts one or more HIDL objects; the library reaches those objects
// through BpHw proxies, which fail every call once the process has died and
// can be told to fail a chosen call in transport. Deaths are delivered to the
// linked recipients once, on the runtime's own notification thread.
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

class RemoteProcess : public virtual RefBase {
public:
    // The process dies: later calls through its proxies fail as dead objects and
    // every recipient still linked is told, once, on the notification thread.
    void kill();
    bool isDead() const;

    // The next `times` calls of `method` through any proxy of this process fail
    // in transport (the peer stays alive).
    void failNextCalls(const std::string& method, int times = 1);

    // Used by the proxies.
    Status beginCall(const char* method);
    bool link(const sp<hidl_death_recipient>& recipient, uint64_t cookie,
              const wp<hidl::base::V1_0::IBase>& who);
    bool unlink(const sp<hidl_death_recipient>& recipient);
    size_t linkedRecipients() const;
    // Linked recipients that still exist: a recipient dropped without an
    // unlink leaves only a weak entry behind, which holds nothing.
    size_t liveRecipients() const;

private:
    struct Link {
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

// Shared part of every generated proxy: transport checks and death links.
template <typename I>
class BpHwRemote : public I {
public:
    BpHwRemote(const sp<I>& impl, const sp<RemoteProcess>& process)
        : mImpl(impl), mProcess(process) {}

    bool isRemote() const override { return true; }
    const sp<RemoteProcess>& process() const { return mProcess; }

    Return<void> interfaceChain(typename I::interfaceChain_cb cb) override {
        return transact("interfaceChain", [&] { return mImpl->interfaceChain(cb); });
    }
    Return<bool> linkToDeath(const sp<hidl_death_recipient>& recipient, uint64_t cookie) override {
        return mProcess->link(recipient, cookie, wp<hidl::base::V1_0::IBase>(this));
    }
    Return<bool> unlinkToDeath(const sp<hidl_death_recipient>& recipient) override {
        return mProcess->unlink(recipient);
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
