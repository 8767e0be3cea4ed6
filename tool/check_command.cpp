// ksfax check: what the driver makes of every statement of a PPD.

#include <iostream>
#include <unistd.h>

#include "tool/ppd_check.h"
#include "tool/ppd_file.h"
#include "tool/program.h"

namespace tool {

namespace {

using nlohmann::ordered_json;

const char* Name(Severity severity) {
    constexpr const char* kNames[] = {"error", "warning", "note"};
    return kNames[size_t(severity)];
}

std::string Counted(size_t count, const char* what) {
    return Grouped(count) + ' ' + what + (count == 1 ? "" : "s");
}

// "12, 15, 18 and 40 more"
std::string LineList(const std::vector<uint32_t>& lines) {
    constexpr size_t kShown = 6;
    std::string text;
    for (size_t i = 0; i < std::min(lines.size(), kShown); ++i) {
        text += (i == 0 ? "" : ", ") + std::to_string(lines[i]);
    }
    return lines.size() > kShown ? text + " and " + Grouped(lines.size() - kShown) + " more" : text;
}

void TellFinding(const CheckedPpd& ppd, const Finding& finding) {
    std::cout << ShownPath(ppd.file) << ':'
              << (finding.lines.empty() ? "" : std::to_string(finding.lines.front()) + ":") << ' '
              << Name(finding.severity) << ": "
              << (finding.keyword.empty() ? "" : "*" + Shown(finding.keyword) + ": ")
              << Shown(finding.reason) << (finding.remedy.empty() ? "" : "; " + finding.remedy);
    if (finding.count > 1) {
        std::cout << " (" << Grouped(finding.count) << " times, lines " << LineList(finding.lines)
                  << ')';
    }
    std::cout << '\n';
}

std::string Verdict(const CheckedPpd& ppd) {
    const std::string counts = Counted(ppd.Count(Severity::Error), "error") + ", " +
                               Counted(ppd.Count(Severity::Warning), "warning") + "; " +
                               Counted(ppd.dropped, "statement") + " of " +
                               Grouped(ppd.statements) + " dropped";
    return ppd.loads ? counts : counts + "; the driver makes no description of it";
}

// Keywords that the driver has no use for, in one line: most PPDs are written for many drivers.
void TellUnknown(const CheckedPpd& ppd) {
    std::string names;
    size_t keywords = 0;
    size_t statements = 0;
    constexpr size_t kShown = 8;
    for (const Finding& finding : ppd.findings) {
        if (finding.severity == Severity::Note) {
            if (keywords++ < kShown) {
                names += (names.empty() ? "*" : ", *") + Shown(finding.keyword);
            }
            statements += finding.count;
        }
    }
    if (keywords != 0) {
        std::cout << ShownPath(ppd.file) << ": note: "
                  << (statements == 1 ? "1 statement says"
                                      : Grouped(statements) + " statements say")
                  << " nothing to this driver: " << names
                  << (keywords > kShown
                          ? " and " + Counted(keywords - kShown, "keyword") + " more (--notes)"
                          : "")
                  << '\n';
    }
}

void TellWhole(const CheckedPpd& ppd, bool withNotes) {
    for (const Finding& finding : ppd.findings) {
        if (finding.severity != Severity::Note || withNotes) {
            TellFinding(ppd, finding);
        }
    }
    if (!withNotes) {
        TellUnknown(ppd);
    }
    std::cout << ShownPath(ppd.file) << ": " << Verdict(ppd) << '\n';
}

ordered_json CheckedJson(const CheckedPpd& ppd) {
    ordered_json json = {{"file", JsonPath(ppd.file)}, {"readable", ppd.readable}};
    if (!ppd.readable) {
        json["failure"] = ppd.failure;
        return json;
    }
    json["loads"] = ppd.loads;
    json["statements"] = ppd.statements;
    json["dropped"] = ppd.dropped;
    json["findings"] = ordered_json::array();
    for (const Finding& finding : ppd.findings) {
        json["findings"].push_back(
            {{"severity", Name(finding.severity)},
             {"line", finding.lines.empty() ? ordered_json() : ordered_json(finding.lines.front())},
             {"lines", finding.lines},
             {"count", finding.count},
             {"keyword", finding.keyword},
             {"reason", finding.reason},
             {"remedy", finding.remedy}});
    }
    return json;
}

int CodeOf(const CheckedPpd& ppd) {
    const bool isLossless = ppd.loads && ppd.dropped == 0 && ppd.Count(Severity::Error) == 0;
    return !ppd.readable ? kFailed : isLossless ? kDone : kRefused;
}

// On a terminal alone, and wiped when the work is done.
class Progress {
  public:
    explicit Progress(size_t total) : total_(total), shown_(total > 20 && isatty(STDERR_FILENO)) {}
    ~Progress() {
        if (shown_) {
            std::cerr << "\r\x1B[K";
        }
    }
    void Step() {
        if (++done_ % 10 == 0 && shown_) {
            std::cerr << "\rchecked " << done_ << " of " << total_ << std::flush;
        }
    }

