#include <atomic>
#include <thread>

#include "core/session.h"
#include "tests/core/fax_machine.h"

namespace ksfax {
namespace {

// Two printers and everything that shares a description or keeps others from it.
TEST(Threads, TakeTurnsAtWhatTheyShare) {
    FaxMachine fax;
    fax.AddPrinter(u"Other", u"C:\\Ppd\\OTHER.PPD", kFaxPpd);
    const embedded::Leaks before = fax.machine.OpenNow();
    std::atomic<unsigned> wrong = 0;
    const auto describe = [&](std::u16string name, std::u16string path, bool allowShared) {
        const platform::PrinterHandle printer = fax.Open(name);
        for (int i = 0; i < 60; ++i) {
            const DescriptionUse description(AcquireDescription(printer.get(), allowShared));
            wrong += !description || path != description.get()->PpdFileName.Target();
        }
    };
    const auto open = [&](std::u16string name) {
        const platform::PrinterHandle printer = fax.Open(name);
        for (int i = 0; i < 8; ++i) {
            const OpenSession session(OpenPrinterSession(printer.get(), nullptr));
            wrong += !IsPrinterSession(session.get());
        }
    };
    const auto ask = [&](std::u16string name) {
        const platform::PrinterHandle printer = fax.Open(name);
        for (int i = 0; i < 20; ++i) {
            wrong += static_cast<int>(DrvDeviceCapabilities(printer.get(), name.data(), DC_PAPERS,
                                                            nullptr, nullptr)) <= 0;
        }
    };
    const auto upgrade = [&](std::u16string name) {
        DRIVER_UPGRADE_INFO_1W information = {.pPrinterName = name.data(),
                                              .pOldDriverDirectory = nullptr};
        for (int i = 0; i < 8; ++i) {
            wrong += !DrvUpgradePrinter(1, reinterpret_cast<LPBYTE>(&information));
        }
    };
    {
        std::jthread threads[] = {
            std::jthread(describe, u"Fax", u"C:\\Ppd\\FAX.PPD", true),
            std::jthread(describe, u"Other", u"C:\\Ppd\\OTHER.PPD", true),
            std::jthread(describe, u"Fax", u"C:\\Ppd\\FAX.PPD", false),
            std::jthread(open, u"Fax"),
            std::jthread(ask, u"Other"),
            std::jthread(upgrade, u"Fax"),
        };
    }
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(descriptionCache.useCount, 0u);
    EXPECT_EQ(fax.OpenWithoutCache(), before);
}

}  // namespace
}  // namespace ksfax
