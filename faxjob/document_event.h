#pragma once

// The document events: the graphics engine calls DrvDocumentEvent in the printing application's
// process, on the thread that drives the device context. At the start of a document the fax
// dialog of the companion module runs and its choices become a self-contained set of job files;
// at the end the companion module makes the cover page from them. The driver never fails a
// document itself: a cancelled dialog is recorded in the fax job file, for those who process
// the spooled job.

#include <cstdint>

#include "platform/windows_api.h"

namespace ksfax {

// The companion module, found by its bare name through the ordinary library search. It is loaded
// afresh for each call of an operation and released right after it.
inline constexpr WCHAR kDialModuleName[] = TEXT("KSFAXDLG.DLL");
inline constexpr char kDialOperation[] = "DialDlg";
inline constexpr char kCoverOperation[] = "MakeBMP";

// The one argument of both operations of the companion module, which was built with this layout.
// It lives for the duration of the call. Fields that a call does not fill are zero.
#pragma pack(push, 1)
struct DialModuleRecord {
    uint16_t recordSize = 266;      //   0
    uint8_t version = 2;            //   2
    char snapshotPath[260] = {};    //   3  for MakeBMP, in the ANSI code page, with terminator
    uint8_t reserved = 0;           // 263
    uint16_t maximumReceivers = 0;  // 264  for DialDlg, 50 to 999
};
#pragma pack(pop)
static_assert(sizeof(DialModuleRecord) == 266);
static_assert(offsetof(DialModuleRecord, version) == 2);
static_assert(offsetof(DialModuleRecord, snapshotPath) == 3);
static_assert(offsetof(DialModuleRecord, maximumReceivers) == 264);

// `DialDlg` runs the fax dialog modally and returns non-zero to go on, 0 when the job is
// cancelled; `MakeBMP` makes the cover page and its result means nothing.
using DialModuleOperation = INT_PTR(WINAPI*)(DialModuleRecord*);

// Loads the companion module, calls its `operation` with `record` and releases the module.
// Gives the operation's result, or 0 when the module cannot be loaded (silently) or lacks the
// operation (after a message box with the last-error number).
INT_PTR CallDialModule(LPCSTR operation, DialModuleRecord& record);

}  // namespace ksfax
