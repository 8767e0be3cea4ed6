#pragma once

// The kernel services that the driver calls: memory, files, file mapping, profiles, modules,
// critical sections, text. Each behaves as published in what the driver relies on; where one
// differs, the line above it says so. Every function with a result can be told to fail through
// Machine::faults, under its own name.

#include "platform/embedded/api_types.h"

// ---- Last error ----
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD NO_ERROR = 0;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
constexpr DWORD ERROR_READ_FAULT = 30;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_INVALID_ADDRESS = 487;
constexpr DWORD ERROR_FILE_INVALID = 1006;
constexpr DWORD ERROR_USER_MAPPED_FILE = 1224;

DWORD GetLastError();
void SetLastError(DWORD code);

// ---- Global memory ----
constexpr UINT GMEM_FIXED = 0x0000;
constexpr UINT GMEM_MOVEABLE = 0x0002;
constexpr UINT GMEM_ZEROINIT = 0x0040;

HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes);
// Null when freed.
HGLOBAL GlobalFree(HGLOBAL memory);
SIZE_T GlobalSize(HGLOBAL memory);
// Nothing moves here: a block may be locked at any time, and locks are not counted.
LPVOID GlobalLock(HGLOBAL memory);
// FALSE with NO_ERROR, as for the last lock.
BOOL GlobalUnlock(HGLOBAL memory);

// Local memory, counted with the global blocks. Flags LPTR alone.
constexpr UINT LPTR = 0x0040;
HLOCAL LocalAlloc(UINT flags, SIZE_T bytes);
// Null when freed.
HLOCAL LocalFree(HLOCAL memory);

// ---- Private heaps ----
constexpr DWORD HEAP_ZERO_MEMORY = 0x00000008;

// Growable (`maximumBytes` 0), serialised (`options` 0).
HANDLE HeapCreate(DWORD options, SIZE_T initialBytes, SIZE_T maximumBytes);
// Null when memory runs out; sets no last error.
LPVOID HeapAlloc(HANDLE heap, DWORD flags, SIZE_T bytes);
// Frees everything that was allocated from it.
BOOL HeapDestroy(HANDLE heap);

// ---- Files ----
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<LONG_PTR>(-1));
constexpr DWORD GENERIC_READ = 0x80000000;
constexpr DWORD GENERIC_WRITE = 0x40000000;
constexpr DWORD FILE_SHARE_READ = 0x00000001;
constexpr DWORD FILE_SHARE_WRITE = 0x00000002;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x00000001;
constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x00000002;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x00000080;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
constexpr DWORD INVALID_FILE_SIZE = 0xFFFFFFFF;

struct SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
};
struct OVERLAPPED;

// Security and template handle must be null; dispositions CREATE_ALWAYS and OPEN_EXISTING;
// attributes FILE_ATTRIBUTE_NORMAL alone, and a hidden file can be overwritten.
HANDLE CreateFileW(LPCWSTR path, DWORD access, DWORD sharing, SECURITY_ATTRIBUTES* security,
                   DWORD disposition, DWORD attributes, HANDLE templateFile);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD bytes, DWORD* bytesRead, OVERLAPPED* overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD bytes, DWORD* bytesWritten,
               OVERLAPPED* overlapped);
DWORD GetFileSize(HANDLE file, DWORD* sizeHigh);
BOOL CloseHandle(HANDLE handle);
// `failIfExists` FALSE. The copy takes the attributes of its source, and the time of the copying.
BOOL CopyFileW(LPCWSTR source, LPCWSTR target, BOOL failIfExists);
// From one host file system to another it fails with ERROR_NOT_SAME_DEVICE.
BOOL MoveFileW(LPCWSTR source, LPCWSTR target);
// Normal, read-only and hidden.
BOOL SetFileAttributesW(LPCWSTR path, DWORD attributes);
// Reserves a new file: <folder>\<first three prefix characters><hexadecimal>.tmp. `unique` 0;
// `name` holds MAX_PATH characters.
UINT GetTempFileNameW(LPCWSTR folder, LPCWSTR prefix, UINT unique, LPWSTR name);
UINT GetWindowsDirectoryW(LPWSTR path, UINT characters);
UINT GetWindowsDirectoryA(LPSTR path, UINT characters);
// The new folder takes the attributes of the folder `likeThis`. Default security alone.
BOOL CreateDirectoryExW(LPCWSTR likeThis, LPCWSTR path, SECURITY_ATTRIBUTES* security);

// The user's own folders, which are there: C:\Users\<user>\Documents (CSIDL_PERSONAL) and
// C:\Users\<user>\AppData\Roaming (CSIDL_APPDATA). Owner, token and flags 0. `path` holds
// MAX_PATH characters; E_FAIL for a path that does not fit.
constexpr int CSIDL_PERSONAL = 0x0005;
constexpr int CSIDL_APPDATA = 0x001A;
constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
HRESULT SHGetFolderPathW(HWND owner, int folder, HANDLE token, DWORD flags, LPWSTR path);
HRESULT SHGetFolderPathA(HWND owner, int folder, HANDLE token, DWORD flags, LPSTR path);

