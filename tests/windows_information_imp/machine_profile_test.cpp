// The machine profile: the rules that turn machine facts into the session
// record's texts (the boundary rows of each table, on Windows' facts and on
// Linux's texts), the Linux sources of the display adapters and the default
// browser on folders laid out for each case, and the probes on this machine.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>
#include <QTemporaryDir>
#include <string>

#include "log_capture.h"
#include "windows_information_imp/machine_profile_linux_rules.h"
#ifndef _WIN32
#include "windows_information_imp/machine_profile_linux.h"
#endif
#include "windows_information_imp/machine_profile_rules.h"
#include "windows_information_imp/windows_information_imp.h"

namespace {

using namespace TarvoConsumerScanner::information_api;
using namespace TarvoConsumerScanner::information_api::machine_profile;

constexpr std::uint32_t win9x = 1, nt = 2;
constexpr std::uint8_t workstation = 1, server = 3;
const char* const longhorn = "WindowsServer\"Longhorn\" 64";

TEST(os_name, the_two_stages_name_the_boundary_versions) {
    const struct {
        version_facts facts;
        const char* expected;  // from the name "x"
    } table[] = {              // clang-format off
        {{4, 0, win9x, 0, 0}, "Windows95 64"}, {{4, 10, win9x, 0, 0}, "Windows98 64"},
        {{4, 90, win9x, 0, 0}, "WindowsMillenniumEdition 64"},
        {{6, 0, nt, workstation, 9}, "WindowsVista 64"}, {{6, 1, nt, workstation, 9}, "Windows7 64"},
        {{6, 0, nt, server, 9}, longhorn}, {{6, 1, nt, server, 9}, longhorn},
        {{6, 3, nt, workstation, 9}, "Windows8 64"}, {{6, 3, nt, server, 9}, longhorn},
        {{10, 7, nt, workstation, 0}, "Windows10 64"}, {{10, 0, nt, 2, 9}, longhorn},  // a DC
        {{5, 2, nt, workstation, 9}, "WindowsXP 64 "},  // with its trailing space
        {{5, 2, nt, workstation, 0}, "WindowsServer2003 64"},
        {{5, 2, nt, 0, 0}, "WindowsServer2003 64"},  // only the short record was read
        {{5, 1, nt, server, 9}, "WindowsXP 64"}, {{5, 0, nt, workstation, 0}, "Windows2000 64"},
        {{4, 0, nt, workstation, 0}, "xWindowsNT 64"}, {{0, 0, nt, 0, 0}, "xWindowsNT 64"},
        // Every other combination leaves the name as it was.
        {{6, 2, nt, workstation, 9}, "x"}, {{6, 4, nt, workstation, 9}, "x"},
        {{5, 3, nt, workstation, 9}, "x"}, {{7, 0, nt, workstation, 9}, "x"},
        {{11, 0, nt, workstation, 9}, "x"}, {{4, 1, win9x, 0, 0}, "x"},
        {{10, 0, 3, workstation, 9}, "x"}};
    // clang-format on
    for (const auto& row : table) {
        std::string os_name = "x";
        bool modern_os = true;
        apply_version_table(row.facts, os_name, modern_os);
        EXPECT_EQ(os_name, row.expected) << row.facts.major << "." << row.facts.minor;
        EXPECT_EQ(modern_os, row.facts.major >= 6) << row.facts.major;
    }
    const struct {
        nt_version_facts facts;
        const char* before;
        const char* expected;
        bool named;
    } stage_a[] = {
        {{6, 3}, "", "Windows8 64", true}, {{10, 4}, "x", "xWindows10 64", true},
        {{6, 2}, "", "", false},           {{6, 4}, "", "", false},
        {{11, 0}, "", "", false},          {{0, 0}, "", "", false},  // the function was missing
        {{6, 1}, "x", "x", true},  // a name already there ends the probe too
    };
    for (const auto& row : stage_a) {
        std::string os_name = row.before;
        bool modern_os = true;
        EXPECT_EQ(apply_nt_version(row.facts, os_name, modern_os), row.named) << row.facts.major;
        EXPECT_EQ(os_name, row.expected) << row.facts.major << "." << row.facts.minor;
        EXPECT_EQ(modern_os, row.facts.major >= 6);
    }
    bool modern_os = false;  // never set again once cleared
    std::string os_name;
    apply_nt_version({10, 0}, os_name, modern_os);
    apply_version_table({10, 0, nt, workstation, 9}, os_name, modern_os);
    EXPECT_FALSE(modern_os);
}

TEST(cpu_model, architecture_name_then_processor_name) {
    const struct {
        std::uint16_t code;
        std::optional<std::string> name;
        const char* expected;  // from "OLD"
        // clang-format off
    } rows[] = {{0, "Some CPU", "INTEL;Some CPU"}, {9, "Some CPU", "AMD64;Some CPU"},
                {11, "", "NEUTRAL;"}, {9, std::nullopt, "AMD64;"},
                {12, "Some CPU", "OLD;Some CPU"}, {0xFFFF, std::nullopt, "OLD;"}};
    // clang-format on
    for (const auto& row : rows) {
        std::string cpu_model = "OLD";
        compose_cpu_model({row.code, row.name}, cpu_model);
        EXPECT_EQ(cpu_model, row.expected) << row.code;
    }
}

TEST(paths_and_commands, program_folder_drive_handler_program_and_resolution) {
    const std::tuple<const wchar_t*, const wchar_t*, const wchar_t*> installs[] = {
        {L"C:\\App\\bin\\host.exe", L"C:/App/bin", L"C:"},
        {L"\\\\server\\share\\host.exe", L"//server/share", L"//"},  // the query fails
        {L"\\host.exe", L"/host.exe", L"/h"},                        // a separator at 0 is not cut
        {L"", L"", L""}};
    for (const auto& [executable, install_path, drive] : installs) {
        EXPECT_EQ(install_path_of(executable), install_path);
        EXPECT_EQ(drive_of(install_path_of(executable)), drive);
    }
    const std::pair<const wchar_t*, const wchar_t*> commands[] = {
        {L"\"C:\\Browser\\b.exe\" --single-argument \"%1\"", L"C:\\Browser\\b.exe"},
        {L"C:\\Browser\\b.exe \"%1\"", L"C:\\Browser\\b.exe "},  // its blank kept
        {L"C:\\Browser\\b.exe -url %1", L"C:\\Browser\\b.exe -url %1"},
        {L"\"C:\\Browser\\b.exe", L"C:\\Browser\\b.exe"},
        {L"", L""}};
    for (const auto& [command, executable] : commands)
        EXPECT_EQ(browser_executable_of(command), executable);
    EXPECT_EQ(resolution_text(5120, 1440), "5120*1440");
}

TEST(linux_texts, locale_machine_and_cpuinfo) {
    // clang-format off
    const std::pair<const char*, std::uint16_t> locales[] = {
        {"en_US.UTF-8", 1033}, {"en_GB.UTF-8", 2057}, {"zh_CN.UTF-8", 2052}, {"zh_TW.Big5", 1028},
        {"de_AT@euro", 3079}, {"fr_CA.UTF-8", 3084}, {"es_MX.UTF-8", 2058}, {"pt_PT.UTF-8", 2070},
        {"ko_KR.UTF-8", 1042}, {"tr_TR.UTF-8", 1055}, {"fi_FI.UTF-8", 1035}, {"sr_RS", 10266},
        {"ar_AE.UTF-8", 14337}, {"it_IT", 1040}, {"cs_CZ", 1029}, {"he_IL", 1037}, {"lt_LT", 1063},
        {"ca_ES.UTF-8", 1027}, {"en-US", 1033}, {"C", 1033}, {"C.UTF-8", 1033}, {"POSIX", 1033},
        {"", 1033}, {"zh", 2052}, {"tlh_XX.UTF-8", 0}, {"e", 0},
        {"de_BE.UTF-8", 1031}};  // an unlisted territory: the language's main one
    // clang-format on
    for (const auto& [locale, id] : locales) EXPECT_EQ(language_id_of_locale(locale), id) << locale;

    const std::pair<const char*, const char*> machines[] = {
        {"x86_64", "AMD64;"}, {"i686", "INTEL;"}, {"armv7l", "ARM;"},  {"mips64", "MIPS;"},
        {"ppc64le", "PPC;"},  {"ia64", "IA64;"},  {"alpha", "ALPHA;"}, {"sh4", "SHX;"},
        {"aarch64", ";"},     {"riscv64", ";"}};
    for (const auto& [machine, expected] : machines) {
        std::string cpu_model;
        compose_cpu_model({architecture_code_of_machine(machine), std::nullopt}, cpu_model);
        EXPECT_EQ(cpu_model, expected) << machine;
    }

    EXPECT_EQ(processor_name_of_cpuinfo("processor\t: 0\ncpu\t\t: POWER9\n"
                                        "model name\t: Intel(R) i7 \ncpu MHz\t\t: 2400.000\n"),
              "Intel(R) i7");
    EXPECT_EQ(processor_name_of_cpuinfo("Processor\t: ARMv7 rev 4 (v7l)\n"), "ARMv7 rev 4 (v7l)");
    EXPECT_EQ(processor_name_of_cpuinfo("processor\t: 0\ncpu\t\t: POWER9 (raw)\n"), "POWER9 (raw)");
    EXPECT_EQ(processor_name_of_cpuinfo("processor\t: 0\nBogoMIPS\t: 50.00\n"), std::nullopt);
}

TEST(linux_texts, key_files_exec_lines_and_pci_ids) {
    const std::string text =
        "# comment\n[Desktop Entry]\nName=Web Browser\nName[de]=Webbrowser\n"
        "Exec=/usr/bin/browser %u\n\n[Desktop Action new-window]\nName=New Window\n"
        "[Default Applications]\nx-scheme-handler/http = first.desktop;;second.desktop;\n";
    EXPECT_EQ(key_file_value(text, "Desktop Entry", "Name"), "Web Browser");
    EXPECT_EQ(key_file_value(text, "Desktop Action new-window", "Name"), "New Window");
    EXPECT_EQ(key_file_value(text, "Desktop Entry", "Icon"), std::nullopt);
    EXPECT_EQ(key_file_value(text, "Other", "Name"), std::nullopt);
    EXPECT_EQ(key_file_list(*key_file_value(text, "Default Applications", "x-scheme-handler/http")),
              (std::vector<std::string>{"first.desktop", "second.desktop"}));
    EXPECT_EQ(program_of_exec("/usr/bin/browser %u"), "/usr/bin/browser");
    EXPECT_EQ(program_of_exec("\"/opt/My Browser/browser\" %U"), "/opt/My Browser/browser");
    EXPECT_EQ(program_of_exec(""), "");

    const std::string pci_ids =
        "# List of PCI ID's\n1002  AMD\n\t73bf  Navi 21\n\t\t1002 0e3a  RX 6900 XT\n"
        "10de  NVIDIA Corporation\n# a comment inside\n\t2484  GA104 [GeForce RTX 3070]\n"
        "8086  Intel Corporation\nC 03  Display controller\n";
    EXPECT_EQ(pci_device_name(pci_ids, "10de", "2484"),
              "NVIDIA Corporation GA104 [GeForce RTX 3070]");
    EXPECT_EQ(pci_device_name(pci_ids, "1002", "73bf"), "AMD Navi 21");
    EXPECT_EQ(pci_device_name(pci_ids, "10de", "73bf"), "NVIDIA Corporation");
    EXPECT_EQ(pci_device_name(pci_ids, "1234", "1111"), std::nullopt);
}

#ifndef _WIN32
// The probes on this machine and the Linux sources.
quint64 number(const QString& text) {
    EXPECT_TRUE(QRegularExpression("^[0-9]+$").match(text).hasMatch()) << text.toStdString();
    return text.toULongLong();
}

TEST(machine_profile, a_session_start_fills_the_members_in_their_forms) {
    QCoreApplication::setApplicationName("scanner_host");
    windows_information_imp manager;
    EXPECT_EQ(manager.os_name, "");  // no name of the table fits Linux
    EXPECT_LE(number(manager.language), 0xFFFFu);
    const QSize desktop = QGuiApplication::primaryScreen()->virtualSize();
    EXPECT_EQ(manager.resolution, QString("%1*%2").arg(desktop.width()).arg(desktop.height()));
    EXPECT_EQ(manager.install_path, QCoreApplication::applicationDirPath());
    EXPECT_GT(number(manager.disk_free_size), 0u);
    EXPECT_LE(number(manager.disk_free_size), number(manager.disk_size));
    EXPECT_EQ(number(manager.cpu_cores), static_cast<quint64>(sysconf(_SC_NPROCESSORS_ONLN)));
#if defined(__x86_64__)
    EXPECT_TRUE(manager.cpu_model.startsWith("AMD64;")) << manager.cpu_model.toStdString();
#endif
    EXPECT_GT(number(manager.memory_size), 0u);
    EXPECT_EQ(manager.gpu_models.size(), manager.gpu_memory_sizes.size());
    for (const QString& size : manager.gpu_memory_sizes) number(size);
    EXPECT_TRUE(manager.modern_os());
    QString text;
    EXPECT_TRUE(manager.get_os_info(text, text, text) && manager.get_disk_info(text, text, text) &&
                manager.get_cpu_info(text, text) && manager.get_memory_size(text));
    // The adapter lists are appended to.
    QStringList models{"kept"}, memory_sizes{"1"};
    EXPECT_EQ(manager.get_gpu_info(models, memory_sizes), !manager.gpu_models.isEmpty());
    EXPECT_EQ(models, QStringList{"kept"} + manager.gpu_models);
}

class folder_tree {
public:
    std::string path(const QString& relative) const {
        return dir_.filePath(relative).toStdString();
    }
    void write(const QString& relative, const QByteArray& text) const {
        QDir().mkpath(QFileInfo(dir_.filePath(relative)).path());
        QFile file(dir_.filePath(relative));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }
    void device(const QString& address, const QByteArray& device_class, const QByteArray& vendor,
                const QByteArray& product) const {
        write("devices/" + address + "/class", device_class + "\n");
        write("devices/" + address + "/vendor", vendor + "\n");
        write("devices/" + address + "/device", product + "\n");
    }

private:
    QTemporaryDir dir_;
};

TEST(linux_sources, display_controllers_in_bus_order_with_names_and_memory) {
    folder_tree tree;
    std::vector<std::string> models{"kept"}, memory_sizes{"1"};
    EXPECT_FALSE(read_display_adapters(tree.path("devices"), {}, models, memory_sizes));
    EXPECT_TRUE(models.size() == 1 && memory_sizes.size() == 1) << "lists left as they were";
    tree.write("pci.ids", "1002  AMD\n\t73bf  Navi 21\n10de  NVIDIA\n\t2484  GA104\n");
    tree.device("0000:03:00.0", "0x030200", "0x1002", "0x73bf");
    tree.write("devices/0000:03:00.0/mem_info_vram_total", "17163091968\n");
    tree.device("0000:00:01.0", "0x060400", "0x8086", "0x1901");  // a bridge
    tree.device("0000:01:00.0", "0x030000", "0x10DE", "0x2484");
    tree.device("0000:02:00.0", "0x030000", "0x1234", "0x1111");  // not in pci.ids

    EXPECT_TRUE(read_display_adapters(tree.path("devices"),
                                      {tree.path("missing.ids"), tree.path("pci.ids")}, models,
                                      memory_sizes));
    EXPECT_EQ(models, (std::vector<std::string>{"kept", "NVIDIA GA104", "Device 1234:1111",
                                                "AMD Navi 21"}));
    EXPECT_EQ(memory_sizes, (std::vector<std::string>{"1", "0", "0", "17163091968"}));
}

// The folders come from the environment a desktop session sets, with empty
// entries of its lists left out.
TEST(linux_sources, the_default_http_handler_by_the_freedesktop_lookup_order) {
    folder_tree tree;
    for (const auto& [variable, value] :
         {std::pair("XDG_CONFIG_HOME", tree.path("config")),
          {"XDG_CONFIG_DIRS", tree.path("xdg")},
          {"XDG_DATA_HOME", tree.path("data")},
          {"XDG_DATA_DIRS", ":" + tree.path("share") + "::" + tree.path("usr/share") + ":"},
          {"XDG_CURRENT_DESKTOP", "KDE:"},
          {"PATH", tree.path("nothing") + ":" + tree.path("bin")}})
        setenv(variable, value.c_str(), 1);
    desktop_directories directories = desktop_directories::of_process();
    EXPECT_EQ(directories.data_dirs,
              (std::vector<std::string>{tree.path("share"), tree.path("usr/share")}));
    EXPECT_EQ(directories.desktops, std::vector<std::string>{"kde"});
    std::string name = "old name", version = "old version";
    EXPECT_EQ(read_default_browser(directories, name, version), -1) << "no default at all";
    EXPECT_EQ(name + version, "old nameold version");

    // A browser of the Mozilla family: its program linked into bin/, the
    // version in application.ini beside the real program.
    tree.write("usr/share/applications/web.desktop",
               "[Desktop Entry]\nName=Web Browser\nName[de]=Webbrowser\nExec=webbrowser %u\n");
    tree.write("lib/web/webbrowser", "#!/bin/sh\n");
    QFile(QString::fromStdString(tree.path("lib/web/webbrowser")))
        .setPermissions(QFile::ReadOwner | QFile::ExeOwner);
    QDir().mkpath(QString::fromStdString(tree.path("bin")));
    ASSERT_TRUE(QFile::link(QString::fromStdString(tree.path("lib/web/webbrowser")),
                            QString::fromStdString(tree.path("bin/webbrowser"))));
    tree.write("config/mimeapps.list",
               "[Added Associations]\nx-scheme-handler/http=other.desktop;\n"
               "[Default Applications]\nx-scheme-handler/http=uninstalled.desktop;web.desktop;\n");
    EXPECT_EQ(read_default_browser(directories, name, version), -1) << "no version to read";
    EXPECT_EQ(name + "|" + version, "Web Browser|old version");
    tree.write("lib/web/application.ini", "[App]\nName=Web\nVersion=115.3.0esr\n");
    test_support::log_capture logs;
    EXPECT_EQ(read_default_browser(directories, name, version), 0);
    EXPECT_EQ(version, "115.3.0esr");
    EXPECT_TRUE(logs.contains("default browser=web.desktop") &&
                logs.contains("default browser_path=" + tree.path("bin/webbrowser")));

    // A desktop-specific file comes before the general one of its folder.
    tree.write("share/applications/other.desktop", "[Desktop Entry]\nName=Other\nExec=other\n");
    tree.write("config/kde-mimeapps.list",
               "[Default Applications]\nx-scheme-handler/http=other.desktop\n");
    EXPECT_EQ(read_default_browser(directories, name, version), -1);
    EXPECT_EQ(name, "Other");
}

#endif  // _WIN32

}  // namespace
