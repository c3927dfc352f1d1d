// Console program over the Windows machine-profile sources, built with a
// Windows cross compiler and run under Wine: prints what each probe read as
// "key=value" lines, and the sources' log lines as "log: " lines, for
// run_machine_profile_check.sh to check.
#include <windows.h>

#include <iostream>
#include <string>
#include <vector>

#include "machine_profile_facts.h"
#include "machine_profile_sources.h"

namespace profile = TarvoConsumerScanner::information_api::machine_profile;

namespace {

void report(const std::string& key, const std::string& value) {
    std::cout << key << '=' << value << '\n';
}

// Log lines may carry raw bytes (the version buffer's head): shown escaped.
void print_log_line(const std::string& text) {
    std::cout << "log: ";
    for (unsigned char c : text.substr(0, text.find_last_not_of('\n') + 1)) {
        if (c >= 0x20 && c != 0x7F)
            std::cout << c;
        else
            std::cout << "\\x"
                      << "0123456789abcdef"[c >> 4] << "0123456789abcdef"[c & 15];
    }
    std::cout << '\n';
}

}  // namespace

void profile::log_info(const char*, int, const std::string& text) {
    print_log_line(text);
}

void profile::log_debug(const std::string& label, const std::string& value) {
    print_log_line(label + " \"" + value + "\"");
}

int main() {
    std::string os_name, install_path, disk_size, disk_free_size, cpu_cores, cpu_model, memory;
    bool modern_os = true;
    report("os_name_result", std::to_string(profile::read_os_name(os_name, modern_os)));
    report("os_name", "[" + os_name + "]");
    report("modern_os", std::to_string(modern_os));
    report("language", profile::read_system_language());
    profile::read_disk_info(install_path, disk_size, disk_free_size);
    report("install_path", install_path);
    report("disk_size", disk_size);
    report("disk_free_size", disk_free_size);
    profile::read_cpu_info(cpu_cores, cpu_model);
    report("cpu_cores", cpu_cores);
    report("cpu_model", cpu_model);
    profile::read_memory_size(memory);
    report("memory_size", memory);
    std::vector<std::string> models, memory_sizes;
    report("gpu_result", std::to_string(profile::read_gpu_info(modern_os, models, memory_sizes)));
    report("gpu_models", std::to_string(models.size()));
    report("gpu_memory_sizes", std::to_string(memory_sizes.size()));
    // The browser probe as the library runs it: the user's choice, its open
    // command, the executable's version resource.
    std::string browser_name, browser_version;
    report("browser_result",
           std::to_string(profile::read_default_browser(browser_name, browser_version)));
    report("browser_name", browser_name);
    report("browser_version", browser_version);
}
