// Copyright (C) 2026 The libvircam Authors

// One logger per log tag. Every line of the library goes through one of
// these, so the tag of a class never drifts and tests can capture lines by tag.
#pragma once

#include <android/log.h>

namespace pelcamera {

class VirCamLogger final {
public:
    explicit constexpr VirCamLogger(const char* tag) : mTag(tag) {}

    // Any thread; a logger holds nothing but its tag, so it needs no lock.
    const char* Tag() const { return mTag; }
    void D(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void I(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void W(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    void E(const char* format, ...) const __attribute__((format(printf, 2, 3)));

private:
    const char* mTag;
};

inline constexpr VirCamLogger kStreamChangeLog{"VirCam_StreamChange"};
inline constexpr VirCamLogger kTranslatorLog{"VirCam_Translator"};
inline constexpr VirCamLogger kChannelTranslatorLog{"VirCam_CTranslator"};
inline constexpr VirCamLogger kTranslatorCbMgrLog{"VirCam_TransaltorCBMgr"};
inline constexpr VirCamLogger kRegisterServiceLog{"VirCam_RegisterService"};

}  // namespace pelcamera

// The first "%s" of every format is the name of the function that logs.
#define VIRCAM_LOGD(log, fmt, ...) (log).D(fmt, __func__, ##__VA_ARGS__)
#define VIRCAM_LOGI(log, fmt, ...) (log).I(fmt, __func__, ##__VA_ARGS__)
#define VIRCAM_LOGW(log, fmt, ...) (log).W(fmt, __func__, ##__VA_ARGS__)
#define VIRCAM_LOGE(log, fmt, ...) (log).E(fmt, __func__, ##__VA_ARGS__)
