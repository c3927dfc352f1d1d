#pragma once

// Rules that turn the raw machine facts into the texts of the session record.
// Plain functions without platform calls, shared by every platform source.

#include <cstdint>
#include <string>

#include "machine_profile_facts.h"

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

// First stage of the OS name: only 6.3 and 10.x are named (appended); a major
// version below 6 clears modern_os. True when os_name is not empty afterwards.
bool apply_nt_version(const nt_version_facts& facts, std::string& os_name, bool& modern_os);

// Second stage: the version table. Sets or appends the name of the first
// matching row, leaves os_name alone when none matches; a major version below
// 6 clears modern_os.
void apply_version_table(const version_facts& facts, std::string& os_name, bool& modern_os);

// Name of a processor architecture code, or nullptr for a code without one.
const char* architecture_name(std::uint16_t code);

// cpu_model becomes the architecture name (kept as it was for an unknown
// code), then ";", then the processor name when there is one.
void compose_cpu_model(const processor_facts& facts, std::string& cpu_model);

// The executable's folder without its last separator, with "/" separators.
std::wstring install_path_of(const std::wstring& executable_path);

// The drive part of an install path: its first two characters.
std::wstring drive_of(const std::wstring& install_path);

// The executable of a shell open command: cut at the first quote after the
// first character, then every quote removed.
std::wstring browser_executable_of(const std::wstring& command);

// "width*height".
std::string resolution_text(int width, int height);

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
