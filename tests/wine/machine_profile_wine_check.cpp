// Console check of the Windows machine-profile sources, built with a Windows
// cross compiler and run under Wine. Prints what each probe read as
// "key=value" lines, then checks them: against the "key=value" expectations
// given on the command line, and against the forms every machine must give.
// Exits 0 when every check holds.
#include <windows.h>

#include <cstdlib>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "machine_profile_facts.h"
#include "machine_profile_rules.h"
#include "machine_profile_sources.h"

namespace profile = TarvoConsumerScanner::information_api::machine_profile;

namespace {

std::map<std::string, std::string> results;
int failures = 0;

void report(const std::string& key, const std::string& value) {
    results[key] = value;
    std::cout << key << '=' << value << '\n';
}

void fail(const std::string& text) {
    ++failures;
    std::cout << "FAIL: " << text << '\n';
}

// Log lines may carry raw bytes (the version buffer's head): shown escaped.
void print_log_line(const char*, int, const std::string& text) {
    std::string line = text;
    while (!line.empty() && line.back() == '\n') line.pop_back();
    std::cout << "log: ";
    for (unsigned char c : line) {
        if (c >= 0x20 && c != 0x7F) {
            std::cout << c;
        } else {
            const char* digits = "0123456789abcdef";
            std::cout << "\\x" << digits[c >> 4] << digits[c & 15];
        }
    }
    std::cout << '\n';
}

unsigned long long number_of(const std::string& key) {
    const std::string& text = results[key];
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0') fail(key + " is not a decimal number: [" + text + "]");
    return value;
}

void check_forms() {
    if (number_of("memory_size") == 0) fail("memory_size is 0");
    const auto disk_size = number_of("disk_size");
    const auto disk_free_size = number_of("disk_free_size");
    if (disk_size == 0) fail("disk_size is 0");
    if (disk_free_size == 0 || disk_free_size > disk_size) fail("disk_free_size out of range");
    if (number_of("cpu_cores") == 0) fail("cpu_cores is 0");
    const std::string& install_path = results["install_path"];
    if (install_path.find('\\') != std::string::npos || install_path.find('/') == std::string::npos)
        fail("install_path without / separators: " + install_path);
    const std::string& cpu_model = results["cpu_model"];
    if (cpu_model.rfind("AMD64;", 0) != 0 || cpu_model.size() <= 6)
        fail("cpu_model is not AMD64; and a processor name: " + cpu_model);
    if (results["gpu_models"] != results["gpu_memory_sizes"])
        fail("gpu models and memory sizes differ in number");
    if (results["browser_result"] == "0" &&
        (results["browser_name"].empty() || results["browser_version"].empty()))
        fail("browser found without its name and version");
}

}  // namespace

// Where the sources' log lines go in this program: the output, escaped.
void profile::log_info(const char* file, int line, const std::string& text) {
    print_log_line(file, line, text);
}

void profile::log_debug(const std::string& label, const std::string& value) {
    print_log_line(nullptr, 0, label + " \"" + value + "\"");
}

int main(int argc, char** argv) {
    std::string os_name;
    bool modern_os = true;
    report("os_name_result", std::to_string(profile::read_os_name(os_name, modern_os)));
    report("os_name", "[" + os_name + "]");
    report("modern_os", std::to_string(modern_os));
    report("language", profile::read_system_language());

    std::string install_path, disk_size, disk_free_size;
    profile::read_disk_info(install_path, disk_size, disk_free_size);
    report("install_path", install_path);
    report("disk_size", disk_size);
    report("disk_free_size", disk_free_size);

    std::string cpu_cores, cpu_model;
    profile::read_cpu_info(cpu_cores, cpu_model);
    report("cpu_cores", cpu_cores);
    report("cpu_model", cpu_model);

    std::string memory_size;
    profile::read_memory_size(memory_size);
    report("memory_size", memory_size);

    std::vector<std::string> models, memory_sizes;
    report("gpu_result", std::to_string(profile::read_gpu_info(modern_os, models, memory_sizes)));
    report("gpu_models", std::to_string(models.size()));
    report("gpu_memory_sizes", std::to_string(memory_sizes.size()));
    for (size_t i = 0; i < models.size(); ++i) report("gpu_model." + std::to_string(i), models[i]);
    for (size_t i = 0; i < memory_sizes.size(); ++i)
        report("gpu_memory_size." + std::to_string(i), memory_sizes[i]);

    // The browser probe as the library runs it: the user's choice, its open
    // command, the executable's version resource.
    std::string browser_name, browser_version;
    report("browser_result",
           std::to_string(profile::read_default_browser(browser_name, browser_version)));
    report("browser_name", browser_name);
    report("browser_version", browser_version);
    check_forms();
    for (int i = 1; i < argc; ++i) {
        const std::string expectation = argv[i];
        const auto equals = expectation.find('=');
        const std::string key = expectation.substr(0, equals);
        const std::string value = equals == std::string::npos ? "" : expectation.substr(equals + 1);
        if (results.count(key) == 0)
            fail("no result named " + key);
        else if (results[key] != value)
            fail(key + " is [" + results[key] + "], expected [" + value + "]");
    }
    std::cout << (failures == 0 ? "all checks passed" : "checks failed") << std::endl;
    return failures == 0 ? 0 : 1;
}
