#pragma once

// The data of one fax job: the fax job file that driver and companion module share, the job
// files made from it at the start of a document, and the block of shared memory that carries
// their index to the document's end.

#include "platform/windows_api.h"

namespace ksfax {

// The shared profile. The profile service finds a bare name in the Windows folder.
inline constexpr WCHAR kFaxJobFile[] = TEXT("KSFAXJOB.INI");

inline constexpr WCHAR kDriverSection[] = TEXT("FAXDRIVER");
inline constexpr WCHAR kMaximumReceiversKey[] = TEXT("MAXRCVER");  // read; 50 to 999
inline constexpr WCHAR kCancelledKey[] = TEXT("CANCEL_PEV");       // written; "1" cancelled

inline constexpr WCHAR kDataSection[] = TEXT("FAXDATA");
inline constexpr WCHAR kFolderKey[] = TEXT("DIR");            // read; the fax data folder
inline constexpr WCHAR kSnapshotKey[] = TEXT("INIFILE");      // written; path of the snapshot
inline constexpr WCHAR kCoverCopyKey[] = TEXT("CVBMP");       // written; path of the copy
inline constexpr WCHAR kMemoCopyKey[] = TEXT("CVMEMO");       // written; path of the copy
inline constexpr WCHAR kDialReservationKey[] = TEXT("TEMP");  // written; long lists only
inline constexpr WCHAR kDialPatternKey[] = TEXT("DialFile");  // written; long lists only

inline constexpr WCHAR kCoverSection[] = TEXT("CVP_STYLE");
inline constexpr WCHAR kCoverSwitchKey[] = TEXT("IncBmpSW");     // read; non-zero: a bitmap
inline constexpr WCHAR kCoverFileKey[] = TEXT("IncBmpFile");     // read; its path
inline constexpr WCHAR kMemoSwitchKey[] = TEXT("COVERCOMMENT");  // read; non-zero: the memo

inline constexpr WCHAR kListSection[] = TEXT("DIALLIST");
inline constexpr WCHAR kReceiverCountKey[] = TEXT("Num");  // read; unsigned

inline constexpr WCHAR kMemoFile[] = TEXT("KSMEMO.TXT");  // in the fax data folder

// Receivers that the fax job file itself can hold; a longer list lies in Dial files.
inline constexpr UINT kShortListLimit = 100;

// Run once per document start, after the fax dialog, with the document's printer handle. Copies
// the cover bitmap and the memo to files unique to the job, renames the Dial files of a long
// list, copies the fax job file to the job's snapshot, and publishes the snapshot's path in
// shared memory. Nothing is reported: a part that fails is left out.
void PrepareFaxJobFiles(HANDLE printer);

// Run at the document's end: has the companion module make the cover page of the snapshot that
// was published for this printer handle, and removes the shared memory. Does nothing when none
// was published.
void FinishFaxJob(HANDLE printer);

}  // namespace ksfax
