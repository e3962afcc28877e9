// Copyright (C) 2026 The libvircam Authors

// A fake peer in a process of its own: the library reaches it only through a
// host proxy, so the test can kill the process or fail one of its calls.
#pragma once

#include <hidl/HidlRemote.h>

namespace vircam_test {

template <typename Fake, typename Proxy>
struct RemotePeer {
    template <typename... Args>
    explicit RemotePeer(Args&&... args)
        : fake(new Fake(std::forward<Args>(args)...)),
          process(new android::hardware::RemoteProcess()),
          proxy(new Proxy(fake, process)) {}

    android::sp<Fake> fake;
    android::sp<android::hardware::RemoteProcess> process;
    android::sp<Proxy> proxy;
};

}  // namespace vircam_test
