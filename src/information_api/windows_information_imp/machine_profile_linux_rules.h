#pragma once

// Pure rules behind the Linux machine profile: reading the texts that Linux
// keeps its facts in, and mapping them to the vocabulary of the Windows
// probes. Free of Qt and of platform calls.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

// The language identifier used for the C and POSIX locales: English (US).
constexpr std::uint16_t language_c_locale = 1033;
// The identifier of a locale whose language is not known: LANG_NEUTRAL.
constexpr std::uint16_t language_unknown = 0;

// Windows language identifier of a POSIX locale name such as "de_AT.UTF-8@euro".
// An unlisted territory falls back to the language's main territory; an
// unlisted language gives language_unknown.
std::uint16_t language_id_of_locale(const std::string& locale);

// Windows processor architecture code of a uname machine name such as
// "x86_64"; architecture_unknown when there is none.
std::uint16_t architecture_code_of_machine(const std::string& machine);

// The processor name in /proc/cpuinfo text: the first "model name" (x86), or
// else "Processor"/"cpu model"/"cpu" as other architectures name it.
std::optional<std::string> processor_name_of_cpuinfo(const std::string& cpuinfo);

// A value in a freedesktop key file (desktop entries, mimeapps.list) or an
// INI file: the first "key=value" line of the group "[group]", blanks around
// the "=" ignored.
std::optional<std::string> key_file_value(const std::string& text, const std::string& group,
                                          const std::string& key);

// The entries of a ";"-separated key file list, empty ones left out.
std::vector<std::string> key_file_list(const std::string& value);

// The program of a desktop entry's Exec line: its first word, quotes removed.
std::string program_of_exec(const std::string& exec);

// Vendor and device name from pci.ids text ("8086  Intel Corporation" /
// "\t1912  HD Graphics 530"), joined by a blank as lspci shows them. Ids are
// four lower-case hexadecimal digits. Missing when the vendor is not listed;
// the vendor alone when only the device is not.
std::optional<std::string> pci_device_name(const std::string& pci_ids, const std::string& vendor,
                                           const std::string& device);

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
