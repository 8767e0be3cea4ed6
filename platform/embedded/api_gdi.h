#pragma once

// Records of the published graphics interface that the driver stores and passes on.

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
