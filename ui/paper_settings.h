#pragma once

// What the paper settings page does to its session, without any window: the list of papers, and
// what each of the user's choices writes into the job settings.

#include "platform/windows_api.h"

#include "core/session.h"

namespace ksfax {

// ---- The list of papers ----

// Makes the session's `paperList` anew: an entry for each option of the description's Paper
// feature, in its order. Without memory it is a fixed list of ten common papers, and
// `paperListBlock` stays null.
void BuildPaperList(PrinterSession* session);
// Frees it, if there is one to free.
void FreePaperList(PrinterSession* session);

// The first paper of that code, or else the first of the list. A list without papers gives its
// end, whose code is 0. For a session that has a list.
const PaperListEntry& PaperOfCode(const PrinterSession& session, uint32_t paperCode);

// The string, in the resource module, that is shown under the picture of such a paper.
UINT PaperLabelString(uint32_t paperCode);

// ---- What the user does ----

// The page comes up: the settings' paper becomes one of the list. Returns that.
const PaperListEntry& BeginPaperPage(PrinterSession* session);

void SelectPaper(JobSettings* settings, uint32_t paperCode);

// Both return whether that changed the settings.
bool SetOrientation(JobSettings* settings, bool portrait);
bool SetFaxResolution(JobSettings* settings, bool is200x100);

// The defaults of the user's country and of the description. Returns the paper.
const PaperListEntry& RestoreDefaults(PrinterSession* session);

}  // namespace ksfax
