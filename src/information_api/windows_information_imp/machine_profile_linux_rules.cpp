#include "machine_profile_linux_rules.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <sstream>

#include "machine_profile_facts.h"

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

namespace {

struct locale_language {
    const char* locale;
    std::uint16_t language_id;
};

// The common locales. Within a language the main territory comes first: a
// territory not listed falls back to it.
const locale_language locale_languages[] = {
    {"en_US", 1033},  {"en_GB", 2057},  {"en_AU", 3081},  {"en_CA", 4105},  {"en_NZ", 5129},
    {"en_IE", 6153},  {"en_ZA", 7177},  {"en_IN", 16393}, {"en_SG", 18441}, {"zh_CN", 2052},
    {"zh_TW", 1028},  {"zh_HK", 3076},  {"zh_SG", 4100},  {"zh_MO", 5124},  {"ja_JP", 1041},
    {"ko_KR", 1042},  {"de_DE", 1031},  {"de_CH", 2055},  {"de_AT", 3079},  {"de_LU", 4103},
    {"de_LI", 5127},  {"fr_FR", 1036},  {"fr_BE", 2060},  {"fr_CA", 3084},  {"fr_CH", 4108},
    {"fr_LU", 5132},  {"es_ES", 3082},  {"es_MX", 2058},  {"es_AR", 11274}, {"es_CO", 9226},
    {"es_CL", 13322}, {"es_US", 21514}, {"it_IT", 1040},  {"it_CH", 2064},  {"pt_BR", 1046},
    {"pt_PT", 2070},  {"ru_RU", 1049},  {"nl_NL", 1043},  {"nl_BE", 2067},  {"pl_PL", 1045},
    {"tr_TR", 1055},  {"sv_SE", 1053},  {"sv_FI", 2077},  {"da_DK", 1030},  {"fi_FI", 1035},
    {"nb_NO", 1044},  {"nn_NO", 2068},  {"cs_CZ", 1029},  {"sk_SK", 1051},  {"hu_HU", 1038},
    {"ro_RO", 1048},  {"bg_BG", 1026},  {"hr_HR", 1050},  {"sl_SI", 1060},  {"sr_RS", 10266},
    {"uk_UA", 1058},  {"el_GR", 1032},  {"he_IL", 1037},  {"ar_SA", 1025},  {"ar_EG", 3073},
    {"ar_AE", 14337}, {"th_TH", 1054},  {"vi_VN", 1066},  {"id_ID", 1057},  {"ms_MY", 1086},
    {"hi_IN", 1081},  {"fa_IR", 1065},  {"et_EE", 1061},  {"lv_LV", 1062},  {"lt_LT", 1063},
    {"ca_ES", 1027},  {"eu_ES", 1069},  {"gl_ES", 1110},  {"is_IS", 1039},
};

std::string trimmed(const std::string& text) {
    const auto blank = [](unsigned char c) { return std::isspace(c) != 0; };
    const auto first = std::find_if_not(text.begin(), text.end(), blank);
    const auto last = std::find_if_not(text.rbegin(), text.rend(), blank).base();
    return first < last ? std::string(first, last) : std::string();
}

bool starts_with(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

std::uint16_t language_id_of_locale(const std::string& locale) {
    std::string name = locale.substr(0, locale.find_first_of(".@"));
    std::replace(name.begin(), name.end(), '-', '_');
    if (name.empty() || name == "C" || name == "POSIX") return language_c_locale;

    for (const auto& entry : locale_languages)
        if (name == entry.locale) return entry.language_id;
    const std::string language = name.substr(0, name.find('_')) + "_";
    for (const auto& entry : locale_languages)
        if (starts_with(entry.locale, language)) return entry.language_id;
    return language_unknown;
}

std::uint16_t architecture_code_of_machine(const std::string& machine) {
    if (machine == "x86_64" || machine == "amd64") return architecture_amd64;
    if (machine == "x86" || (machine.size() == 4 && machine[0] == 'i' && machine.substr(2) == "86"))
        return architecture_intel;
    if (machine == "aarch64" || machine == "arm64") return architecture_arm64;
    if (starts_with(machine, "arm")) return 5;                                     // ARM
    if (starts_with(machine, "mips")) return 1;                                    // MIPS
    if (starts_with(machine, "ppc") || starts_with(machine, "powerpc")) return 3;  // PPC
    if (machine == "ia64") return 6;                                               // IA64
    if (starts_with(machine, "alpha")) return 2;                                   // ALPHA
    if (starts_with(machine, "sh")) return 4;                                      // SHX
    return architecture_unknown;
}

std::optional<std::string> processor_name_of_cpuinfo(const std::string& cpuinfo) {
    static const char* const keys[] = {"model name", "Processor", "cpu model", "cpu"};
    std::optional<std::string> found[std::size(keys)];
    std::istringstream lines(cpuinfo);
    for (std::string line; std::getline(lines, line);) {
        const auto colon = line.find(':');
        if (colon == std::string::npos) continue;
        const std::string key = trimmed(line.substr(0, colon));
        for (size_t i = 0; i < std::size(keys); ++i)
            if (!found[i] && key == keys[i]) found[i] = trimmed(line.substr(colon + 1));
        if (found[0]) break;  // The x86 key is the one to prefer and comes early.
    }
    for (const auto& name : found)
        if (name) return name;
    return std::nullopt;
}

std::optional<std::string> key_file_value(const std::string& text, const std::string& group,
                                          const std::string& key) {
    const std::string header = "[" + group + "]";
    bool in_group = false;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::string entry = trimmed(line);
        if (entry.empty() || entry[0] == '#' || entry[0] == ';') continue;
        if (entry[0] == '[') {
            in_group = entry == header;
            continue;
        }
        const auto equals = entry.find('=');
        if (in_group && equals != std::string::npos && trimmed(entry.substr(0, equals)) == key)
            return trimmed(entry.substr(equals + 1));
    }
    return std::nullopt;
}

std::vector<std::string> key_file_list(const std::string& value) {
    std::vector<std::string> entries;
    std::istringstream items(value);
    for (std::string item; std::getline(items, item, ';');)
        if (!trimmed(item).empty()) entries.push_back(trimmed(item));
    return entries;
}

std::string program_of_exec(const std::string& exec) {
    const std::string command = trimmed(exec);
    if (!command.empty() && command[0] == '"') return command.substr(1, command.find('"', 1) - 1);
    return command.substr(0, command.find_first_of(" \t"));
}

std::optional<std::string> pci_device_name(const std::string& pci_ids, const std::string& vendor,
                                           const std::string& device) {
    const std::string vendor_line = vendor + "  ";
    size_t position = starts_with(pci_ids, vendor_line) ? 0 : pci_ids.find("\n" + vendor_line);
    if (position == std::string::npos) return std::nullopt;
    if (position > 0) ++position;

    std::istringstream lines(pci_ids.substr(position));
    std::string line;
    std::getline(lines, line);
    const std::string vendor_name = trimmed(line.substr(vendor_line.size()));
    const std::string device_line = "\t" + device + "  ";
    while (std::getline(lines, line)) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] != '\t') break;  // the next vendor
        if (starts_with(line, device_line))
            return vendor_name + " " + trimmed(line.substr(device_line.size()));
    }
    return vendor_name;
}

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner
