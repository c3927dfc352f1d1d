#pragma once

// The parts of the Linux machine profile that read from places a caller can
// choose: the freedesktop directories and the PCI device tree.

#include <string>
#include <vector>

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

// The freedesktop base directories and program search path.
struct desktop_directories {
    std::string config_home;               // $XDG_CONFIG_HOME, else ~/.config
    std::vector<std::string> config_dirs;  // $XDG_CONFIG_DIRS, else /etc/xdg
    std::string data_home;                 // $XDG_DATA_HOME, else ~/.local/share
    std::vector<std::string> data_dirs;    // $XDG_DATA_DIRS, else /usr/local/share:/usr/share
    std::vector<std::string> desktops;     // $XDG_CURRENT_DESKTOP, lower case
    std::vector<std::string> path;         // $PATH

    static desktop_directories of_process();
};

// The default handler of http addresses by the mimeapps.list files; name from
// its desktop entry, version from the application.ini beside its program
// (where the Mozilla family keeps it). 0 when both were read, -1 otherwise.
int read_default_browser(const desktop_directories& directories, std::string& browser_name,
                         std::string& browser_version);

// Display controllers (PCI class 0x03) under a devices folder such as
// /sys/bus/pci/devices, named from the first readable of pci_ids_files.
// False when no display controller could be read.
bool read_display_adapters(const std::string& devices_folder,
                           const std::vector<std::string>& pci_ids_files,
                           std::vector<std::string>& models,
                           std::vector<std::string>& memory_sizes);

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
