#pragma once

// A companion module KSFAXDLG.DLL for the tests: no dialog, but the same traffic. What it "asks
// the user" stands in the fax job file's section "COMPANION", and each call leaves in the fax
// data folder what it was given. Its two operations are sources of their own, so that a module
// without one of them is simply linked without it.

#include "platform/windows_api.h"

namespace companion {

inline constexpr WCHAR kFaxJobFile[] = TEXT("KSFAXJOB.INI");
inline constexpr DWORD kRecordBytes = 266;

// Keys of the section "COMPANION".
inline constexpr WCHAR kSection[] = TEXT("COMPANION");
inline constexpr WCHAR kReceivers[] = TEXT("Receivers");  // how many; 0 cancels the job
inline constexpr WCHAR kCover[] = TEXT("Cover");          // path of a cover bitmap; none: no cover

// Files in the fax data folder.
inline constexpr WCHAR kDialRecord[] = TEXT("DialDlg.bin");   // the record that DialDlg got
inline constexpr WCHAR kDialProfile[] = TEXT("DialDlg.ini");  // the fax job file as it then was
inline constexpr WCHAR kCoverRecord[] = TEXT("MakeBMP.bin");  // the record that MakeBMP got
inline constexpr char kMemo[] = "See you on Friday.\r\n";     // content of KSMEMO.TXT
inline constexpr unsigned kReceiversPerFile = 100;

// Writes `size` bytes to `file` in the fax data folder, over what is there.
void Leave(const WCHAR* file, const void* bytes, DWORD size);

}  // namespace companion
