#pragma once

// The one road from driver code to Windows. On Windows these are the published headers; on the
// host the embedded machine declares the same names with the same layouts. Driver code calls
// the W or A function by its name and writes wide literals as TEXT("..."), which are 16 bits
// wide in both homes.

#ifdef _WIN32
#include <windows.h>
// Needs windows.h before it.
#include <winspool.h>
// Need both.
#include <compstui.h>
#include <htmlhelp.h>
#include <prsht.h>
#include <shlobj.h>
#include <winddiui.h>
#else
#include "platform/embedded/api_types.h"
// The rest builds on the types.
#include "platform/embedded/api_driver_model.h"
#include "platform/embedded/api_gdi.h"
#include "platform/embedded/api_kernel.h"
#include "platform/embedded/api_property_sheets.h"
#include "platform/embedded/api_registry.h"
#include "platform/embedded/api_spooler.h"
#include "platform/embedded/api_user.h"
#endif

#include "platform/missing.h"
