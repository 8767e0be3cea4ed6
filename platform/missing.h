#pragma once

// Published constants, records and calls that no installed system header declares, the same for
// both homes. windows_api.h includes it behind what it builds on.

// ---- Native conversions of the ANSI code page; all counts are in bytes ----
// They fill what there is room for and say how much that was; a character of two bytes is never cut
// in half.
extern "C" LONG WINAPI RtlMultiByteToUnicodeN(PWSTR target, ULONG targetBytes, PULONG resultBytes,
                                              LPCSTR source, ULONG sourceBytes);
extern "C" LONG WINAPI RtlUnicodeToMultiByteN(LPSTR target, ULONG targetBytes, PULONG resultBytes,
                                              LPCWSTR source, ULONG sourceBytes);

// ---- Driver upgrade ----
struct DRIVER_UPGRADE_INFO_1W {
    LPWSTR pPrinterName;
    LPWSTR pOldDriverDirectory;
};
static_assert(sizeof(DRIVER_UPGRADE_INFO_1W) == 16);

extern "C" BOOL WINAPI DrvUpgradePrinter(DWORD level, LPBYTE information);

// ---- Halftone information; numbers are ten-thousandths ----
constexpr DWORD HT_FLAG_HAS_BLACK_DYE = 0x00000002;

struct CIECHROMA {
    LONG x;
    LONG y;
    LONG Y;
};
struct COLORINFO {
    CIECHROMA Red;
    CIECHROMA Green;
    CIECHROMA Blue;
    CIECHROMA Cyan;
    CIECHROMA Magenta;
    CIECHROMA Yellow;
    CIECHROMA AlignmentWhite;
    LONG RedGamma;
    LONG GreenGamma;
    LONG BlueGamma;
    LONG MagentaInCyanDye;
    LONG YellowInCyanDye;
    LONG CyanInMagentaDye;
    LONG YellowInMagentaDye;
    LONG CyanInYellowDye;
    LONG MagentaInYellowDye;
};
static_assert(sizeof(COLORINFO) == 120);
struct DEVHTINFO {
    DWORD HTFlags;
    DWORD HTPatternSize;
    DWORD DevPelsDPI;
    COLORINFO ColorInfo;
};
static_assert(sizeof(DEVHTINFO) == 132);

// ---- Conversion of job settings ----
constexpr DWORD CDM_CONVERT = 1;
constexpr DWORD CDM_CONVERT351 = 2;
constexpr DWORD CDM_DRIVER_DEFAULT = 4;

extern "C" BOOL WINAPI DrvConvertDevMode(LPWSTR printerName, PDEVMODEW input, PDEVMODEW output,
                                         LONG* bytes, DWORD mode);

// ---- Device capabilities ----
extern "C" DWORD WINAPI DrvDeviceCapabilities(HANDLE printer, LPWSTR deviceName, WORD index,
                                              PVOID output, PDEVMODEW settings);

// ---- The spooler's question whether a job can print ----
struct DEVQUERYPRINT_INFO {
    WORD cbSize;
    WORD Level;
    HANDLE hPrinter;
    DEVMODEW* pDevMode;
    LPWSTR pszErrorStr;
    DWORD cchErrorStr;
    DWORD cchNeeded;
};
using PDEVQUERYPRINT_INFO = DEVQUERYPRINT_INFO*;
static_assert(sizeof(DEVQUERYPRINT_INFO) == 40);
static_assert(offsetof(DEVQUERYPRINT_INFO, cchErrorStr) == 32);

extern "C" BOOL WINAPI DevQueryPrintEx(PDEVQUERYPRINT_INFO query);

// ---- Property sheets of a printer driver ----
constexpr DWORD DM_ADVANCED = 0x10;
constexpr DWORD DM_NOPERMISSION = 0x20;
constexpr WORD DPS_NOPERMISSION = 0x0001;

struct DOCUMENTPROPERTYHEADER {
    WORD cbSize;
    WORD Reserved;
    HANDLE hPrinter;
    LPWSTR pszPrinterName;
    PDEVMODEW pdmIn;
    PDEVMODEW pdmOut;
    DWORD cbOut;
    DWORD fMode;
};
static_assert(sizeof(DOCUMENTPROPERTYHEADER) == 48);
static_assert(offsetof(DOCUMENTPROPERTYHEADER, cbOut) == 40);

struct DEVICEPROPERTYHEADER {
    WORD cbSize;
    WORD Flags;
    HANDLE hPrinter;
    LPWSTR pszPrinterName;
};
static_assert(sizeof(DEVICEPROPERTYHEADER) == 24);

extern "C" LONG WINAPI DrvDocumentPropertySheets(PPROPSHEETUI_INFO information, LPARAM parameter);
extern "C" LONG WINAPI DrvDevicePropertySheets(PPROPSHEETUI_INFO information, LPARAM parameter);
extern "C" LONG WINAPI DrvDocumentProperties(HWND owner, HANDLE printer, LPWSTR deviceName,
                                             PDEVMODEW output, PDEVMODEW input, DWORD mode);
extern "C" LONG WINAPI DrvAdvancedDocumentProperties(HWND owner, HANDLE printer, LPWSTR deviceName,
                                                     PDEVMODEW output, PDEVMODEW input);
