#pragma once

// The print spooler that the driver calls: printers, drivers, printer data, forms. Records and
// constants as published. A printer handle is the HANDLE that the machine's Spooler gave out.
//
// Two-call pattern: GetPrinterW, GetPrinterDriverW, GetPrinterDriverDirectoryW and EnumFormsW
// store the bytes they need and, when the buffer is smaller, return FALSE with
// ERROR_INSUFFICIENT_BUFFER and leave the buffer as it was. The strings of a record lie behind
// the records in the same buffer. The printer data calls return the error code itself.

#include "platform/embedded/api_driver_model.h"
#include "platform/embedded/api_types.h"

constexpr DWORD ERROR_INVALID_LEVEL = 124;
constexpr DWORD ERROR_UNKNOWN_PRINTER_DRIVER = 1797;
constexpr DWORD ERROR_INVALID_PRINTER_NAME = 1801;
constexpr DWORD ERROR_INVALID_DATATYPE = 1804;
constexpr DWORD ERROR_INVALID_ENVIRONMENT = 1805;
constexpr DWORD ERROR_INVALID_FORM_NAME = 1902;
constexpr DWORD ERROR_INVALID_FORM_SIZE = 1903;

constexpr DWORD STANDARD_RIGHTS_REQUIRED = 0x000F0000;
constexpr DWORD PRINTER_ACCESS_ADMINISTER = 0x00000004;
constexpr DWORD PRINTER_ACCESS_USE = 0x00000008;
constexpr DWORD PRINTER_ALL_ACCESS =
    STANDARD_RIGHTS_REQUIRED | PRINTER_ACCESS_ADMINISTER | PRINTER_ACCESS_USE;
static_assert(PRINTER_ALL_ACCESS == 0x000F000C);

// Types of printer data and registry values.
constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_EXPAND_SZ = 2;
constexpr DWORD REG_BINARY = 3;
constexpr DWORD REG_DWORD = 4;

struct PRINTER_DEFAULTSW {
    LPWSTR pDatatype;
    LPDEVMODEW pDevMode;
    DWORD DesiredAccess;
};
static_assert(sizeof(PRINTER_DEFAULTSW) == 24);

struct PRINTER_INFO_2W {
    LPWSTR pServerName;
    LPWSTR pPrinterName;
    LPWSTR pShareName;
    LPWSTR pPortName;
    LPWSTR pDriverName;
    LPWSTR pComment;
    LPWSTR pLocation;
    LPDEVMODEW pDevMode;
    LPWSTR pSepFile;
    LPWSTR pPrintProcessor;
    LPWSTR pDatatype;
    LPWSTR pParameters;
    PVOID pSecurityDescriptor;
    DWORD Attributes;
    DWORD Priority;
    DWORD DefaultPriority;
    DWORD StartTime;
    DWORD UntilTime;
    DWORD Status;
    DWORD cJobs;
    DWORD AveragePPM;
};
static_assert(sizeof(PRINTER_INFO_2W) == 136);
static_assert(offsetof(PRINTER_INFO_2W, pDevMode) == 56);
static_assert(offsetof(PRINTER_INFO_2W, Attributes) == 104);

// The printer's global default job settings.
struct PRINTER_INFO_8W {
    LPDEVMODEW pDevMode;
};
static_assert(sizeof(PRINTER_INFO_8W) == 8);

struct DRIVER_INFO_2W {
    DWORD cVersion;
    LPWSTR pName;
    LPWSTR pEnvironment;
    LPWSTR pDriverPath;
    LPWSTR pDataFile;
    LPWSTR pConfigFile;
};
static_assert(sizeof(DRIVER_INFO_2W) == 48);
static_assert(offsetof(DRIVER_INFO_2W, pDataFile) == 32);

struct DRIVER_INFO_3W {
    DWORD cVersion;
    LPWSTR pName;
    LPWSTR pEnvironment;
    LPWSTR pDriverPath;
    LPWSTR pDataFile;
    LPWSTR pConfigFile;
    LPWSTR pHelpFile;
    LPWSTR pDependentFiles;
    LPWSTR pMonitorName;
    LPWSTR pDefaultDataType;
};
static_assert(sizeof(DRIVER_INFO_3W) == 80);
static_assert(offsetof(DRIVER_INFO_3W, pHelpFile) == 48);

constexpr DWORD FORM_USER = 0;
constexpr DWORD FORM_BUILTIN = 1;
constexpr DWORD FORM_PRINTER = 2;

// Lengths in micrometres.
struct FORM_INFO_1W {
    DWORD Flags;
    LPWSTR pName;
    SIZEL Size;
    RECTL ImageableArea;
};
static_assert(sizeof(FORM_INFO_1W) == 40);
static_assert(offsetof(FORM_INFO_1W, Size) == 16);
static_assert(offsetof(FORM_INFO_1W, ImageableArea) == 24);

// `defaults` null asks for the right to print. Of data types "RAW" alone is known; any other is
// refused with ERROR_INVALID_DATATYPE. A null name fails here, where Windows opens the print
// server.
BOOL OpenPrinterW(LPWSTR name, HANDLE* printer, PRINTER_DEFAULTSW* defaults);
BOOL ClosePrinter(HANDLE printer);
// Levels 2, which has the names of the printer, its port and its driver and the default settings,
// and 8.
BOOL GetPrinterW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bytes, DWORD* needed);
// Level 8 with command 0; needs PRINTER_ACCESS_ADMINISTER.
BOOL SetPrinterW(HANDLE printer, DWORD level, LPBYTE record, DWORD command);
// Levels 2 and 3, which have the names of the driver, its data file and its help file; the
// environment must be null.
BOOL GetPrinterDriverW(HANDLE printer, LPWSTR environment, DWORD level, LPBYTE buffer, DWORD bytes,
                       DWORD* needed);
// This machine and its environment (both null), level 1; sizes in bytes.
BOOL GetPrinterDriverDirectoryW(LPWSTR server, LPWSTR environment, DWORD level, LPBYTE buffer,
                                DWORD bytes, DWORD* needed);
// ERROR_SUCCESS; ERROR_FILE_NOT_FOUND for a value that is not there; ERROR_MORE_DATA, with the
// size in *needed, for one that is longer than `bytes`.
DWORD GetPrinterDataW(HANDLE printer, LPWSTR value, DWORD* type, LPBYTE data, DWORD bytes,
                      DWORD* needed);
// As GetPrinterDataW. A text value comes in the ANSI code page; other types byte for byte.
DWORD GetPrinterDataA(HANDLE printer, LPSTR value, DWORD* type, LPBYTE data, DWORD bytes,
                      DWORD* needed);
// Needs PRINTER_ACCESS_ADMINISTER, else ERROR_ACCESS_DENIED.
DWORD SetPrinterDataW(HANDLE printer, LPWSTR value, DWORD type, LPBYTE data, DWORD bytes);
// Level 1.
BOOL EnumFormsW(HANDLE printer, DWORD level, LPBYTE buffer, DWORD bytes, DWORD* needed,
                DWORD* count);
// Both go by the user, an administrator or not, where Windows goes by the handle's rights to the
// print server; the rights that the printer was opened with do not count.
// Level 1; ERROR_FILE_EXISTS when the database has a form of that name.
BOOL AddFormW(HANDLE printer, DWORD level, LPBYTE form);
// ERROR_INVALID_FORM_NAME for a name that is not there, ERROR_INVALID_PARAMETER for a built-in
// form.
BOOL DeleteFormW(HANDLE printer, LPWSTR name);
