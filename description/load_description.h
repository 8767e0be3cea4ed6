#pragma once

// From the path of a PPD file to a loaded printer description, by way of the description cache
// file: the packed block, byte for byte, kept beside the PPD with the extension PDC.

#include <cstdint>
#include <string_view>

#include "platform/owned.h"

#include "description/parse_observer.h"
#include "description/printer_description.h"

namespace ksfax {

struct ParseState;

// The description of the PPD file at `path`: the cache file's when it is current, else read from
// the PPD, which then rewrites the cache file; a cache file that cannot be written costs the next
// load a parse and nothing else. Null when the PPD is missing, empty or unreadable, holds a
// statement that ends the parse, or memory runs out. The caller frees it with GlobalFree.
//
// Callers hold the module's lock, so that two threads never build or write one cache file at once.
[[nodiscard]] PrinterDescription* LoadPrinterDescription(const WCHAR* path,
                                                         const ParseObserver* observer = nullptr);

// ---- The steps of a load ----

// Reads a PPD file into a ParseState, which goes to PackDescription. Null on any failure.
[[nodiscard]] ParseState* ParsePpdFile(const WCHAR* path, const ParseObserver* observer = nullptr);

// The same of a PPD's bytes, which stay valid until PackDescription. `path` is what PpdFileName
// will say. At most 0x7FFFFFFF bytes are read; more fail.
[[nodiscard]] ParseState* ParsePpdText(std::string_view text, const WCHAR* path,
                                       const ParseObserver* observer = nullptr);

// The packed block, with offsets, in fixed global memory that the caller frees; null when memory
// runs out or the block would pass 4 GB. Always releases the state.
[[nodiscard]] PrinterDescription* PackDescription(ParseState* state,
                                                  const ParseObserver* observer = nullptr);

// Turns the offsets of a packed block into addresses and fills FeatureByKind. An offset above
// TotalSize becomes null, one equal to it the block's end.
void RelocateDescription(PrinterDescription* block);

// True when every reference of a packed block of `size` bytes, read as its type after relocation,
// stays inside the block: pieces in their order, strings that end, lists that end, option records
// and tables of the stated size. True of every block that PackDescription makes.
[[nodiscard]] bool IsSoundBlock(const PrinterDescription* block, size_t size);

// The cache file's block, not yet relocated, when the file is current and sound: of the size it
// states, made from a PPD of the same FileVersion, not 0, by this version of the format. The
// caller frees it with GlobalFree. Null otherwise, and when the PPD cannot be opened.
[[nodiscard]] PrinterDescription* ReadCachedDescription(const WCHAR* path);

// Writes TotalSize bytes of a packed block as the cache file of `path`; failures are ignored, but
// for what the observer is told.
void WriteCachedDescription(const WCHAR* path, const PrinterDescription* block,
                            const ParseObserver* observer = nullptr);

// The number between the first two double quotes that follow the word FileVersion, wherever they
// stand; 24.8. 0 when one of them is missing or the text between is no number.
uint32_t ReadFileVersion(const char* text);

// The cache file's name: everything after the last full stop of `path`, wherever it stands,
// becomes PDC; a path without one has .PDC appended. False when that needs more than MAX_PATH
// characters with its terminator; `name` is then untouched. A PPD that has this name itself is
// loaded without a cache file.
[[nodiscard]] bool CacheFileName(const WCHAR* path, WCHAR (&name)[MAX_PATH]);

// Maps a whole file for reading. False, with both outs untouched, when the file is missing,
// empty, 0xFFFFFFFF bytes by its stated size, or cannot be mapped.
[[nodiscard]] bool MapFileReadOnly(const WCHAR* path, platform::MappedView* view, uint32_t* size);

}  // namespace ksfax
