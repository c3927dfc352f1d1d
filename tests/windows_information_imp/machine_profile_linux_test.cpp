// The Linux sources of the display adapters and the default browser, on
// device trees and freedesktop folders laid out for each case.
#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <string>
#include <vector>

#include "windows_information_imp/machine_profile_linux.h"

namespace {

using namespace TarvoConsumerScanner::information_api::machine_profile;

class folder_tree {
public:
    std::string path(const QString& relative) const {
        return dir_.filePath(relative).toStdString();
    }

    void write(const QString& relative, const QByteArray& text) const {
        const QString file_path = dir_.filePath(relative);
        QDir().mkpath(QFileInfo(file_path).path());
        QFile file(file_path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    void write_executable(const QString& relative) const {
        write(relative, "#!/bin/sh\n");
        QFile(dir_.filePath(relative))
            .setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    void link(const QString& target, const QString& relative) const {
        QDir().mkpath(QFileInfo(dir_.filePath(relative)).path());
        ASSERT_TRUE(QFile::link(dir_.filePath(target), dir_.filePath(relative)));
    }

private:
    QTemporaryDir dir_;
};

const QByteArray pci_ids =
    "# List of PCI ID's\n1002  Advanced Micro Devices, Inc. [AMD/ATI]\n"
    "\t73bf  Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]\n"
    "10de  NVIDIA Corporation\n\t2484  GA104 [GeForce RTX 3070]\n";

void add_device(const folder_tree& tree, const QString& address, const QByteArray& device_class,
                const QByteArray& vendor, const QByteArray& device) {
    tree.write("devices/" + address + "/class", device_class + "\n");
    tree.write("devices/" + address + "/vendor", vendor + "\n");
    tree.write("devices/" + address + "/device", device + "\n");
}

TEST(display_adapters, display_controllers_in_bus_order_with_names_and_memory) {
    folder_tree tree;
    tree.write("pci.ids", pci_ids);
    add_device(tree, "0000:03:00.0", "0x030200", "0x1002", "0x73bf");
    tree.write("devices/0000:03:00.0/mem_info_vram_total", "17163091968\n");
    add_device(tree, "0000:00:01.0", "0x060400", "0x8086", "0x1901");  // a bridge
    add_device(tree, "0000:01:00.0", "0x030000", "0x10DE", "0x2484");
    add_device(tree, "0000:02:00.0", "0x030000", "0x1234", "0x1111");  // not in pci.ids

    std::vector<std::string> models{"kept"}, memory_sizes{"1"};
    EXPECT_TRUE(read_display_adapters(tree.path("devices"),
                                      {tree.path("missing.ids"), tree.path("pci.ids")}, models,
                                      memory_sizes));
    EXPECT_EQ(
        models,
        (std::vector<std::string>{
            "kept", "NVIDIA Corporation GA104 [GeForce RTX 3070]", "Device 1234:1111",
            "Advanced Micro Devices, Inc. [AMD/ATI] Navi 21 [Radeon RX 6800/6800 XT / 6900 XT]"}));
    EXPECT_EQ(memory_sizes, (std::vector<std::string>{"1", "0", "0", "17163091968"}));
}

TEST(display_adapters, none_readable_gives_false_and_lists_unchanged) {
    folder_tree tree;
    add_device(tree, "0000:00:01.0", "0x060400", "0x8086", "0x1901");
    std::vector<std::string> models, memory_sizes;
    EXPECT_FALSE(read_display_adapters(tree.path("devices"), {}, models, memory_sizes));
    EXPECT_FALSE(read_display_adapters(tree.path("no-such-folder"), {}, models, memory_sizes));
    EXPECT_TRUE(models.empty());
    EXPECT_TRUE(memory_sizes.empty());

    // Without a pci.ids file the adapter still counts, under its ids.
    add_device(tree, "0000:01:00.0", "0x030000", "0x10de", "0x2484");
    EXPECT_TRUE(read_display_adapters(tree.path("devices"), {tree.path("missing.ids")}, models,
                                      memory_sizes));
    EXPECT_EQ(models, std::vector<std::string>{"Device 10de:2484"});
    EXPECT_EQ(memory_sizes, std::vector<std::string>{"0"});
}

desktop_directories directories_in(const folder_tree& tree) {
    desktop_directories directories;
    directories.config_home = tree.path("config");
    directories.config_dirs = {tree.path("xdg")};
    directories.data_home = tree.path("data");
    directories.data_dirs = {tree.path("share"), tree.path("usr/share")};
    directories.path = {tree.path("nothing"), tree.path("bin")};
    return directories;
}

// A browser of the Mozilla family: its program linked into bin/, the version
// in application.ini beside the real program.
void install_browser(const folder_tree& tree, bool with_application_ini) {
    tree.write("usr/share/applications/web.desktop",
               "[Desktop Entry]\nType=Application\nName=Web Browser\nName[de]=Webbrowser\n"
               "Exec=webbrowser %u\n");
    tree.write_executable("lib/web/webbrowser");
    tree.link("lib/web/webbrowser", "bin/webbrowser");
    if (with_application_ini)
        tree.write("lib/web/application.ini",
                   "[App]\nVendor=Someone\nName=Web\nVersion=115.3.0esr\n");
}

TEST(default_browser, name_from_the_desktop_entry_and_version_beside_its_program) {
    folder_tree tree;
    install_browser(tree, true);
    tree.write("config/mimeapps.list",
               "[Added Associations]\nx-scheme-handler/http=other.desktop;\n"
               "[Default Applications]\nx-scheme-handler/http=uninstalled.desktop;web.desktop;\n");
    std::string name = "old name", version = "old version";
    EXPECT_EQ(read_default_browser(directories_in(tree), name, version), 0);
    EXPECT_EQ(name, "Web Browser");
    EXPECT_EQ(version, "115.3.0esr");
}

TEST(default_browser, desktop_specific_and_earlier_files_win) {
    folder_tree tree;
    install_browser(tree, true);
    tree.write("share/applications/other.desktop",
               "[Desktop Entry]\nName=Other Browser\nExec=other\n");
    tree.write("usr/share/applications/mimeapps.list",
               "[Default Applications]\nx-scheme-handler/http=web.desktop\n");
    tree.write("xdg/kde-mimeapps.list",
               "[Default Applications]\nx-scheme-handler/http=other.desktop\n");

    desktop_directories directories = directories_in(tree);
    std::string name, version;
    EXPECT_EQ(read_default_browser(directories, name, version), 0);
    EXPECT_EQ(name, "Web Browser");

    directories.desktops = {"kde"};
    name.clear();
    version = "kept";
    EXPECT_EQ(read_default_browser(directories, name, version), -1);  // no version to read
    EXPECT_EQ(name, "Other Browser");
    EXPECT_EQ(version, "kept");
}

TEST(default_browser, missing_pieces_give_minus_one) {
    folder_tree tree;
    std::string name = "old name", version = "old version";
    EXPECT_EQ(read_default_browser(directories_in(tree), name, version), -1);  // no default
    EXPECT_EQ(name, "old name");
    EXPECT_EQ(version, "old version");

    install_browser(tree, false);
    tree.write("data/applications/mimeapps.list",
               "[Default Applications]\nx-scheme-handler/http=web.desktop\n");
    EXPECT_EQ(read_default_browser(directories_in(tree), name, version), -1);  // no version
    EXPECT_EQ(name, "Web Browser");
    EXPECT_EQ(version, "old version");
}

}  // namespace
