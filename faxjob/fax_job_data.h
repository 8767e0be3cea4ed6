#pragma once

// The data of one fax job: the job files made from the shared fax job file at the start of a
// document, and the block of shared memory that carries their index to the document's end.
// companion.h names the keys and files.

#include "platform/windows_api.h"

namespace ksfax {

// Run once per document start, after the fax dialog, with the document's printer handle. Copies
// the cover bitmap and the memo to files unique to the job, renames the Dial files of a long
// list, copies the fax job file to the job's snapshot, and publishes the snapshot's path in
// shared memory. Nothing is reported: a part that fails is left out.
void PrepareFaxJobFiles(HANDLE printer);

// Run at the document's end: has the companion module make the cover page of the snapshot that
// was published for this printer handle, and removes the shared memory. Does nothing when none
// was published.
void FinishFaxJob(HANDLE printer);

}  // namespace ksfax
