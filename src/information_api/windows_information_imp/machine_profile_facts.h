#pragma once

// Raw facts that the platform sources of the machine profile read, before the
// rules turn them into the texts of the session record. Free of Qt so that the
// Windows sources also build into a stand-alone console program.

#include <cstdint>
#include <optional>
#include <string>

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

// Version numbers from ntdll's RtlGetNtVersionNumbers; both 0 when ntdll
// loaded but the function is missing.
struct nt_version_facts {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
};

// What GetVersionExA (and GetSystemInfo after the long record) reported.
// Product type and architecture stay 0 when only the short record was read.
struct version_facts {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t platform_id = 0;
    std::uint8_t product_type = 0;
    std::uint16_t architecture = 0;
};

// Processor architecture codes as GetSystemInfo reports them.
constexpr std::uint16_t architecture_intel = 0;
constexpr std::uint16_t architecture_amd64 = 9;
constexpr std::uint16_t architecture_arm64 = 12;
constexpr std::uint16_t architecture_unknown = 0xFFFF;

struct processor_facts {
    std::uint16_t architecture = architecture_unknown;
    // Missing when the processor's description could not be opened at all.
    std::optional<std::string> name;
};

// Glog is not available to every build of the sources (the console check
// program has none), so whatever links them defines where their log lines go:
// the library sends them to glog with the caller's file and line.
void log_info(const char* file, int line, const std::string& text);
// The debug stream's lines: a label and a quoted value, as Qt prints a string.
void log_debug(const std::string& label, const std::string& value);

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner

#define MACHINE_PROFILE_LOG(text) \
    ::TarvoConsumerScanner::information_api::machine_profile::log_info(__FILE__, __LINE__, (text))
