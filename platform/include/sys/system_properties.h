// Copyright (C) 2026 The libvircam Authors

// The two limits of bionic's property header that libcutils' properties.h
// needs; the host has no bionic.
#pragma once

#define PROP_NAME_MAX 32
#define PROP_VALUE_MAX 92
