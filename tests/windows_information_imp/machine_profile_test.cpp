// The probes on this machine, and the Linux sources of the display adapters
// and the default browser on folders laid out for each case.
#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>
#include <QTemporaryDir>

#include "windows_information_imp/machine_profile_linux.h"
#include "windows_information_imp/windows_information_imp.h"

namespace {

using namespace TarvoConsumerScanner::information_api;
using namespace TarvoConsumerScanner::information_api::machine_profile;

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

TEST(linux_sources, the_default_browser_by_the_freedesktop_lookup_order) {
    folder_tree tree;
    desktop_directories directories;
    directories.config_home = tree.path("config");
    directories.config_dirs = {tree.path("xdg")};
    directories.data_home = tree.path("data");
    directories.data_dirs = {tree.path("share"), tree.path("usr/share")};
    directories.path = {tree.path("nothing"), tree.path("bin")};
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
    EXPECT_EQ(read_default_browser(directories, name, version), 0);
    EXPECT_EQ(version, "115.3.0esr");

    // A desktop-specific file comes before the general one of its folder.
    tree.write("share/applications/other.desktop", "[Desktop Entry]\nName=Other\nExec=other\n");
    tree.write("config/kde-mimeapps.list",
               "[Default Applications]\nx-scheme-handler/http=other.desktop\n");
    directories.desktops = {"kde"};
    EXPECT_EQ(read_default_browser(directories, name, version), -1);
    EXPECT_EQ(name, "Other");
}

}  // namespace