  private:
    size_t total_;
    size_t done_ = 0;
    bool shown_;
};

struct CheckOptions {
    MachineOptions machine;
    std::vector<std::string> ppds;
    bool json = false;
    bool notes = false;
};

int RunCheck(const CheckOptions& options) {
    MachineRun run(options.machine);
    int worst = kDone;
    size_t clean = 0, withErrors = 0, unreadable = 0;
    ordered_json all = ordered_json::array();
    {
        Progress progress(options.ppds.size());
        for (const std::string& file : options.ppds) {
            const CheckedPpd ppd = CheckPpd(file);
            // A file that cannot be read outweighs statements that were dropped.
            worst =
                worst == kFailed || CodeOf(ppd) == kFailed ? kFailed : std::max(worst, CodeOf(ppd));
            unreadable += !ppd.readable;
            withErrors += ppd.Count(Severity::Error) != 0;
            clean += ppd.readable && ppd.findings.size() == ppd.Count(Severity::Note);
            progress.Step();
            if (!ppd.readable) {
                std::cerr << "ksfax: " << ppd.failure << '\n';
            }
            if (options.json) {
                all.push_back(CheckedJson(ppd));
            } else if (ppd.readable && options.ppds.size() == 1) {
                TellWhole(ppd, options.notes);
            } else if (ppd.readable) {
                std::cout << ShownPath(ppd.file) << ": " << Verdict(ppd) << '\n';
            }
        }
    }
    const size_t files = options.ppds.size();
    if (options.json) {
        PrintJson({{"files", all},
                   {"summary",
                    {{"files", files},
                     {"clean", clean},
                     {"withErrors", withErrors},
                     {"unreadable", unreadable}}}});
    } else if (files > 1) {
        std::cout << Counted(files, "file") << ": " << Grouped(clean) << " without a finding, "
                  << Grouped(withErrors) << " with errors, "
                  << Grouped(files - clean - withErrors - unreadable) << " with warnings alone, "
                  << Grouped(unreadable) << " unreadable\n";
    }
    return worst;
}

}  // namespace

void AddCheckCommand(CLI::App& program, int& exitCode) {
    auto options = std::make_shared<CheckOptions>();
    CLI::App* check = program.add_subcommand(
        "check", "Tell a PPD author what the driver makes of every statement");
    check->add_option("PPD", options->ppds, "The PPD files; of many, each gets a line")
        ->required()
        ->type_name("");
    check->add_flag("--json", options->json, "Print one JSON object with all findings");
    check->add_flag("--notes", options->notes,
                    "Tell also of each statement that says nothing to this driver");
    options->machine.AddTo(*check);
    check->callback([options, &exitCode] { exitCode = RunCheck(*options); });
}

}  // namespace tool
