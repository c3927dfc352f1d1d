// The rules that read Linux's own texts into the probes' vocabulary.
#include <gtest/gtest.h>

#include <string>

#include "windows_information_imp/machine_profile_linux_rules.h"
#include "windows_information_imp/machine_profile_rules.h"

namespace {

using namespace TarvoConsumerScanner::information_api::machine_profile;

TEST(language_of_locale, common_locales_map_to_their_language_identifier) {
    const struct {
        const char* locale;
        std::uint16_t id;
    } cases[] = {
        {"en_US.UTF-8", 1033},  {"en_GB.UTF-8", 2057}, {"zh_CN.UTF-8", 2052}, {"zh_TW.Big5", 1028},
        {"zh_HK.UTF-8", 3076},  {"ja_JP.eucJP", 1041}, {"ko_KR.UTF-8", 1042}, {"de_DE.UTF-8", 1031},
        {"de_AT@euro", 3079},   {"fr_FR", 1036},       {"fr_CA.UTF-8", 3084}, {"es_ES.UTF-8", 3082},
        {"es_MX.UTF-8", 2058},  {"it_IT.UTF-8", 1040}, {"pt_BR.UTF-8", 1046}, {"pt_PT.UTF-8", 2070},
        {"ru_RU.KOI8-R", 1049}, {"nl_NL.UTF-8", 1043}, {"pl_PL.UTF-8", 1045}, {"tr_TR.UTF-8", 1055},
        {"sv_SE.UTF-8", 1053},  {"cs_CZ.UTF-8", 1029}, {"uk_UA.UTF-8", 1058}, {"ar_SA.UTF-8", 1025},
        {"he_IL.UTF-8", 1037},  {"th_TH.UTF-8", 1054}, {"vi_VN.UTF-8", 1066}, {"en-US", 1033},
    };
    for (const auto& c : cases) EXPECT_EQ(language_id_of_locale(c.locale), c.id) << c.locale;
}

TEST(language_of_locale, c_and_unknown_locales) {
    EXPECT_EQ(language_id_of_locale("C"), 1033);
    EXPECT_EQ(language_id_of_locale("C.UTF-8"), 1033);
    EXPECT_EQ(language_id_of_locale("POSIX"), 1033);
    EXPECT_EQ(language_id_of_locale(""), 1033);
    // A territory not listed falls back to the language's main one.
    EXPECT_EQ(language_id_of_locale("de_BE.UTF-8"), 1031);
    EXPECT_EQ(language_id_of_locale("en_PH.UTF-8"), 1033);
    EXPECT_EQ(language_id_of_locale("zh"), 2052);
    // An unknown language is neutral.
    EXPECT_EQ(language_id_of_locale("tlh_XX.UTF-8"), 0);
    EXPECT_EQ(language_id_of_locale("e"), 0);
}

TEST(architecture_of_machine, uname_machines_map_to_windows_codes) {
    const struct {
        const char* machine;
        const char* cpu_model;
    } cases[] = {
        {"x86_64", "AMD64;"},
        {"i686", "INTEL;"},
        {"i386", "INTEL;"},
        {"armv7l", "ARM;"},
        {"mips64", "MIPS;"},
        {"ppc64le", "PPC;"},
        {"ia64", "IA64;"},
        {"alpha", "ALPHA;"},
        {"sh4", "SHX;"},
        // No name in the table, as for those machines on Windows.
        {"aarch64", ";"},
        {"riscv64", ";"},
        {"s390x", ";"},
    };
    for (const auto& c : cases) {
        std::string cpu_model;
        compose_cpu_model({architecture_code_of_machine(c.machine), std::nullopt}, cpu_model);
        EXPECT_EQ(cpu_model, c.cpu_model) << c.machine;
    }
}

TEST(processor_name, from_cpuinfo_by_architecture) {
    EXPECT_EQ(processor_name_of_cpuinfo("processor\t: 0\nvendor_id\t: GenuineIntel\n"
                                        "cpu family\t: 6\nmodel name\t: Intel(R) Core(TM) i7 \n"
                                        "cpu MHz\t\t: 2400.000\n"),
              "Intel(R) Core(TM) i7");
    EXPECT_EQ(processor_name_of_cpuinfo("Processor\t: ARMv7 Processor rev 4 (v7l)\n"),
              "ARMv7 Processor rev 4 (v7l)");
    EXPECT_EQ(
        processor_name_of_cpuinfo("processor\t: 0\ncpu\t\t: POWER9 (raw), altivec supported\n"),
        "POWER9 (raw), altivec supported");
    EXPECT_EQ(
        processor_name_of_cpuinfo("processor\t: 0\nBogoMIPS\t: 50.00\nCPU implementer\t: 0x41\n"),
        std::nullopt);
}

TEST(key_file, values_lists_and_exec_lines) {
    const std::string text =
        "# comment\n[Desktop Entry]\nName=Web Browser\nName[de]=Webbrowser\n"
        "Exec=/usr/bin/browser %u\n\n[Desktop Action new-window]\nName=New Window\n"
        "[Default Applications]\nx-scheme-handler/http = first.desktop;second.desktop;\n";
    EXPECT_EQ(key_file_value(text, "Desktop Entry", "Name"), "Web Browser");
    EXPECT_EQ(key_file_value(text, "Desktop Action new-window", "Name"), "New Window");
    EXPECT_EQ(key_file_value(text, "Desktop Entry", "Icon"), std::nullopt);
    EXPECT_EQ(key_file_value(text, "Other", "Name"), std::nullopt);
    EXPECT_EQ(key_file_list(*key_file_value(text, "Default Applications", "x-scheme-handler/http")),
              (std::vector<std::string>{"first.desktop", "second.desktop"}));

    EXPECT_EQ(program_of_exec("/usr/bin/browser %u"), "/usr/bin/browser");
    EXPECT_EQ(program_of_exec("firefox-esr"), "firefox-esr");
    EXPECT_EQ(program_of_exec("\"/opt/My Browser/browser\" %U"), "/opt/My Browser/browser");
    EXPECT_EQ(program_of_exec(""), "");
}

TEST(pci_ids, vendor_and_device_names) {
    const std::string pci_ids =
        "# List of PCI ID's\n1002  Advanced Micro Devices, Inc. [AMD/ATI]\n"
        "\t73bf  Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]\n\t\t1002 0e3a  Radeon RX 6900 XT\n"
        "10de  NVIDIA Corporation\n# a comment inside\n\t2484  GA104 [GeForce RTX 3070]\n"
        "8086  Intel Corporation\n\t3e92  CoffeeLake-S GT2 [UHD Graphics 630]\n"
        "C 03  Display controller\n\t00  VGA compatible controller\n";
    EXPECT_EQ(pci_device_name(pci_ids, "10de", "2484"),
              "NVIDIA Corporation GA104 [GeForce RTX 3070]");
    EXPECT_EQ(pci_device_name(pci_ids, "1002", "73bf"),
              "Advanced Micro Devices, Inc. [AMD/ATI] Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]");
    EXPECT_EQ(pci_device_name(pci_ids, "8086", "3e92"),
              "Intel Corporation CoffeeLake-S GT2 [UHD Graphics 630]");
    EXPECT_EQ(pci_device_name(pci_ids, "10de", "73bf"), "NVIDIA Corporation");
    EXPECT_EQ(pci_device_name(pci_ids, "1234", "1111"), std::nullopt);
    EXPECT_EQ(pci_device_name("1234  First Vendor\n\t1111  Its Display\n", "1234", "1111"),
              "First Vendor Its Display");
}

}  // namespace
