// The machine profile from Linux: /proc, /sys, statvfs, the locale and the
// freedesktop settings, in the same text forms as on Windows.
#include "machine_profile_linux.h"

#include <sys/statvfs.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <sstream>

#include "machine_profile_facts.h"
#include "machine_profile_linux_rules.h"
#include "machine_profile_rules.h"
#include "machine_profile_sources.h"

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

namespace {

// The first processor's block is all the name needs; reading the whole file
// costs milliseconds on large machines.
constexpr std::streamsize cpuinfo_head_size = 8192;

std::optional<std::string> file_text(
    const std::string& path, std::streamsize limit = std::numeric_limits<std::streamsize>::max()) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::string text;
    if (limit == std::numeric_limits<std::streamsize>::max()) {
        std::ostringstream content;
        content << file.rdbuf();
        text = content.str();
    } else {
        text.resize(static_cast<size_t>(limit));
        file.read(&text[0], limit);
        text.resize(static_cast<size_t>(file.gcount()));
    }
    return text;
}

bool is_file(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::vector<std::string> split_list(const std::string& value) {
    std::vector<std::string> items;
    std::istringstream parts(value);
    for (std::string part; std::getline(parts, part, ':');)
        if (!part.empty()) items.push_back(part);
    return items;
}

std::string lower_case(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// mimeapps.list files in the freedesktop lookup order: desktop-specific ones
// before the general one in each folder.
std::vector<std::string> mimeapps_files(const desktop_directories& directories) {
    std::vector<std::string> folders{directories.config_home};
    folders.insert(folders.end(), directories.config_dirs.begin(), directories.config_dirs.end());
    folders.push_back(directories.data_home + "/applications");
    for (const auto& data : directories.data_dirs) folders.push_back(data + "/applications");

    std::vector<std::string> files;
    for (const auto& folder : folders) {
        for (const auto& desktop : directories.desktops)
            files.push_back(folder + "/" + desktop + "-mimeapps.list");
        files.push_back(folder + "/mimeapps.list");
    }
    return files;
}

std::optional<std::string> desktop_entry_path(const desktop_directories& directories,
                                              const std::string& id) {
    std::vector<std::string> folders{directories.data_home};
    folders.insert(folders.end(), directories.data_dirs.begin(), directories.data_dirs.end());
    for (const auto& folder : folders) {
        const std::string path = folder + "/applications/" + id;
        if (is_file(path)) return path;
    }
    return std::nullopt;
}

// The desktop entry of the default http handler: the first installed entry of
// the first file that names one.
std::optional<std::string> default_browser_entry(const desktop_directories& directories) {
    for (const auto& file : mimeapps_files(directories)) {
        const auto text = file_text(file);
        if (!text) continue;
        const auto value = key_file_value(*text, "Default Applications", "x-scheme-handler/http");
        if (!value) continue;
        for (const auto& id : key_file_list(*value)) {
            if (const auto path = desktop_entry_path(directories, id)) {
                MACHINE_PROFILE_LOG("default browser=" + id);
                return path;
            }
        }
    }
    return std::nullopt;
}

std::string program_path(const desktop_directories& directories, const std::string& program) {
    if (program.find('/') != std::string::npos) return program;
    for (const auto& folder : directories.path) {
        const std::string candidate = folder + "/" + program;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

std::string folder_of(const std::string& path) {
    const auto separator = path.rfind('/');
    return separator != std::string::npos && separator > 0 ? path.substr(0, separator) : path;
}

// A sysfs attribute's value without its line end.
std::string first_word(const std::string& sysfs_text) {
    return sysfs_text.substr(0, sysfs_text.find_first_of(" \n"));
}

// A PCI id in the form pci.ids lists it: "0x10DE" gives "10de".
std::string id_of(const std::string& sysfs_text) {
    std::string id = lower_case(first_word(sysfs_text));
    return id.compare(0, 2, "0x") == 0 ? id.substr(2) : id;
}

}  // namespace

desktop_directories desktop_directories::of_process() {
    desktop_directories directories;
    const std::string home = environment("HOME");
    directories.config_home = environment("XDG_CONFIG_HOME");
    if (directories.config_home.empty()) directories.config_home = home + "/.config";
    directories.config_dirs = split_list(environment("XDG_CONFIG_DIRS"));
    if (directories.config_dirs.empty()) directories.config_dirs = {"/etc/xdg"};
    directories.data_home = environment("XDG_DATA_HOME");
    if (directories.data_home.empty()) directories.data_home = home + "/.local/share";
    directories.data_dirs = split_list(environment("XDG_DATA_DIRS"));
    if (directories.data_dirs.empty()) directories.data_dirs = {"/usr/local/share", "/usr/share"};
    directories.desktops = split_list(lower_case(environment("XDG_CURRENT_DESKTOP")));
    directories.path = split_list(environment("PATH"));
    return directories;
}

bool read_os_name(std::string&, bool&) {
    // No name of the table's vocabulary fits Linux: the name stays empty.
    return true;
}

std::string read_system_language() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const std::string locale = environment(name);
        if (!locale.empty()) return std::to_string(language_id_of_locale(locale));
    }
    return std::to_string(language_id_of_locale(""));
}

void read_disk_info(std::string& install_path, std::string& disk_size,
                    std::string& disk_free_size) {
    char executable[PATH_MAX + 1] = {};
    const ssize_t length = readlink("/proc/self/exe", executable, PATH_MAX);
    if (length <= 0) return;
    install_path = folder_of(std::string(executable, static_cast<size_t>(length)));

    struct statvfs disk;
    if (statvfs(install_path.c_str(), &disk) != 0) return;
    disk_size = std::to_string(static_cast<unsigned long long>(disk.f_blocks) * disk.f_frsize);
    // All free blocks, the reserved ones included, as the Windows figure is.
    disk_free_size = std::to_string(static_cast<unsigned long long>(disk.f_bfree) * disk.f_frsize);
}

void read_cpu_info(std::string& cpu_cores, std::string& cpu_model) {
    cpu_cores = std::to_string(sysconf(_SC_NPROCESSORS_ONLN));
    processor_facts facts;
    struct utsname system;
    if (uname(&system) == 0) facts.architecture = architecture_code_of_machine(system.machine);
    if (const auto cpuinfo = file_text("/proc/cpuinfo", cpuinfo_head_size))
        facts.name = processor_name_of_cpuinfo(*cpuinfo);
    compose_cpu_model(facts, cpu_model);
}

void read_memory_size(std::string& memory_size) {
    struct sysinfo memory = {};
    if (sysinfo(&memory) != 0) MACHINE_PROFILE_LOG("sysinfo failed: " + std::to_string(errno));
    memory_size =
        std::to_string(static_cast<unsigned long long>(memory.totalram) * memory.mem_unit);
}

bool read_display_adapters(const std::string& devices_folder,
                           const std::vector<std::string>& pci_ids_files,
                           std::vector<std::string>& models,
                           std::vector<std::string>& memory_sizes) {
    std::error_code error;
    std::vector<std::string> devices;
    for (const auto& entry : std::filesystem::directory_iterator(devices_folder, error))
        devices.push_back(entry.path().string());
    std::sort(devices.begin(), devices.end());  // bus order

    std::optional<std::string> pci_ids;  // read once, when the first adapter needs it
    bool pci_ids_tried = false;
    bool found = false;
    for (const auto& device : devices) {
        const auto device_class = file_text(device + "/class");
        if (!device_class || id_of(*device_class).compare(0, 2, "03") != 0) continue;
        const std::string vendor = id_of(file_text(device + "/vendor").value_or(""));
        const std::string product = id_of(file_text(device + "/device").value_or(""));
        if (!pci_ids_tried) {
            pci_ids_tried = true;
            for (const auto& file : pci_ids_files)
                if ((pci_ids = file_text(file))) break;
        }
        std::optional<std::string> name;
        if (pci_ids) name = pci_device_name(*pci_ids, vendor, product);
        models.push_back(name ? *name : "Device " + vendor + ":" + product);
        // Dedicated memory is exposed by some drivers only (amdgpu); 0 keeps
        // the two lists paired where it is not.
        const auto vram = file_text(device + "/mem_info_vram_total");
        memory_sizes.push_back(vram ? first_word(*vram) : "0");
        found = true;
    }
    return found;
}

bool read_display_adapters(std::vector<std::string>& models,
                           std::vector<std::string>& memory_sizes) {
    return read_display_adapters(
        "/sys/bus/pci/devices",
        {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids", "/usr/share/pci.ids"}, models,
        memory_sizes);
}

bool read_gpu_info(bool, std::vector<std::string>& models, std::vector<std::string>& memory_sizes) {
    return read_display_adapters(models, memory_sizes);
}

int read_default_browser(const desktop_directories& directories, std::string& browser_name,
                         std::string& browser_version) {
    const auto entry_path = default_browser_entry(directories);
    if (!entry_path) return -1;
    const std::string entry = file_text(*entry_path).value_or("");
    const auto name = key_file_value(entry, "Desktop Entry", "Name");
    if (!name) return -1;
    browser_name = *name;

    const std::string program = program_path(
        directories, program_of_exec(key_file_value(entry, "Desktop Entry", "Exec").value_or("")));
    MACHINE_PROFILE_LOG("default browser_path=" + program);
    if (program.empty()) return -1;
    std::error_code error;
    const auto real_program = std::filesystem::canonical(program, error);
    if (error) return -1;
    const auto application_ini = file_text(folder_of(real_program.string()) + "/application.ini");
    const auto version =
        application_ini ? key_file_value(*application_ini, "App", "Version") : std::nullopt;
    if (!version) return -1;
    browser_version = *version;
    return 0;
}

int read_default_browser(std::string& browser_name, std::string& browser_version) {
    return read_default_browser(desktop_directories::of_process(), browser_name, browser_version);
}

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
