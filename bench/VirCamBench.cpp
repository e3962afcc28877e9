// Copyright (C) 2026 The libvircam Authors

// The per-frame path and the switch latency of libvircam, through its public
// surfaces, each measured next to the floor for the same work.
#include <benchmark/benchmark.h>

#include <android-base/properties.h>
#include <android/log.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <thread>
#include <vector>

#include "AllocationCounter.h"
#include "BenchPeers.h"
#include "RatioReporter.h"
#include "streamchange/VirCameraChannelForStreamChange.h"
#include "translator/VirCameraChannelForTranslator.h"

namespace vircam_bench {
namespace {

constexpr int32_t kCameraId = 0;
constexpr int32_t kStreams = 4;

// The library as one camera HAL process holds it, switched to an instant remote.
class Library {
public:
    static Library& Get() {
        static Library library;
        return library;
    }

    void RegisterUpTo(size_t count) {
        while (mHandles.size() < count) {
            native_handle_t* handle = native_handle_create(0, 1);
            handle->data[0] = static_cast<int>(mHandles.size());
            mHandles.push_back(handle);
            const uint64_t id = mHandles.size() - 1;
            translator->RegisterBuffer(kCameraId, id % kStreams, id, handle).isOk();
        }
    }

    // Command to its result 300, in microseconds. The result is sent just
    // before the service settles in its new mode, so a command that follows
    // at once may still be refused: such a refusal is retried, untimed.
    double SwitchOn() {
        while (true) {
            channel->registerVirtualChannelCallback("bench", "W_cam", remote).isOk();
            const uint64_t seen = devMgt->Count();
            const auto start = std::chrono::steady_clock::now();
            channel->switchOnVirtualCamera("bench", "cam", [](CameraStatus, uint32_t) {}).isOk();
            const int32_t result = devMgt->WaitAfter(seen);
            const double elapsed = MicrosSince(start);
            if (result == 300) {
                WaitUntil([this] { return TranslatorVirtual(); });
                return elapsed;
            }
            std::this_thread::yield();
        }
    }

    double SwitchOff() {
        while (true) {
            const uint64_t seen = devMgt->Count();
            const auto start = std::chrono::steady_clock::now();
            channel->switchOffVirtualCamera("bench", "cam", [](CameraStatus, uint32_t) {}).isOk();
            devMgt->WaitAfter(seen);
            const double elapsed = MicrosSince(start);
            if (!TranslatorVirtual()) {
                // The property returns to "0" once the service is physical again.
                WaitUntil([] {
                    return android::base::GetProperty("vendor.vorsk_vircam_info", "") == "0";
                });
                return elapsed;
            }
            std::this_thread::yield();
        }
    }

    // Capture request elements spread over the first `n` buffers.
    hidl_vec<vircam::VirImageBuffer> Request(size_t k, size_t n) const {
        hidl_vec<vircam::VirImageBuffer> request(k);
        for (size_t i = 0; i < k; ++i) {
            const uint64_t id = (i * (n / k) + n / (2 * k)) % n;
            request[i].frameNumber = 7;
            request[i].streamId = static_cast<int32_t>(id % kStreams);
            request[i].bufferId = id;
        }
        return request;
    }

    android::sp<vircam::IVirCameraTranslator> translator;
    std::vector<android::sp<vircam::IVirCameraTranslator>> moreTranslators;
    android::sp<vircam::IVirCameraChannel> channel;
    android::sp<ResultWaiter> devMgt = new ResultWaiter();
    android::sp<InstantRemote> remote;
    std::vector<android::sp<CountingPipeline>> pipelines;

private:
    Library()
        : translator(CreateVirtualCameraTranslator()), channel(CreateVirtualCameraStreamChange()) {
        remote = new InstantRemote(channel);
        pipelines.push_back(new CountingPipeline());
        translator->RegisterCameraTranslatorCallback(kCameraId, pipelines.back()).isOk();
        hidl_vec<vircam::VirStream> streams(1);
        streams[0].width = 1920;
        streams[0].height = 1080;
        streams[0].format = 34;
        translator->BackupPhyConfigStreams(kCameraId, streams).isOk();
        channel->registerCameraSwitchCallback(devMgt).isOk();
        SwitchOn();
    }

    bool TranslatorVirtual() {
        return translator->RunCommonCmdTranslator(1, "").withDefault(
                   CameraStatus::INTERNAL_ERROR) == CameraStatus::OK;
    }

    static double MicrosSince(std::chrono::steady_clock::time_point start) {
        return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
            .count();
    }

    template <typename Done>
    static void WaitUntil(Done done) {
        while (!done()) {
            std::this_thread::yield();
        }
    }

