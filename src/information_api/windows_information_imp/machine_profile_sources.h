#pragma once

// The machine profile as each platform reads it: one function per probe,
// texts in UTF-8 in the forms of the session record. Implemented by
// machine_profile_windows.cpp and machine_profile_linux.cpp; free of Qt.

#include <string>
#include <vector>

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

// Names the operating system into os_name (see the rules) and clears
// modern_os on an old system. False only when no version could be read.
bool read_os_name(std::string& os_name, bool& modern_os);

// The system default language identifier (a Windows LANGID) in decimal.
std::string read_system_language();

// The executable's folder ("/" separators); total and total free bytes of its
// drive, left as they were when the drive cannot be queried.
void read_disk_info(std::string& install_path, std::string& disk_size, std::string& disk_free_size);

// Logical processors in decimal; architecture name, ";", processor name.
void read_cpu_info(std::string& cpu_cores, std::string& cpu_model);

// Total physical memory in bytes, decimal ("0" when it cannot be read).
void read_memory_size(std::string& memory_size);

// Appends one description and one dedicated memory size (bytes, decimal) per
// display adapter. False when the adapters could not be enumerated at all.
bool read_display_adapters(std::vector<std::string>& models,
                           std::vector<std::string>& memory_sizes);

// The graphics probe: the adapter enumeration on a modern system, the older
// system's graphics service otherwise.
bool read_gpu_info(bool modern_os, std::vector<std::string>& models,
                   std::vector<std::string>& memory_sizes);

// The desktop's default web browser: its product name and version. On Windows
// the user's choice of http handler, its open command and the version
// resource of its executable; elsewhere the desktop entry of the default
// handler and, where it can be read without starting the browser, its
// version. Each value keeps its text until its own read succeeds. 0 when both
// were read, -1 otherwise.
int read_default_browser(std::string& browser_name, std::string& browser_version);

#ifdef _WIN32
// Product name and file version from the version resource of the browser's
// executable, with the same result rule.
int read_browser_version(const std::wstring& executable, std::string& browser_name,
                         std::string& browser_version);
#endif

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
