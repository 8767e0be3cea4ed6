#pragma once

// The basic types of the published Windows interface, as wide as they are on 64-bit Windows
// whatever the host compiler's own `long` and `wchar_t` are.

#include <cstddef>
#include <cstdint>

using BOOL = int;
using BYTE = uint8_t;
using WCHAR = char16_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using INT = int;
using UINT = unsigned;
using LONG = int32_t;
using ULONG = uint32_t;
using SHORT = int16_t;
using INT_PTR = intptr_t;
using UINT_PTR = uintptr_t;
using LONG_PTR = intptr_t;
using ULONG_PTR = uintptr_t;
using DWORD_PTR = uintptr_t;
using SIZE_T = size_t;
using ATOM = WORD;
using WPARAM = UINT_PTR;
using LPARAM = LONG_PTR;
using LRESULT = LONG_PTR;
using HRESULT = LONG;
using LSTATUS = LONG;
using LCID = DWORD;
using LCTYPE = DWORD;
using COLORREF = DWORD;

using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using PWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using LPBYTE = BYTE*;
using PULONG = ULONG*;

using HANDLE = void*;
using HLOCAL = void*;
using HGLOBAL = void*;

// Handles that the published headers keep apart from each other are apart here too.
#define EMBEDDED_HANDLE(name)                                                                      \
    struct name##__;                                                                               \
    using name = name##__*
EMBEDDED_HANDLE(HINSTANCE);
EMBEDDED_HANDLE(HWND);
EMBEDDED_HANDLE(HDC);
EMBEDDED_HANDLE(HKEY);
EMBEDDED_HANDLE(HBITMAP);
EMBEDDED_HANDLE(HBRUSH);
EMBEDDED_HANDLE(HFONT);
EMBEDDED_HANDLE(HICON);
EMBEDDED_HANDLE(HMENU);
EMBEDDED_HANDLE(HPEN);
#undef EMBEDDED_HANDLE
using HCURSOR = HICON;
using HGDIOBJ = void*;
using HMODULE = HINSTANCE;
using FARPROC = INT_PTR (*)();

// In two steps, so that a macro that stands for a literal can be given too.
#define EMBEDDED_TEXT(literal) u##literal
#define TEXT(literal) EMBEDDED_TEXT(literal)
#define WINAPI
#define CALLBACK

constexpr BOOL TRUE = 1;
constexpr BOOL FALSE = 0;
constexpr DWORD MAX_PATH = 260;

constexpr WORD LOWORD(DWORD_PTR value) {
    return static_cast<WORD>(value);
}
constexpr WORD HIWORD(DWORD_PTR value) {
    return static_cast<WORD>(value >> 16);
}
constexpr BYTE LOBYTE(DWORD_PTR value) {
    return static_cast<BYTE>(value);
}
constexpr BYTE HIBYTE(DWORD_PTR value) {
    return static_cast<BYTE>(value >> 8);
}

// The value of two packed 16-bit halves, as messages carry them.
constexpr LONG MAKELONG(DWORD_PTR low, DWORD_PTR high) {
    return static_cast<LONG>((low & 0xFFFF) | (high & 0xFFFF) << 16);
}
constexpr WPARAM MAKEWPARAM(DWORD_PTR low, DWORD_PTR high) {
    return static_cast<DWORD>(MAKELONG(low, high));
}
constexpr LPARAM MAKELPARAM(DWORD_PTR low, DWORD_PTR high) {
    return static_cast<DWORD>(MAKELONG(low, high));
}
constexpr COLORREF RGB(BYTE red, BYTE green, BYTE blue) {
    return red | static_cast<COLORREF>(green) << 8 | static_cast<COLORREF>(blue) << 16;
}
// A resource's number in place of its name.
inline LPCWSTR MAKEINTRESOURCEW(WORD number) {
    return reinterpret_cast<LPCWSTR>(static_cast<ULONG_PTR>(number));
}

struct POINT {
    LONG x;
    LONG y;
};
struct RECT {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
struct POINTL {
    LONG x;
    LONG y;
};
struct RECTL {
    LONG left;
    LONG top;
    LONG right;
    LONG bottom;
};
struct SIZE {
    LONG cx;
    LONG cy;
};
using SIZEL = SIZE;