    std::vector<native_handle_t*> mHandles;
};

void BM_CaptureRequest(benchmark::State& state) {
    const auto k = static_cast<size_t>(state.range(0));
    const auto n = static_cast<size_t>(state.range(1));
    Library& library = Library::Get();
    library.RegisterUpTo(n);
    const hidl_vec<vircam::VirImageBuffer> request = library.Request(k, n);
    const uint64_t allocationsBefore = AllocationCount();
    for (auto _ : state) {
        CameraStatus status = library.translator->ProcessCaptureRequest(kCameraId, request);
        benchmark::DoNotOptimize(status);
    }
    state.counters["allocs"] =
        benchmark::Counter(static_cast<double>(AllocationCount() - allocationsBefore),
                           benchmark::Counter::kAvgIterations);
}

// The least the same work can cost: one copy of the request and one ordered
// lookup per element in a cache of n entries.
void BM_CaptureRequestFloor(benchmark::State& state) {
    const auto k = static_cast<size_t>(state.range(0));
    const auto n = static_cast<size_t>(state.range(1));
    std::map<std::pair<int32_t, uint64_t>, std::shared_ptr<const native_handle_t*>> cache;
    std::vector<native_handle_t*> handles;
    for (uint64_t id = 0; id < n; ++id) {
        handles.push_back(native_handle_create(0, 1));
        cache.emplace(std::make_pair(static_cast<int32_t>(id % kStreams), id),
                      std::make_shared<const native_handle_t*>(handles.back()));
    }
    const hidl_vec<vircam::VirImageBuffer> request = Library::Get().Request(k, n);
    for (auto _ : state) {
        hidl_vec<vircam::VirImageBuffer> copy = request;
        for (auto& element : copy) {
            auto it = cache.find({element.streamId, element.bufferId});
            if (it != cache.end()) {
                element.buffer = *it->second;
            }
        }
        benchmark::DoNotOptimize(copy.data());
    }
    for (auto* handle : handles) {
        native_handle_delete(handle);
    }
}

void CaptureArgs(benchmark::internal::Benchmark* b) {
    for (int64_t n : {16, 1000, 10000}) {
        for (int64_t k : {1, 4, 8}) {
            b->Args({k, n});
        }
    }
}
BENCHMARK(BM_CaptureRequest)->Apply(CaptureArgs);
BENCHMARK(BM_CaptureRequestFloor)->Apply(CaptureArgs);

void EnsurePipelines(size_t count) {
    Library& library = Library::Get();
    while (library.pipelines.size() < count) {
        auto channel = android::sp<vircam::IVirCameraTranslator>(CreateVirtualCameraTranslator());
        library.pipelines.push_back(new CountingPipeline());
        channel
            ->RegisterCameraTranslatorCallback(static_cast<int32_t>(library.pipelines.size() - 1),
                                               library.pipelines.back())
            .isOk();
        library.moreTranslators.push_back(channel);
    }
}

vircam::VirImageResult Image() {
    vircam::VirImageResult image{};
    image.frameNumber = 7;
    image.bufferId = 3;
    image.streamId = 1;
    return image;
}

void BM_ImageDelivery(benchmark::State& state) {
    const auto callbacks = static_cast<size_t>(state.range(0));
    EnsurePipelines(callbacks);
    // Delivery reaches every registered callback: keep exactly `callbacks`.
    if (Library::Get().pipelines.size() != callbacks) {
        state.SkipWithError("pipelines registered out of order");
        return;
    }
    const vircam::VirImageResult image = Image();
    Library& library = Library::Get();
    for (auto _ : state) {
        CameraStatus status = library.channel->onVirImageBufferDone(0, image);
        benchmark::DoNotOptimize(status);
    }
}

void BM_ImageDeliveryFloor(benchmark::State& state) {
    const auto callbacks = static_cast<size_t>(state.range(0));
    EnsurePipelines(callbacks);
    std::vector<android::sp<vircam::IVirCameraTranslatorCallback>> direct(
        Library::Get().pipelines.begin(), Library::Get().pipelines.begin() + callbacks);
    const vircam::VirImageResult image = Image();
    for (auto _ : state) {
        for (const auto& callback : direct) {
            CameraStatus status = callback->ProcessCaptureResult(image);
            benchmark::DoNotOptimize(status);
        }
    }
}
BENCHMARK(BM_ImageDelivery)->Arg(1)->Arg(2)->Arg(4);
BENCHMARK(BM_ImageDeliveryFloor)->Arg(1)->Arg(2)->Arg(4);

void BM_MetaRequest(benchmark::State& state) {
    Library& library = Library::Get();
    vircam::VirMetaRequest request{};
    request.frameNumber = 7;
    for (auto _ : state) {
        CameraStatus status = library.translator->ProcessMetaRequest(kCameraId, request);
        benchmark::DoNotOptimize(status);
    }
}
BENCHMARK(BM_MetaRequest);

double Percentile(std::vector<double> samples, double p) {
    std::sort(samples.begin(), samples.end());
    return samples[static_cast<size_t>(p * static_cast<double>(samples.size() - 1))];
}

// Command to result 300, with an instant remote.
void BM_SwitchCycle(benchmark::State& state) {
    Library& library = Library::Get();
    std::vector<double> onUs;
    std::vector<double> offUs;
    for (auto _ : state) {
        offUs.push_back(library.SwitchOff());
        onUs.push_back(library.SwitchOn());
    }
    state.counters["on_p50_us"] = Percentile(onUs, 0.50);
    state.counters["on_p99_us"] = Percentile(onUs, 0.99);
    state.counters["off_p50_us"] = Percentile(offUs, 0.50);
    state.counters["off_p99_us"] = Percentile(offUs, 0.99);
}
BENCHMARK(BM_SwitchCycle)->Iterations(250)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace vircam_bench

int main(int argc, char** argv) {
    // The library logs every capture request element at info; writing each
    // line to the host's stderr would measure the terminal, not the library.
    __android_log_set_minimum_priority(ANDROID_LOG_WARN);
    benchmark::Initialize(&argc, argv);
    vircam_bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
