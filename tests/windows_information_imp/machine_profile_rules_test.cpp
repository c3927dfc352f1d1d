// The rules that turn machine facts into the session record's texts, from
// tables of inputs.
#include <gtest/gtest.h>

#include <string>

#include "windows_information_imp/machine_profile_rules.h"

namespace {

using namespace TarvoConsumerScanner::information_api::machine_profile;

constexpr std::uint32_t win9x = 1;
constexpr std::uint32_t nt = 2;
constexpr std::uint8_t workstation = 1;
constexpr std::uint8_t domain_controller = 2;
constexpr std::uint8_t server = 3;

struct table_case {
    version_facts facts;
    const char* expected;  // with "before" as the name the probe started from
};

std::string named_by_table(const version_facts& facts, const std::string& before = "before") {
    std::string os_name = before;
    bool modern_os = true;
    apply_version_table(facts, os_name, modern_os);
    return os_name;
}

TEST(os_name_table, every_row_sets_or_appends_its_text) {
    const table_case cases[] = {
        {{4, 0, win9x, 0, 0}, "Windows95 64"},
        {{4, 10, win9x, 0, 0}, "Windows98 64"},
        {{4, 90, win9x, 0, 0}, "WindowsMillenniumEdition 64"},
        {{6, 0, nt, workstation, 9}, "WindowsVista 64"},
        {{6, 0, nt, server, 9}, "WindowsServer\"Longhorn\" 64"},
        {{6, 1, nt, workstation, 9}, "Windows7 64"},
        {{6, 1, nt, server, 9}, "WindowsServer\"Longhorn\" 64"},
        {{6, 3, nt, workstation, 9}, "Windows8 64"},
        {{6, 3, nt, domain_controller, 9}, "WindowsServer\"Longhorn\" 64"},
        {{10, 0, nt, workstation, 9}, "Windows10 64"},
        {{10, 7, nt, workstation, 0}, "Windows10 64"},
        {{10, 0, nt, server, 9}, "WindowsServer\"Longhorn\" 64"},
        {{5, 2, nt, workstation, 9}, "WindowsXP 64 "},
        {{5, 2, nt, workstation, 0}, "WindowsServer2003 64"},
        {{5, 2, nt, server, 9}, "WindowsServer2003 64"},
        {{5, 1, nt, workstation, 0}, "WindowsXP 64"},
        {{5, 1, nt, server, 9}, "WindowsXP 64"},
        {{5, 0, nt, workstation, 0}, "Windows2000 64"},
        {{4, 0, nt, workstation, 0}, "beforeWindowsNT 64"},
        {{3, 51, nt, server, 0}, "beforeWindowsNT 64"},
        {{0, 0, nt, 0, 0}, "beforeWindowsNT 64"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(named_by_table(c.facts), c.expected)
            << c.facts.major << "." << c.facts.minor << " platform " << c.facts.platform_id
            << " product type " << int(c.facts.product_type);
}

TEST(os_name_table, other_versions_leave_the_name_as_it_was) {
    const version_facts cases[] = {
        {6, 2, nt, workstation, 9}, {6, 2, nt, server, 9},
        {6, 4, nt, workstation, 9}, {5, 3, nt, workstation, 9},
        {7, 0, nt, workstation, 9}, {8, 1, nt, workstation, 9},
        {9, 0, nt, server, 9},      {11, 0, nt, workstation, 9},
        {4, 1, win9x, 0, 0},        {5, 0, win9x, 0, 0},
        {10, 0, 0, workstation, 9}, {10, 0, 3, workstation, 9},
        {5, 1, 3, workstation, 9},  {4, 0, 0, 0, 0},
    };
    for (const auto& facts : cases) {
        EXPECT_EQ(named_by_table(facts), "before")
            << facts.major << "." << facts.minor << " platform " << facts.platform_id;
        EXPECT_EQ(named_by_table(facts, ""), "");
    }
}

TEST(os_name_table, the_short_record_reads_5_2_as_server_2003) {
    // After the retry with the short record, product type and architecture are 0.
    EXPECT_EQ(named_by_table({5, 2, nt, 0, 0}, ""), "WindowsServer2003 64");
}

struct stage_a_case {
    nt_version_facts facts;
    const char* before;
    const char* expected;
    bool named;
};

TEST(os_name_stage_a, names_only_6_3_and_10) {
    const stage_a_case cases[] = {
        {{6, 3}, "", "Windows8 64", true},
        {{10, 0}, "", "Windows10 64", true},
        {{10, 4}, "", "Windows10 64", true},
        {{10, 0}, "x", "xWindows10 64", true},
        {{6, 2}, "", "", false},
        {{6, 1}, "", "", false},
        {{6, 4}, "", "", false},
        {{11, 0}, "", "", false},
        {{5, 2}, "", "", false},
        {{0, 0}, "", "", false},   // the function was missing
        {{6, 1}, "x", "x", true},  // a name already there ends the probe too
    };
    for (const auto& c : cases) {
        std::string os_name = c.before;
        bool modern_os = true;
        EXPECT_EQ(apply_nt_version(c.facts, os_name, modern_os), c.named)
            << c.facts.major << "." << c.facts.minor;
        EXPECT_EQ(os_name, c.expected) << c.facts.major << "." << c.facts.minor;
    }
}

TEST(modern_os_flag, cleared_below_major_6_in_either_stage_and_never_set_again) {
    for (std::uint32_t major : {0u, 3u, 4u, 5u, 6u, 10u}) {
        const bool expected = major >= 6;
        bool modern_os = true;
        std::string os_name;
        apply_nt_version({major, 0}, os_name, modern_os);
        EXPECT_EQ(modern_os, expected) << "stage A, major " << major;

        modern_os = true;
        apply_version_table({major, 0, nt, workstation, 9}, os_name, modern_os);
        EXPECT_EQ(modern_os, expected) << "stage B, major " << major;

        modern_os = false;
        apply_nt_version({major, 0}, os_name, modern_os);
        apply_version_table({major, 0, nt, workstation, 9}, os_name, modern_os);
        EXPECT_FALSE(modern_os) << "major " << major;
    }
}

TEST(cpu_model, architecture_codes_0_to_11_are_named) {
    const char* const names[] = {"INTEL", "MIPS",    "ALPHA", "PPC",   "SHX",           "ARM",
                                 "IA64",  "ALPHA64", "MSIL",  "AMD64", "IA32_ON_WIN64", "NEUTRAL"};
    for (std::uint16_t code = 0; code < 12; ++code) {
        std::string cpu_model = "before";
        compose_cpu_model({code, std::string("Some CPU")}, cpu_model);
        EXPECT_EQ(cpu_model, std::string(names[code]) + ";Some CPU") << "code " << code;
    }
}

TEST(cpu_model, an_unknown_code_leaves_the_name_part_as_it_was) {
    for (std::uint16_t code : {std::uint16_t(12), std::uint16_t(0xFFFF)}) {
        std::string cpu_model;
        compose_cpu_model({code, std::string("Some CPU")}, cpu_model);
        EXPECT_EQ(cpu_model, ";Some CPU") << "code " << code;
        EXPECT_EQ(architecture_name(code), nullptr);

        cpu_model = "OLD";
        compose_cpu_model({code, std::string("Some CPU")}, cpu_model);
        EXPECT_EQ(cpu_model, "OLD;Some CPU") << "code " << code;
    }
}

TEST(cpu_model, a_missing_processor_name_ends_in_the_separator) {
    std::string cpu_model;
    compose_cpu_model({9, std::nullopt}, cpu_model);
    EXPECT_EQ(cpu_model, "AMD64;");
    cpu_model.clear();
    compose_cpu_model({9, std::string()}, cpu_model);  // the key opened, no value read
    EXPECT_EQ(cpu_model, "AMD64;");
}

TEST(install_path, folder_of_the_executable_with_slashes_and_its_drive) {
    struct path_case {
        const wchar_t* executable;
        const wchar_t* install_path;
        const wchar_t* drive;
    };
    const path_case cases[] = {
        {L"C:\\App\\bin\\host.exe", L"C:/App/bin", L"C:"},
        {L"D:\\host.exe", L"D:", L"D:"},
        {L"C:\\Program Files\\Scanner App\\host.exe", L"C:/Program Files/Scanner App", L"C:"},
        {L"\\\\server\\share\\app\\host.exe", L"//server/share/app", L"//"},  // query fails
        {L"host.exe", L"host.exe", L"ho"},
        {L"\\host.exe", L"/host.exe", L"/h"},  // a separator at 0 is not cut
        {L"", L"", L""},
    };
    for (const auto& c : cases) {
        const std::wstring install_path = install_path_of(c.executable);
        EXPECT_EQ(install_path, c.install_path);
        EXPECT_EQ(drive_of(install_path), c.drive);
    }
}

TEST(browser_command, executable_path_by_the_quote_rule) {
    struct command_case {
        const wchar_t* command;
        const wchar_t* executable;
    };
    const command_case cases[] = {
        {L"\"C:\\Program Files\\Browser\\browser.exe\" --single-argument \"%1\"",
         L"C:\\Program Files\\Browser\\browser.exe"},
        {L"\"C:\\Program Files\\Browser\\browser.exe\" -osint -url \"%1\"",
         L"C:\\Program Files\\Browser\\browser.exe"},
        {L"C:\\Browser\\browser.exe \"%1\"", L"C:\\Browser\\browser.exe "},  // blank kept
        {L"C:\\Browser\\browser.exe -url %1", L"C:\\Browser\\browser.exe -url %1"},
        {L"\"C:\\Browser\\browser.exe", L"C:\\Browser\\browser.exe"},
        {L"\"\"", L""},
        {L"", L""},
    };
    for (const auto& c : cases) EXPECT_EQ(browser_executable_of(c.command), c.executable);
}

TEST(resolution, width_star_height) {
    EXPECT_EQ(resolution_text(1920, 1080), "1920*1080");
    EXPECT_EQ(resolution_text(800, 600), "800*600");
    EXPECT_EQ(resolution_text(5120, 1440), "5120*1440");
    EXPECT_EQ(resolution_text(0, 0), "0*0");
}

}  // namespace
