#pragma once

// The published printer-driver model: events, records and the print spooler.

#include "platform/embedded/api_types.h"

// ---- Document events ----
constexpr int DOCUMENTEVENT_CREATEDCPRE = 1;
constexpr int DOCUMENTEVENT_STARTDOC = 5;
constexpr int DOCUMENTEVENT_STARTPAGE = 6;
constexpr int DOCUMENTEVENT_ENDPAGE = 7;
constexpr int DOCUMENTEVENT_ENDDOC = 8;
constexpr int DOCUMENTEVENT_SUCCESS = 1;

extern "C" int WINAPI DrvDocumentEvent(HANDLE printer, HDC context, int event, ULONG inputSize,
                                       PVOID input, ULONG outputSize, PVOID output);

// ---- Printer events and driver upgrade ----
constexpr INT PRINTER_EVENT_INITIALIZE = 3;
constexpr INT PRINTER_EVENT_CACHE_REFRESH = 5;

extern "C" BOOL WINAPI DrvPrinterEvent(LPWSTR printerName, INT event, DWORD flags,
                                       LPARAM parameter);

// ---- Property sheets ----
using PFNCOMPROPSHEET = LONG_PTR(CALLBACK*)(HANDLE sheet, UINT function, LPARAM first,
                                            LPARAM second);

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

// dmFields bits.
constexpr DWORD DM_ORIENTATION = 0x00000001;
constexpr DWORD DM_PAPERSIZE = 0x00000002;
constexpr DWORD DM_PAPERLENGTH = 0x00000004;
constexpr DWORD DM_PAPERWIDTH = 0x00000008;
constexpr DWORD DM_COPIES = 0x00000100;
constexpr DWORD DM_DEFAULTSOURCE = 0x00000200;
constexpr DWORD DM_PRINTQUALITY = 0x00000400;
constexpr DWORD DM_COLOR = 0x00000800;
constexpr DWORD DM_YRESOLUTION = 0x00002000;
constexpr DWORD DM_COLLATE = 0x00008000;
constexpr DWORD DM_FORMNAME = 0x00010000;

constexpr short DMORIENT_PORTRAIT = 1;
constexpr short DMORIENT_LANDSCAPE = 2;
constexpr short DMPAPER_LETTER = 1;
constexpr short DMPAPER_LEGAL = 5;
constexpr short DMPAPER_EXECUTIVE = 7;
constexpr short DMPAPER_A4 = 9;
constexpr short DMPAPER_A5 = 11;
constexpr short DMPAPER_B5 = 13;
constexpr short DMPAPER_FOLIO = 14;
constexpr short DMPAPER_ENV_10 = 20;
constexpr short DMPAPER_ENV_DL = 27;
constexpr short DMPAPER_ENV_C5 = 28;
constexpr short DMPAPER_ENV_B5 = 34;
constexpr short DMPAPER_ENV_B6 = 35;
constexpr short DMPAPER_ENV_MONARCH = 37;
constexpr short DMPAPER_JAPANESE_POSTCARD = 43;
constexpr short DMPAPER_A6 = 70;
constexpr short DMPAPER_JENV_CHOU3 = 73;
constexpr short DMPAPER_JENV_YOU4 = 91;
constexpr short DMPAPER_USER = 256;
constexpr short DMBIN_MANUAL = 4;
constexpr short DMBIN_ENVMANUAL = 6;
constexpr short DMBIN_AUTO = 7;
constexpr short DMBIN_FORMSOURCE = 15;
constexpr short DMCOLOR_MONOCHROME = 1;
constexpr short DMDUP_SIMPLEX = 1;
constexpr short DMTT_BITMAP = 1;
constexpr short DMCOLLATE_FALSE = 0;
constexpr short DMCOLLATE_TRUE = 1;

// ---- Device capabilities ----
constexpr WORD DC_FIELDS = 1;
constexpr WORD DC_PAPERS = 2;
constexpr WORD DC_PAPERSIZE = 3;
constexpr WORD DC_MINEXTENT = 4;
constexpr WORD DC_MAXEXTENT = 5;
constexpr WORD DC_BINS = 6;
constexpr WORD DC_DUPLEX = 7;
constexpr WORD DC_SIZE = 8;
constexpr WORD DC_EXTRA = 9;
constexpr WORD DC_VERSION = 10;
constexpr WORD DC_DRIVER = 11;
constexpr WORD DC_BINNAMES = 12;
constexpr WORD DC_ENUMRESOLUTIONS = 13;
constexpr WORD DC_FILEDEPENDENCIES = 14;
constexpr WORD DC_TRUETYPE = 15;
constexpr WORD DC_PAPERNAMES = 16;
constexpr WORD DC_ORIENTATION = 17;
constexpr WORD DC_COPIES = 18;
constexpr WORD DC_BINADJUST = 19;
constexpr WORD DC_COLLATE = 22;
constexpr WORD DC_PRINTRATE = 26;
constexpr WORD DC_PRINTRATEUNIT = 27;
constexpr WORD DC_MEDIAREADY = 29;
constexpr WORD DC_STAPLE = 30;
constexpr WORD DC_PRINTRATEPPM = 31;
constexpr WORD DC_COLORDEVICE = 32;
constexpr DWORD DCBA_FACEDOWNCENTER = 0x0101;
constexpr DWORD PRINTRATEUNIT_PPM = 1;
constexpr DWORD GDI_ERROR = 0xFFFFFFFF;
