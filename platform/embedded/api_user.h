#pragma once

// The user-interface services that the driver calls.

#include "platform/embedded/api_types.h"

constexpr UINT MB_OK = 0x00000000;
constexpr int IDOK = 1;

// Shows nothing: the machine records the message box (Machine::messageBoxes) and answers OK.
int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);

// The published formatters: at most 1023 characters and a terminator are stored. Conversions d,
// i, u, x, X of 32 bits, s, c, S, C; flags -, 0 and #, width, precision, and h, l, w before the
// conversion. A null text reads "(null)".
int wsprintfW(LPWSTR target, LPCWSTR format, ...);
int wsprintfA(LPSTR target, LPCSTR format, ...);

int LoadStringW(HINSTANCE instance, UINT id, LPWSTR text, int characters);
int LoadStringA(HINSTANCE instance, UINT id, LPSTR text, int characters);
