#pragma once

// The published printer-driver model: events, records and the print spooler.

#include "platform/embedded/api_types.h"

// ---- Document events ----
constexpr int DOCUMENTEVENT_CREATEDCPRE = 1;
constexpr int DOCUMENTEVENT_STARTDOC = 5;
constexpr int DOCUMENTEVENT_ENDDOC = 8;
constexpr int DOCUMENTEVENT_SUCCESS = 1;

extern "C" int WINAPI DrvDocumentEvent(HANDLE printer, HDC context, int event, ULONG inputSize,
                                       PVOID input, ULONG outputSize, PVOID output);

// ---- Job settings ----
constexpr int CCHDEVICENAME = 32;
constexpr int CCHFORMNAME = 32;

struct DEVMODEW {
    WCHAR dmDeviceName[CCHDEVICENAME];
    WORD dmSpecVersion;
    WORD dmDriverVersion;
    WORD dmSize;
    WORD dmDriverExtra;
    DWORD dmFields;
    union {
        struct {
            short dmOrientation;
            short dmPaperSize;
            short dmPaperLength;
            short dmPaperWidth;
            short dmScale;
            short dmCopies;
            short dmDefaultSource;
            short dmPrintQuality;
        };
        POINTL dmPosition;
    };
    short dmColor;
    short dmDuplex;
    short dmYResolution;
    short dmTTOption;
    short dmCollate;
    WCHAR dmFormName[CCHFORMNAME];
    WORD dmLogPixels;
    DWORD dmBitsPerPel;
    DWORD dmPelsWidth;
    DWORD dmPelsHeight;
    DWORD dmDisplayFlags;
    DWORD dmDisplayFrequency;
    DWORD dmICMMethod;
    DWORD dmICMIntent;
    DWORD dmMediaType;
    DWORD dmDitherType;
    DWORD dmReserved1;
    DWORD dmReserved2;
    DWORD dmPanningWidth;
    DWORD dmPanningHeight;
};
using PDEVMODEW = DEVMODEW*;
using LPDEVMODEW = DEVMODEW*;
static_assert(sizeof(DEVMODEW) == 220);
static_assert(offsetof(DEVMODEW, dmFields) == 72);
static_assert(offsetof(DEVMODEW, dmFormName) == 102);

// The input of DOCUMENTEVENT_CREATEDCPRE.
struct DOCEVENT_CREATEDCPRE {
    PWSTR pszDriver;
    PWSTR pszDevice;
    PDEVMODEW pdm;
    BOOL bIC;
};
