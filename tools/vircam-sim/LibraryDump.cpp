// Copyright (C) 2026 The libvircam Authors

#include "LibraryDump.h"

#include <cutils/native_handle.h>

#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_sim {

namespace vircam = vendor::travik::hardware::camera::vircamera::V1_0;

namespace {

// The library writes straight to the descriptor, so what `out` has buffered
// goes first.
void Dump(android::hidl::base::V1_0::IBase& object, FILE* out) {
    fflush(out);
    native_handle_t* handle = native_handle_create(1, 0);
    handle->data[0] = fileno(out);
    object.debug(android::hardware::hidl_handle(handle), {}).isOk();
    native_handle_delete(handle);  // borrowed: the descriptor stays open
}

}  // namespace

std::string ChannelDumpText() {
    FILE* file = tmpfile();
    if (file == nullptr) {
        return "";
    }
    const android::sp<vircam::IVirCameraChannel> channel = CreateVirtualCameraStreamChange();
    Dump(*channel, file);
    std::string text;
    rewind(file);
    char chunk[4096];
    size_t got = 0;
    while ((got = fread(chunk, 1, sizeof(chunk), file)) > 0) {
        text.append(chunk, got);
    }
    fclose(file);
    return text;
}

void PrintLibraryDumps(FILE* out) {
    fprintf(out, "\nlshal debug IVirCameraChannel\n");
    const android::sp<vircam::IVirCameraChannel> channel = CreateVirtualCameraStreamChange();
    Dump(*channel, out);
    fprintf(out, "\nlshal debug IVirCameraTranslator\n");
    const android::sp<vircam::IVirCameraTranslator> translator = CreateVirtualCameraTranslator();
    Dump(*translator, out);
    fflush(out);
}

}  // namespace vircam_sim
