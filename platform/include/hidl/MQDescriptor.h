// Copyright (C) 2026 The libvircam Authors

// Host stand-in: every generated header includes this one, but nothing of
// this package carries a fast message queue, so it declares nothing more.
#pragma once

#include <hidl/HidlSupport.h>
