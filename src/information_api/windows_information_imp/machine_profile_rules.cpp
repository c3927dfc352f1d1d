#include "machine_profile_rules.h"

#include <algorithm>
#include <iterator>

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

namespace {

constexpr std::uint32_t platform_windows_9x = 1;  // VER_PLATFORM_WIN32_WINDOWS
constexpr std::uint32_t platform_nt = 2;          // VER_PLATFORM_WIN32_NT
constexpr std::uint8_t product_workstation = 1;   // VER_NT_WORKSTATION
constexpr int any_minor = -1;

enum class condition { none, workstation, server, workstation_on_amd64 };
enum class action { set, append };

struct os_name_row {
    std::uint32_t platform;
    std::uint32_t lowest_major;
    std::uint32_t highest_major;
    int minor;
    condition when;
    action how;
    const char* text;
};

// First matching row wins. Every server of major 6 or 10 reports the Longhorn
// name; the reported vocabulary depends on that grouping, so it stays.
const os_name_row os_name_table[] = {
    {platform_windows_9x, 4, 4, 0, condition::none, action::set, "Windows95 64"},
    {platform_windows_9x, 4, 4, 10, condition::none, action::set, "Windows98 64"},
    {platform_windows_9x, 4, 4, 90, condition::none, action::set, "WindowsMillenniumEdition 64"},
    {platform_nt, 6, 6, 0, condition::workstation, action::set, "WindowsVista 64"},
    {platform_nt, 6, 6, 0, condition::server, action::set, "WindowsServer\"Longhorn\" 64"},
    {platform_nt, 6, 6, 1, condition::workstation, action::set, "Windows7 64"},
    {platform_nt, 6, 6, 1, condition::server, action::set, "WindowsServer\"Longhorn\" 64"},
    {platform_nt, 6, 6, 3, condition::workstation, action::set, "Windows8 64"},
    {platform_nt, 6, 6, 3, condition::server, action::set, "WindowsServer\"Longhorn\" 64"},
    {platform_nt, 10, 10, any_minor, condition::workstation, action::set, "Windows10 64"},
    {platform_nt, 10, 10, any_minor, condition::server, action::set,
     "WindowsServer\"Longhorn\" 64"},
    // The trailing space of the XP x64 name is what the service has always
    // received.
    {platform_nt, 5, 5, 2, condition::workstation_on_amd64, action::set, "WindowsXP 64 "},
    {platform_nt, 5, 5, 2, condition::none, action::set, "WindowsServer2003 64"},
    {platform_nt, 5, 5, 1, condition::none, action::set, "WindowsXP 64"},
    {platform_nt, 5, 5, 0, condition::none, action::set, "Windows2000 64"},
    {platform_nt, 0, 4, any_minor, condition::none, action::append, "WindowsNT 64"},
};

bool holds(condition when, const version_facts& facts) {
    const bool workstation = facts.product_type == product_workstation;
    switch (when) {
        case condition::none:
            return true;
        case condition::workstation:
            return workstation;
        case condition::server:
            return !workstation;
        case condition::workstation_on_amd64:
            return workstation && facts.architecture == architecture_amd64;
    }
    return false;
}

bool matches(const os_name_row& row, const version_facts& facts) {
    return row.platform == facts.platform_id && facts.major >= row.lowest_major &&
           facts.major <= row.highest_major &&
           (row.minor == any_minor || static_cast<std::uint32_t>(row.minor) == facts.minor) &&
           holds(row.when, facts);
}

const char* const architecture_names[] = {
    "INTEL", "MIPS",    "ALPHA", "PPC",   "SHX",           "ARM",
    "IA64",  "ALPHA64", "MSIL",  "AMD64", "IA32_ON_WIN64", "NEUTRAL",
};

}  // namespace

bool apply_nt_version(const nt_version_facts& facts, std::string& os_name, bool& modern_os) {
    if (facts.major < 6) modern_os = false;
    if (facts.major == 6 && facts.minor == 3)
        os_name += "Windows8 64";
    else if (facts.major == 10)
        os_name += "Windows10 64";
    return !os_name.empty();
}

void apply_version_table(const version_facts& facts, std::string& os_name, bool& modern_os) {
    if (facts.major < 6) modern_os = false;
    const auto row = std::find_if(std::begin(os_name_table), std::end(os_name_table),
                                  [&](const os_name_row& r) { return matches(r, facts); });
    if (row == std::end(os_name_table)) return;
    if (row->how == action::set)
        os_name = row->text;
    else
        os_name += row->text;
}

const char* architecture_name(std::uint16_t code) {
    if (code >= std::size(architecture_names)) return nullptr;
    return architecture_names[code];
}

void compose_cpu_model(const processor_facts& facts, std::string& cpu_model) {
    if (const char* name = architecture_name(facts.architecture)) cpu_model = name;
    cpu_model += ';';
    if (facts.name) cpu_model += *facts.name;
}

std::wstring install_path_of(const std::wstring& executable_path) {
    std::wstring path = executable_path;
    const auto separator = path.rfind(L'\\');
    if (separator != std::wstring::npos && separator > 0) path.resize(separator);
    std::replace(path.begin(), path.end(), L'\\', L'/');
    return path;
}

std::wstring drive_of(const std::wstring& install_path) {
    return install_path.substr(0, 2);
}

std::wstring browser_executable_of(const std::wstring& command) {
    std::wstring path = command;
    const auto quote = path.find(L'"', 1);
    if (quote != std::wstring::npos && quote > 0) path.resize(quote);
    path.erase(std::remove(path.begin(), path.end(), L'"'), path.end());
    return path;
}

std::string resolution_text(int width, int height) {
    return std::to_string(width) + "*" + std::to_string(height);
}

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
