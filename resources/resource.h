#pragma once

// The numbers of the module's own resources, shared by the resource script and the code.

// Type of the records of the device's built-in fonts, numbered 1 to 80.
#define DEVICE_FONT_RESOURCE 258

// Names of papers, loaded from the resource module.
#define IDS_PAPER_LETTER 550
#define IDS_PAPER_LEGAL 551
#define IDS_PAPER_EXECUTIVE 552
#define IDS_PAPER_A4 553
#define IDS_PAPER_A5 554
#define IDS_PAPER_B5 555
#define IDS_PAPER_COM10 556
#define IDS_PAPER_DL 557
#define IDS_PAPER_C5 558
#define IDS_PAPER_MONARCH 559
#define IDS_PAPER_ORGANIZER_J 560
#define IDS_PAPER_ORGANIZER_K 561
#define IDS_PAPER_ORGANIZER_L 562
#define IDS_PAPER_ORGANIZER_M 563
#define IDS_PAPER_3X5 564
#define IDS_PAPER_A4_LONG 565
#define IDS_PAPER_LETTER_SHORT_EDGE 567
#define IDS_PAPER_LETTER_LONG_EDGE 568
#define IDS_PAPER_A4_SHORT_EDGE 569
#define IDS_PAPER_A4_LONG_EDGE 570
#define IDS_PAPER_EXECUTIVE_SHORT_EDGE 571
#define IDS_PAPER_EXECUTIVE_LONG_EDGE 572
#define IDS_PAPER_B6 573
#define IDS_PAPER_A3 574
#define IDS_PAPER_LEDGER 575
#define IDS_PAPER_B5_SHORT_EDGE 576
#define IDS_PAPER_B5_LONG_EDGE 577
#define IDS_PAPER_JIS_B4 578
#define IDS_PAPER_A6 2012
#define IDS_PAPER_JIS_B5 4204
#define IDS_PAPER_POSTCARD 4205
#define IDS_PAPER_JE4 4206
#define IDS_PAPER_JL3 4207
#define IDS_PAPER_FOLIO 4221
#define IDS_PAPER_DL_LANDSCAPE 4233

// Why a queued job cannot be printed, loaded from the module itself.
#define IDS_REFUSED_RESOLUTION 40043
#define IDS_REFUSED_BAD_SETTINGS 40047
#define IDS_REFUSED_MANUAL_FEED 40048
#define IDS_REFUSED_NO_SUCH_PAPER 40049
#define IDS_REFUSED_CONFLICT 40054
#define IDS_REFUSED_NO_DESCRIPTION 40055
#define IDS_REFUSED_NO_MEMORY 40056
#define IDS_REFUSED_PAPER_NOT_LOADED 40057
#define IDS_REFUSED_CUSTOM_PAPER 40058

// Dialogs and their controls, loaded from the resource module.
#define IDD_ABOUT 143
#define IDD_PAPER_PAGE 145
#define IDC_DEFAULT 16
#define IDC_PAGE_HELP 9
#define IDC_ABOUT 12
#define IDC_PAPER_LABEL 163
#define IDC_PAPER_PICTURE 166
#define IDC_PAPER_SIZE_TEXT 169
#define IDC_PAPER_SIZE 170
#define IDC_ORIENTATION_TEXT 175
#define IDC_PORTRAIT 176
#define IDC_LANDSCAPE 177
#define IDC_RESOLUTION_200X200 193
#define IDC_RESOLUTION_200X100 194
#define IDC_RESOLUTION_TEXT 239
#define IDC_DRIVER_NAME 20
#define IDC_DRIVER_VERSION 362
#define IDC_DRIVER_DATE 532
#define IDC_LOGO 533

// Bitmaps, loaded from the module itself.
#define IDB_PORTRAIT 13052
#define IDB_LANDSCAPE 13053
#define IDB_LOGO 13152

// The title of the paper page.
#define IDS_PAGE_BASIC 591

// Only a resource module has these: the word before the version, and the months (January is
// IDS_BEFORE_MONTHS + 1).
#define IDS_VERSION 4224
#define IDS_BEFORE_MONTHS 14006

// The labels under the picture of the paper: its name, a line break and its size. Only a resource
// module has those of the Japanese postcard and envelopes and of the landscape DL envelope.
#define IDS_LABEL_LETTER 1094
#define IDS_LABEL_LEGAL 1095
#define IDS_LABEL_EXECUTIVE 1096
#define IDS_LABEL_A4 1097
#define IDS_LABEL_B5 1098
#define IDS_LABEL_A5 1099
#define IDS_LABEL_MONARCH 1100
#define IDS_LABEL_COM10 1101
#define IDS_LABEL_DL 1102
#define IDS_LABEL_C5 1103
#define IDS_LABEL_ORGANIZER_J 1104
#define IDS_LABEL_ORGANIZER_K 1105
#define IDS_LABEL_ORGANIZER_L 1106
#define IDS_LABEL_ORGANIZER_M 1107
#define IDS_LABEL_3X5 1134
#define IDS_LABEL_A4_LONG 1135
#define IDS_LABEL_LETTER_SHORT_EDGE 1136
#define IDS_LABEL_A4_SHORT_EDGE 1138
#define IDS_LABEL_EXECUTIVE_SHORT_EDGE 1140
#define IDS_LABEL_B6 1142
#define IDS_LABEL_B5_SHORT_EDGE 1145
#define IDS_LABEL_JIS_B5 1148
#define IDS_LABEL_A6 2011
#define IDS_LABEL_UNDEFINED 3064
#define IDS_LABEL_POSTCARD 4201
#define IDS_LABEL_JE4 4202
#define IDS_LABEL_JL3 4203
#define IDS_LABEL_FOLIO 4220
#define IDS_LABEL_DL_LANDSCAPE 4234
