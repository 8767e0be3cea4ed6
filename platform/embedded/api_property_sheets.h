#pragma once

// Property sheets: the records between a printer driver, the common property sheet library
// compstui.dll and the pages. The library itself is a module of the machine (property_sheets.h).

#include "platform/embedded/api_driver_model.h"
#include "platform/embedded/api_types.h"
#include "platform/embedded/api_user.h"

constexpr WORD PROPSHEETUI_REASON_INIT = 0;
constexpr WORD PROPSHEETUI_REASON_GET_INFO_HEADER = 1;
constexpr WORD PROPSHEETUI_REASON_DESTROY = 2;
constexpr WORD PROPSHEETUI_REASON_SET_RESULT = 3;
constexpr WORD PROPSHEETUI_REASON_GET_ICON = 4;
constexpr UINT CPSFUNC_SET_RESULT = 9;
constexpr UINT CPSFUNC_INSERT_PSUIPAGEW = 17;
constexpr BYTE PSUIPAGEINSERT_PROPSHEETPAGE = 3;
constexpr BYTE INSPSUIPAGE_MODE_INDEX = 4;
constexpr WORD PSUIHDRF_NOAPPLYNOW = 0x0002;
constexpr WORD PSUIHDRF_PROPTITLE = 0x0004;
constexpr DWORD CPSUI_CANCEL = 0;
constexpr DWORD CPSUI_OK = 1;
constexpr LONG ERR_CPSUI_GETLASTERROR = -1;
constexpr LONG ERR_CPSUI_ALLOCMEM_FAILED = -2;

struct PROPSHEETUI_INFO {
    WORD cbSize;
    WORD Version;
    WORD Flags;
    WORD Reason;
    HANDLE hComPropSheet;
    PFNCOMPROPSHEET pfnComPropSheet;
    LPARAM lParamInit;
    ULONG_PTR UserData;
    ULONG_PTR Result;
};
using PPROPSHEETUI_INFO = PROPSHEETUI_INFO*;
static_assert(sizeof(PROPSHEETUI_INFO) == 48);
static_assert(offsetof(PROPSHEETUI_INFO, lParamInit) == 24);

using PFNPROPSHEETUI = LONG (*)(PPROPSHEETUI_INFO information, LPARAM parameter);

struct PROPSHEETUI_INFO_HEADER {
    WORD cbSize;
    WORD Flags;
    LPWSTR pTitle;
    HWND hWndParent;
    HINSTANCE hInst;
    union {
        HICON hIcon;
        ULONG_PTR IconID;
    };
};
static_assert(sizeof(PROPSHEETUI_INFO_HEADER) == 40);

struct SETRESULT_INFO {
    WORD cbSize;
    WORD wReserved;
    HANDLE hSetResult;
    LRESULT Result;
};
static_assert(sizeof(SETRESULT_INFO) == 24);

struct INSERTPSUIPAGE_INFO {
    WORD cbSize;
    BYTE Type;
    BYTE Mode;
    ULONG_PTR dwData1;
    ULONG_PTR dwData2;
    ULONG_PTR dwData3;
};
static_assert(sizeof(INSERTPSUIPAGE_INFO) == 32);

// ---- Pages ----
constexpr DWORD PSP_USETITLE = 0x00000008;
constexpr DWORD PSP_HASHELP = 0x00000020;

struct PROPSHEETPAGEW {
    DWORD dwSize;
    DWORD dwFlags;
    HINSTANCE hInstance;
    LPCWSTR pszTemplate;
    LPCWSTR pszIcon;
    LPCWSTR pszTitle;
    DLGPROC pfnDlgProc;
    LPARAM lParam;
    PVOID pfnCallback;
    UINT* pcRefParent;
    LPCWSTR pszHeaderTitle;
    LPCWSTR pszHeaderSubTitle;
    HANDLE hActCtx;
};
static_assert(sizeof(PROPSHEETPAGEW) == 96);
static_assert(offsetof(PROPSHEETPAGEW, lParam) == 48);

constexpr UINT PSN_SETACTIVE = static_cast<UINT>(-200);
constexpr UINT PSN_KILLACTIVE = static_cast<UINT>(-201);
constexpr UINT PSN_APPLY = static_cast<UINT>(-202);
constexpr UINT PSN_RESET = static_cast<UINT>(-203);
constexpr UINT PSN_HELP = static_cast<UINT>(-205);
constexpr UINT PSM_CHANGED = WM_USER + 104;

// What PSN_ notifications carry.
struct PSHNOTIFY {
    NMHDR hdr;
    LPARAM lParam;
};

// ---- The printer driver's side ----
constexpr DWORD DM_UPDATE = 0x01;
constexpr DWORD DM_OUT_BUFFER = 0x02;
constexpr DWORD DM_IN_PROMPT = 0x04;
constexpr DWORD DM_IN_BUFFER = 0x08;
extern "C" BOOL WINAPI PrinterProperties(HWND owner, HANDLE printer);
