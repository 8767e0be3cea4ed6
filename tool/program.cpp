#include "tool/program.h"

#include <iostream>

namespace tool {

int RunProgram(int count, const char* const* arguments) {
    CLI::App program(
        "The fax driver at the command line: what it makes of a printer description, what it "
        "answers,\nand what one fax job leaves behind. It runs the driver's own code.",
        "ksfax");
    program.set_version_flag("--version", "ksfax " KSFAX_VERSION);
    program.require_subcommand(1);
    program.footer("Exit status: 0 done, 1 failed, 2 wrong usage, 3 the driver refused.\n"
                   "ksfax COMMAND --help tells more of a command.");
    int exitCode = kDone;
    AddDescribeCommand(program, exitCode);
    AddCheckCommand(program, exitCode);
    AddSettingsCommand(program, exitCode);
    AddCapabilitiesCommand(program, exitCode);
    AddQueryCommand(program, exitCode);
    AddPageCommand(program, exitCode);
    AddSendCommand(program, exitCode);
    AddInstallCommand(program, exitCode);
    AddUpgradeCommand(program, exitCode);
    AddStateCommand(program, exitCode);
    // The value of a variable that is not set must not pass for an option that is not given.
    const CLI::Validator notEmpty(
        [](const std::string& text) { return text.empty() ? "the value is empty" : ""; }, "");
    for (CLI::App* command : program.get_subcommands({})) {
        for (CLI::Option* option : command->get_options()) {
            if (option->get_type_name() != "NAME" && option->get_items_expected_min() > 0) {
                option->check(notEmpty);
            }
        }
    }
    try {
        program.parse(count, arguments);
    } catch (const CLI::Success& help) {
        return program.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "ksfax: " << error.what() << "; ksfax --help lists commands and options\n";
        return kWrongUsage;
    } catch (const UsageError& error) {
        std::cerr << "ksfax: " << error.what() << '\n';
        return kWrongUsage;
    } catch (const std::exception& error) {
        std::cerr << "ksfax: " << error.what() << '\n';
        return kFailed;
    }
    if (!std::cout.flush()) {
        std::cerr << "ksfax: standard output cannot be written; is the disk full?\n";
        return kFailed;
    }
    return exitCode;
}

std::string ShownPath(const std::filesystem::path& path) {
    std::error_code error;
    const std::filesystem::path here = std::filesystem::current_path(error);
    const std::filesystem::path below =
        error || path.is_relative() ? path : path.lexically_relative(here);
    return (below.empty() || *below.begin() == ".." ? path : below).string();
}

nlohmann::ordered_json JsonPath(const std::filesystem::path& path) {
    return path.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(path.string());
}

void PrintJson(const nlohmann::ordered_json& value) {
    std::cout << value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

std::string Hexadecimal(std::span<const std::byte> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const std::byte byte : bytes) {
        text += kDigits[unsigned(byte) >> 4];
        text += kDigits[unsigned(byte) & 15];
    }
    return text;
}

std::string Grouped(uint64_t number) {
    std::string text = std::to_string(number);
    for (size_t at = text.size(); at > 3;) {
        at -= 3;
        text.insert(at, ",");
    }
    return text;
}

}  // namespace tool