// ---- File mapping and named shared memory ----
constexpr DWORD PAGE_READONLY = 0x02;
constexpr DWORD PAGE_READWRITE = 0x04;
constexpr DWORD FILE_MAP_READ = 0x0004;
constexpr DWORD FILE_MAP_ALL_ACCESS = 0x000F001F;
constexpr DWORD SEC_RESERVE = 0x04000000;
constexpr DWORD MEM_COMMIT = 0x1000;
constexpr DWORD MEM_RESERVE = 0x2000;

// A file whole and for reading, or shared memory for reading and writing, at most 1 GB. An existing
// name gives a new handle of the existing block and ERROR_ALREADY_EXISTS, whatever the size asked
// for. No name in a namespace such as Local\ is known. A file is read here: what others write to it
// later is not seen. With SEC_RESERVE the pages of shared memory are reserved and stay so: touching
// them stops the program.
HANDLE CreateFileMappingW(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection,
                          DWORD sizeHigh, DWORD sizeLow, LPCWSTR name);
// FILE_MAP_ALL_ACCESS, not inherited.
HANDLE OpenFileMappingW(DWORD access, BOOL inherit, LPCWSTR name);
// FILE_MAP_READ or FILE_MAP_ALL_ACCESS, offset 0. A view is a whole number of 4096-byte pages, zero
// past the end of the block or the file.
LPVOID MapViewOfFile(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow, SIZE_T bytes);
BOOL UnmapViewOfFile(LPCVOID view);

struct MEMORY_BASIC_INFORMATION {
    PVOID BaseAddress;
    PVOID AllocationBase;
    DWORD AllocationProtect;
    SIZE_T RegionSize;
    DWORD State;
    DWORD Protect;
    DWORD Type;
};
// For the first address of a view alone; BaseAddress, AllocationBase, RegionSize and State are
// filled.
SIZE_T VirtualQuery(LPCVOID address, MEMORY_BASIC_INFORMATION* information, SIZE_T bytes);

// ---- Profiles (INI files) ----
// A bare file name lies in the Windows folder. Files are text of the ANSI code page.

// Section and key must be given, for names are not listed.
DWORD GetPrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR fallback, LPWSTR value,
                               DWORD characters, LPCWSTR file);
// Decimal digits alone.
UINT GetPrivateProfileIntW(LPCWSTR section, LPCWSTR key, INT fallback, LPCWSTR file);
BOOL WritePrivateProfileStringW(LPCWSTR section, LPCWSTR key, LPCWSTR value, LPCWSTR file);

// ---- Modules ----
HMODULE LoadLibraryW(LPCWSTR name);
HMODULE LoadLibraryA(LPCSTR name);
BOOL FreeLibrary(HMODULE module);
// By name, or by an ordinal in place of one.
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
DWORD GetModuleFileNameW(HMODULE module, LPWSTR path, DWORD characters);
extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;
constexpr DWORD DLL_THREAD_ATTACH = 2;
constexpr DWORD DLL_THREAD_DETACH = 3;

// ---- Critical sections ----
// As large as the published record; the machine keeps its own lock behind `DebugInfo`.
struct CRITICAL_SECTION {
    PVOID DebugInfo;
    LONG LockCount;
    LONG RecursionCount;
    HANDLE OwningThread;
    HANDLE LockSemaphore;
    ULONG_PTR SpinCount;
};
void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);

// ---- Locale ----
constexpr LCID LOCALE_USER_DEFAULT = 0x0400;
constexpr LCTYPE LOCALE_ICOUNTRY = 5;

// LOCALE_ICOUNTRY of LOCALE_USER_DEFAULT. Characters with the terminator; with `characters` 0 how
// many are needed. 0 with ERROR_INSUFFICIENT_BUFFER when they do not fit.
int GetLocaleInfoW(LCID locale, LCTYPE type, LPWSTR text, int characters);

// ---- Names ----
// *characters takes the room and gives the length without the terminator; with too little room
// FALSE with ERROR_BUFFER_OVERFLOW, and the room needed with the terminator.
BOOL GetComputerNameA(LPSTR name, DWORD* characters);

// ---- Text ----
// The comparisons fold letter case one character to one and compare numbers, so equality is as
// published and the order is not a dictionary's.
constexpr UINT CP_ACP = 0;
UINT GetACP();
// CP_ACP, flags 0, a counted text, no default of the caller's. A character that the code page lacks
// becomes '?': there is no best fit.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR source, int sourceCharacters,
                        LPSTR target, int targetBytes, LPCSTR unmappable, BOOL* usedUnmappable);
int lstrlenW(LPCWSTR text);
int lstrcmpiW(LPCWSTR left, LPCWSTR right);
int lstrcmpiA(LPCSTR left, LPCSTR right);
