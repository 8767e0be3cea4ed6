#pragma once

// The user-interface services that the driver calls.

#include "platform/embedded/api_types.h"

constexpr UINT MB_OK = 0x00000000;

// Shows nothing: the machine records the message box (Machine::messageBoxes) and answers OK.
int MessageBoxW(HWND owner, LPCWSTR text, LPCWSTR caption, UINT type);

// The published formatter: at most 1023 characters and a terminator are stored. Conversions d,
// u, x, X, s, c, with flags - and 0, width and precision.
int wsprintfW(LPWSTR target, LPCWSTR format, ...);

int LoadStringW(HINSTANCE instance, UINT id, LPWSTR text, int characters);
int LoadStringA(HINSTANCE instance, UINT id, LPSTR text, int characters);
