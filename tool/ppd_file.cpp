#include "tool/ppd_file.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "platform/embedded/files.h"
#include "platform/embedded/text.h"

namespace tool {

std::u16string PpdPath(const std::filesystem::path& ppd) {
    std::error_code error;
    if (std::filesystem::is_directory(ppd, error)) {
        throw UserError(ppd.string() + " is a folder; give the name of a PPD file");
    }
    if (access(ppd.c_str(), R_OK) != 0) {
        throw UserError(ppd.string() + " cannot be read: " + std::strerror(errno) +
                        "; check the name and its permissions");
    }
    const std::filesystem::path whole = std::filesystem::absolute(ppd).lexically_normal();
    const embedded::FileSystem& files = embedded::Machine::Current().files();
    std::u16string path = files.MachinePath(whole);
    if (files.HostPath(path) != whole || path.size() >= MAX_PATH) {
        throw UserError(ppd.string() +
                        ": the machine cannot name this file; its path must be UTF-8 without "
                        "backslashes, and of at most 257 characters");
    }
    return path;
}

LoadedDescription::LoadedDescription(const std::filesystem::path& ppd) {
    const std::u16string path = PpdPath(ppd);
    struct CacheUse {
        bool used = false;
        bool written = false;
    } cache;
    const ksfax::ParseObserver observer = {
        .context = &cache,
        .cacheUsed = [](void* context, bool used) { static_cast<CacheUse*>(context)->used = used; },
        .cacheWritten = [](void* context,
                           bool written) { static_cast<CacheUse*>(context)->written = written; }};
    ksfax::PrinterDescription* description = ksfax::LoadPrinterDescription(path.c_str(), &observer);
    if (description == nullptr) {
        throw UserError(ppd.string() + ": the driver can make no description of it; ksfax check " +
                        ppd.string() + " tells where it stops");
    }
    block_.reset(description);
    description_ = description;
    cacheUsed_ = cache.used;
    WCHAR name[MAX_PATH];
    if ((cache.used || cache.written) && ksfax::CacheFileName(path.c_str(), name)) {
        cacheFile_ = embedded::Machine::Current().files().HostPath(name);
    }
}

void RequireDescription(const MachineOptions& options, const std::filesystem::path& ppd) {
    if (!options.folder.empty()) {
        const embedded::Machine scratch(MachineRun::Setup(options));
        const LoadedDescription description(ppd);
    }
}

std::string FromPpd(std::string_view text) {
    return embedded::Utf8(embedded::FromAnsi(text));
}

std::string FromPpd(const char* text) {
    return text == nullptr ? std::string() : FromPpd(std::string_view(text));
}

std::string Shown(std::string text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        // U+0080 to U+009F are controls too, of two bytes.
        const bool second = byte >= 0x80 && byte < 0xA0 && i > 0 && text[i - 1] == '\xC2';
        if (byte < 0x20 || byte == 0x7F) {
            text[i] = ' ';
        } else if (second) {
            text.replace(i - 1, 2, " ");
            --i;
        }
    }
    return text;
}

}  // namespace tool
