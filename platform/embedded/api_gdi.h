#pragma once

// The graphics interface: drawing into windows and bitmaps, and the records of it that the driver
// stores and passes on. Every context draws into a plain bitmap (gdi.h), pixel for pixel as the
// published primitives do; text alone differs, being drawn in Liberation Sans.

#include "platform/embedded/api_types.h"

constexpr int LF_FACESIZE = 32;
constexpr BYTE DEFAULT_CHARSET = 1;

struct LOGFONTW {
    LONG lfHeight;
    LONG lfWidth;
    LONG lfEscapement;
    LONG lfOrientation;
    LONG lfWeight;
    BYTE lfItalic;
    BYTE lfUnderline;
    BYTE lfStrikeOut;
    BYTE lfCharSet;
    BYTE lfOutPrecision;
    BYTE lfClipPrecision;
    BYTE lfQuality;
    BYTE lfPitchAndFamily;
    WCHAR lfFaceName[LF_FACESIZE];
};
static_assert(sizeof(LOGFONTW) == 92);
static_assert(offsetof(LOGFONTW, lfCharSet) == 23);
static_assert(offsetof(LOGFONTW, lfFaceName) == 28);

struct COLORADJUSTMENT {
    WORD caSize;
    WORD caFlags;
    WORD caIlluminantIndex;
    WORD caRedGamma;
    WORD caGreenGamma;
    WORD caBlueGamma;
    WORD caReferenceBlack;
    WORD caReferenceWhite;
    SHORT caContrast;
    SHORT caBrightness;
    SHORT caColorfulness;
    SHORT caRedGreenTint;
};
static_assert(sizeof(COLORADJUSTMENT) == 24);

// ---- Objects and contexts ----
constexpr int NULL_PEN = 8;
constexpr int BLACK_PEN = 7;
constexpr int WHITE_BRUSH = 0;
constexpr int SYSTEM_FONT = 13;
constexpr int DEFAULT_GUI_FONT = 17;
constexpr int PS_SOLID = 0;
constexpr COLORREF CLR_INVALID = 0xFFFFFFFF;

struct BITMAP {
    LONG bmType;
    LONG bmWidth;
    LONG bmHeight;
    LONG bmWidthBytes;
    WORD bmPlanes;
    WORD bmBitsPixel;
    LPVOID bmBits;
};
static_assert(sizeof(BITMAP) == 32);

// The stock objects named above. They are not counted and deleting them does nothing.
HGDIOBJ GetStockObject(int object);
// Style PS_SOLID; width 0 or 1.
HPEN CreatePen(int style, int width, COLORREF color);
HBRUSH CreateSolidBrush(COLORREF color);
// One plane of 1 bit (all 0) or 32 bits (all black), without initial bits. On 1 bit white stores 1
// and any other colour 0.
HBITMAP CreateBitmap(int width, int height, UINT planes, UINT bitsPerPixel, const void* bits);
// As deep as what is selected into `context`: 32 bits for a window's, 1 for a fresh memory context.
HBITMAP CreateCompatibleBitmap(HDC context, int width, int height);
// A bitmap resource as a 32-bit bitmap. Uncompressed, 4 bits a pixel, with all 16 colours.
HBITMAP LoadBitmapW(HINSTANCE instance, LPCWSTR name);
// Bitmaps alone.
int GetObjectW(HANDLE handle, int bytes, LPVOID object);
// FALSE for an object that is selected into a context, which stays.
BOOL DeleteObject(HGDIOBJ object);

HDC CreateCompatibleDC(HDC context);
// FALSE for a context that GetDC or BeginPaint gave.
BOOL DeleteDC(HDC context);
HDC GetDC(HWND window);
int ReleaseDC(HWND window, HDC context);
// The object that was selected, null on failure. A bitmap goes into memory contexts alone, and
// into one at a time.
HGDIOBJ SelectObject(HDC context, HGDIOBJ object);

// ---- Attributes. Contexts begin with black text on white, opaque, mapped pixel to pixel.
constexpr int MM_TEXT = 1;
COLORREF SetTextColor(HDC context, COLORREF color);
COLORREF SetBkColor(HDC context, COLORREF color);
int GetMapMode(HDC context);
// MM_TEXT alone; others fail.
int SetMapMode(HDC context, int mode);
BOOL DPtoLP(HDC context, POINT* points, int count);
constexpr int NULLREGION = 1;
constexpr int SIMPLEREGION = 2;
// The smallest rectangle around what may be drawn, in the context's coordinates.
int GetClipBox(HDC context, RECT* box);

// ---- Drawing ----
BOOL MoveToEx(HDC context, int x, int y, POINT* before);
// Draws with the pen up to, but without, the end point.
BOOL LineTo(HDC context, int x, int y);
BOOL Rectangle(HDC context, int left, int top, int right, int bottom);
// Filled by the alternate rule.
BOOL Polygon(HDC context, const POINT* points, int count);
COLORREF SetPixel(HDC context, int x, int y, COLORREF color);
// 0 or 1 of a monochrome bitmap.
COLORREF GetPixel(HDC context, int x, int y);
// `brush` may also be a system colour's number plus 1.
int FillRect(HDC context, const RECT* rect, HBRUSH brush);

constexpr DWORD SRCCOPY = 0x00CC0020;
constexpr DWORD SRCPAINT = 0x00EE0086;
constexpr DWORD SRCAND = 0x008800C6;
constexpr DWORD NOTSRCCOPY = 0x00330008;
// The four operations above. From colour to monochrome a pixel becomes 1 where it has the
// source context's background colour; from monochrome to colour 0 becomes the target context's
// text colour and 1 its background colour.
BOOL BitBlt(HDC target, int x, int y, int width, int height, HDC source, int sourceX, int sourceY,
            DWORD operation);

constexpr UINT DT_LEFT = 0x0000;
constexpr UINT DT_CENTER = 0x0001;
constexpr UINT DT_VCENTER = 0x0004;
constexpr UINT DT_WORDBREAK = 0x0010;
constexpr UINT DT_SINGLELINE = 0x0020;
constexpr UINT DT_NOPREFIX = 0x0800;
// The flags above; a line ends at a line feed. The text's height; 0 for a flag that is not among
// them.
int DrawTextW(HDC context, LPCWSTR text, int length, RECT* rect, UINT format);
BOOL GetTextExtentPoint32W(HDC context, LPCWSTR text, int length, SIZE* size);
