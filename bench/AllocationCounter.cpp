// Copyright (C) 2026 The libvircam Authors

#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace vircam_bench {
namespace {
std::atomic<uint64_t> gAllocations{0};
}  // namespace

uint64_t AllocationCount() {
    return gAllocations.load(std::memory_order_relaxed);
}

}  // namespace vircam_bench

void* operator new(std::size_t size) {
    vircam_bench::gAllocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
