// Copyright (C) 2026 The libvircam Authors

// The lock annotations of android-base, for every header of the library.
// clang checks them (-Wthread-safety: scripts/analyze.sh on the host, the
// device build); GCC knows none of these attributes and would warn on each,
// so for GCC they expand to nothing.
#pragma once

#include <android-base/thread_annotations.h>

#if !defined(__clang__)
#undef THREAD_ANNOTATION_ATTRIBUTE__
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif
