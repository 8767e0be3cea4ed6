#ifndef KSFAX_COMPANION_H
#define KSFAX_COMPANION_H

// What the driver KSFAXUI.DLL and its companion module KSFAXDLG.DLL exchange: the companion's two
// operations and their record, the shared fax job file, the job files and the shared-memory block.
// For C11 and C++, with nothing but the language's own headers, so that both modules are built
// from this one file. docs/companion.md tells the whole story.
//
// Names are narrow literals: put L"" before one for a wide text, as in L"" KSFAX_JOB_FILE.
// "Read" and "written" are the driver's side; what it reads the companion writes before DialDlg
// returns, except where an administrator does.

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

// ---- The module and its operations ----
// Found by its bare name through the ordinary library search. Loaded afresh for each call and
// released right after it.
#define KSFAX_COMPANION_MODULE "KSFAXDLG.DLL"
#define KSFAX_DIAL_OPERATION "DialDlg"   // runs the fax dialog; 0 cancels the job
#define KSFAX_COVER_OPERATION "MakeBMP"  // makes the cover page; its result means nothing
#define KSFAX_RECORD_VERSION 2           // of the record of both operations
#define KSFAX_PATH_ROOM 260              // characters of a path, with the zero behind it

// The one argument of both operations. The driver's, and only for the duration of the call. What
// a call does not fill is zero.
#pragma pack(push, 1)
typedef struct DialModuleRecord {
    uint16_t recordSize;                 //   0  266
    uint8_t version;                     //   2  2
    char snapshotPath[KSFAX_PATH_ROOM];  //   3  for MakeBMP: the snapshot, in the ANSI code page
    uint8_t reserved;                    // 263  0
    uint16_t maximumReceivers;           // 264  for DialDlg: 50 to 999
} DialModuleRecord;
#pragma pack(pop)
static_assert(sizeof(DialModuleRecord) == 266, "both modules are built with this layout");
static_assert(offsetof(DialModuleRecord, recordSize) == 0, "");
static_assert(offsetof(DialModuleRecord, version) == 2, "");
static_assert(offsetof(DialModuleRecord, snapshotPath) == 3, "");
static_assert(offsetof(DialModuleRecord, reserved) == 263, "");
static_assert(offsetof(DialModuleRecord, maximumReceivers) == 264, "");

// 64-bit Windows has one calling convention.
typedef intptr_t (*DialModuleOperation)(DialModuleRecord* record);

// ---- The fax job file: one profile in the Windows folder ----
#define KSFAX_JOB_FILE "KSFAXJOB.INI"

#define KSFAX_DRIVER_SECTION "FAXDRIVER"
#define KSFAX_MAXIMUM_KEY "MAXRCVER"      // read; an administrator's, in the limits below
#define KSFAX_CANCELLED_KEY "CANCEL_PEV"  // written; "1" cancelled, "0" confirmed

#define KSFAX_DATA_SECTION "FAXDATA"
#define KSFAX_FOLDER_KEY "DIR"             // read; the fax data folder
#define KSFAX_SNAPSHOT_KEY "INIFILE"       // written; empty, then the snapshot's path
#define KSFAX_COVER_COPY_KEY "CVBMP"       // written or deleted; path of the job's copy
#define KSFAX_MEMO_COPY_KEY "CVMEMO"       // written or deleted; path of the job's copy
#define KSFAX_RESERVATION_KEY "TEMP"       // written or deleted; what a long list is named after
#define KSFAX_DIAL_PATTERN_KEY "DialFile"  // written or deleted; where its dial files are now

#define KSFAX_COVER_SECTION "CVP_STYLE"
#define KSFAX_COVER_SWITCH_KEY "IncBmpSW"     // read; non-zero: a cover bitmap
#define KSFAX_COVER_FILE_KEY "IncBmpFile"     // read; its path
#define KSFAX_MEMO_SWITCH_KEY "COVERCOMMENT"  // read; non-zero: the memo

#define KSFAX_LIST_SECTION "DIALLIST"
#define KSFAX_RECEIVERS_KEY "Num"  // read; how many receivers

// ---- Limits ----
#define KSFAX_LEAST_MAXIMUM 50     // of receivers; holds for a number outside of the limits too
#define KSFAX_LARGEST_MAXIMUM 999  // of receivers
#define KSFAX_SHORT_LIST 100       // receivers; a list of more lies in dial files

// ---- Files in the fax data folder ----
#define KSFAX_MEMO_FILE "KSMEMO.TXT"        // the companion's memo
#define KSFAX_DIAL_FILE "Dial%02u.ini"      // the companion's, from 1 on, for a long list
#define KSFAX_FILE_PREFIX "Kes"             // of the files that the driver reserves
#define KSFAX_RESERVED_END ".tmp"           // of the same
#define KSFAX_RENAMED_DIAL_END "_%02d.ini"  // in place of that end, for a renamed dial file

// ---- The shared-memory block, from a document's start to its end ----
// As long as its path needs: 2 * n + 10 bytes for n characters.
#define KSFAX_BLOCK_NAME "%xCVP"  // with the low 32 bits of the printer handle
typedef struct PublishedJob {
    uint64_t creator;                        //   0  handle that keeps the block, in its process
    uint16_t snapshotPath[KSFAX_PATH_ROOM];  //   8  in UTF-16 with its zero
} PublishedJob;
static_assert(sizeof(PublishedJob) == 528, "the longest block");
static_assert(offsetof(PublishedJob, creator) == 0, "");
static_assert(offsetof(PublishedJob, snapshotPath) == 8, "");

#endif
