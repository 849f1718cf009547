// The entries of vorn.h linked into this program, as a minikelto plug-in:
// test, fuzz and sweep programs call them by name without dlopen, so they can
// read the library's memory gateway.
#pragma once

#include "minikelto/host.hpp"

const minikelto::plugin& linked_plugin();
