#pragma once

// The stand-in for the maker's companion module KSFAXDLG.DLL: its two operations as functions of
// a module on the embedded machine. `DialDlg` acts as a user would who fills the fax dialog with
// the choices given here; `MakeBMP` draws the cover page. Both know the driver only through the
// record they are handed, the fax job file and the job files.
//
// What it keeps beyond the keys that the driver reads (all text in the ANSI code page):
//   KSFAXJOB.INI  [CVP_STYLE]  SenderName, SenderNumber, Date: for the head of the cover page
//   KSFAXJOB.INI  [DIALLIST]   Num, and up to 100 receivers: Name1, Number1, Name2, Number2 ...
//   DialNN.ini    [DIALLIST]   the same for each 100 of a longer list, whose Num alone is above
// The cover page lies beside the job's snapshot KesN.tmp as KesN_cover.png.

#include <filesystem>
#include <string>
#include <vector>

#include "platform/embedded/machine.h"

#include "tool/cover_page.h"

namespace tool {

struct DialogChoices {
    bool cancel = false;
    Receiver sender;
    std::u16string date;
    std::vector<Receiver> receivers;
    std::u16string coverBitmap;  // path on the machine; empty: none
    bool withMemo = false;
    std::string memo;  // in the ANSI code page
};

class Companion {
  public:
    // One at a time.
    Companion(embedded::Machine& machine, DialogChoices choices);
    ~Companion();
    Companion(const Companion&) = delete;
    Companion& operator=(const Companion&) = delete;

    // What came of it.
    bool dialogShown = false;
    bool isConfirmed = false;
    unsigned maximumReceivers = 0;    // as the driver gave it
    std::string dialogRefusal;        // why the dialog could not be confirmed; empty: it could
    std::filesystem::path coverPage;  // on the host; empty: none was made
    std::string failure;  // what the dialog or the cover page failed of; empty: of nothing

  private:
    static INT_PTR DialDlg(void* record);
    static INT_PTR MakeBmp(void* record);
    bool FillDialog();
    void MakeCoverPage(const std::u16string& snapshot);

    embedded::Machine& machine_;
    DialogChoices choices_;
};

}  // namespace tool
