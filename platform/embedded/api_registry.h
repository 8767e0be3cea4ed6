#pragma once

// The registry, and the name of the user whom it is for. The registry calls return the error code
// itself.

#include "platform/embedded/api_types.h"

struct SECURITY_ATTRIBUTES;

using REGSAM = DWORD;
constexpr REGSAM KEY_QUERY_VALUE = 0x00000001;
constexpr REGSAM KEY_SET_VALUE = 0x00000002;
constexpr REGSAM KEY_READ = 0x00020019;
constexpr REGSAM KEY_ALL_ACCESS = 0x000F003F;
constexpr DWORD ERROR_BAD_PATHNAME = 161;

// "Software\\Classes" of the local machine; for reading.
inline const HKEY HKEY_CLASSES_ROOT =
    reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000000)));
inline const HKEY HKEY_CURRENT_USER =
    reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000001)));
inline const HKEY HKEY_LOCAL_MACHINE =
    reinterpret_cast<HKEY>(static_cast<LONG_PTR>(static_cast<LONG>(0x80000002)));

// Key names are found without regard to letter case, and may hold several levels. Options 0.
LSTATUS RegOpenKeyExW(HKEY key, LPCWSTR subkey, DWORD options, REGSAM access, HKEY* opened);
LSTATUS RegOpenKeyExA(HKEY key, LPCSTR subkey, DWORD options, REGSAM access, HKEY* opened);
// Opens the key when it is there, and makes it and those above it when not; the class is kept with
// a new key. Default security alone, and `disposition` null.
LSTATUS RegCreateKeyExW(HKEY key, LPCWSTR subkey, DWORD reserved, LPWSTR keyClass, DWORD options,
                        REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* opened,
                        DWORD* disposition);
// A name of one level; ERROR_ACCESS_DENIED for a key that has subkeys. A handle that is open on the
// key keeps it, and what is done by it is lost.
LSTATUS RegDeleteKeyW(HKEY key, LPCWSTR subkey);
// Not for the roots.
LSTATUS RegCloseKey(HKEY key);
// ERROR_FILE_NOT_FOUND; ERROR_MORE_DATA, with the size in *bytes, when it does not fit. `type`
// null. Texts come in the ANSI code page, other types byte for byte.
LSTATUS RegQueryValueExA(HKEY key, LPCSTR name, DWORD* reserved, DWORD* type, LPBYTE data,
                         DWORD* bytes);
// REG_BINARY alone.
LSTATUS RegSetValueExA(HKEY key, LPCSTR name, DWORD reserved, DWORD type, const BYTE* data,
                       DWORD bytes);

// *characters takes the room and gives the length, both with the terminator; with too little room
// FALSE with ERROR_INSUFFICIENT_BUFFER.
BOOL GetUserNameA(LPSTR name, DWORD* characters);
