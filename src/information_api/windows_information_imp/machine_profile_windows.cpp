// The machine profile from the Windows kernel, registry, DXGI, WMI and version
// resources. Free of Qt: it also builds into the console check program.
#ifdef _WIN32

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
// The windows.h above must come first.
#include <dxgi.h>
#include <objbase.h>
#include <wbemidl.h>

#include <cstring>
#include <sstream>

#include "machine_profile_facts.h"
#include "machine_profile_rules.h"
#include "machine_profile_sources.h"

#ifdef _MSC_VER
#pragma warning(disable : 4996)  // GetVersionExA is the point of the second stage.
#endif

namespace TarvoConsumerScanner {
namespace information_api {
namespace machine_profile {

namespace {

// Sizes of the two version records the second stage tries, long one first.
constexpr DWORD extended_version_record_size = 156;  // OSVERSIONINFOEXA
constexpr DWORD short_version_record_size = 148;     // OSVERSIONINFOA
constexpr DWORD module_path_length = 1024;           // wide characters
constexpr DWORD processor_name_size = 256;           // bytes
constexpr DWORD memory_status_length = 64;           // MEMORYSTATUSEX
constexpr DWORD version_info_size = 6144;            // bytes

std::string utf8_of(const wchar_t* text, int length) {
    if (text == nullptr || length == 0) return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, length, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return {};
    std::string result(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, length, &result[0], size, nullptr, nullptr);
    if (length < 0) result.resize(static_cast<size_t>(size) - 1);  // the copied terminator
    return result;
}

std::string utf8_of(const std::wstring& text) {
    return utf8_of(text.data(), static_cast<int>(text.size()));
}

// HRESULTs are logged as eight hexadecimal digits, as Windows prints them.
std::string hex_of(HRESULT result) {
    std::ostringstream text;
    text << std::hex << static_cast<unsigned long>(static_cast<std::uint32_t>(result));
    return text.str();
}

void log_com_failure(const char* file, int line, const std::string& text, HRESULT result) {
    const std::string error_code = "Error code = 0x";
    const bool has_error_code =
        text.size() >= error_code.size() &&
        text.compare(text.size() - error_code.size(), error_code.size(), error_code) == 0;
    log_info(file, line, text + (has_error_code ? "" : error_code) + hex_of(result) + "\n");
}
#define MACHINE_PROFILE_COM_FAILURE(text, result) \
    log_com_failure(__FILE__, __LINE__, (text), (result))

// BSTRs for the WMI calls, freed when leaving the scope.
class bstr {
public:
    explicit bstr(const wchar_t* text) : value_(SysAllocString(text)) {}
    ~bstr() { SysFreeString(value_); }
    bstr(const bstr&) = delete;
    bstr& operator=(const bstr&) = delete;
    operator BSTR() const { return value_; }

private:
    BSTR value_;
};

version_facts read_version_facts(bool& ok) {
    OSVERSIONINFOEXA version;
    SYSTEM_INFO system;
    std::memset(&version, 0, sizeof version);
    std::memset(&system, 0, sizeof system);
    version.dwOSVersionInfoSize = extended_version_record_size;
    const BOOL extended = GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version));
    if (!extended) {
        version.dwOSVersionInfoSize = short_version_record_size;
        if (!GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&version))) {
            ok = false;
            return {};
        }
    } else {
        GetSystemInfo(&system);
    }
    ok = true;
    version_facts facts;
    facts.major = version.dwMajorVersion;
    facts.minor = version.dwMinorVersion;
    facts.platform_id = version.dwPlatformId;
    facts.product_type = version.wProductType;
    facts.architecture = system.wProcessorArchitecture;
    return facts;
}

// Reads one property of a WMI object; the value is zeroed first, so that a
// property without a value reads as 0.
bool get_property(IWbemClassObject* object, const wchar_t* name, VARIANT& value) {
    std::memset(&value, 0, sizeof value);
    return SUCCEEDED(object->Get(name, 0, &value, nullptr, nullptr));
}

void read_video_controller(IWbemClassObject* controller, std::vector<std::string>& models,
                           std::vector<std::string>& memory_sizes) {
    VARIANT availability, description, adapter_ram;
    if (get_property(controller, L"Availability", availability))
        MACHINE_PROFILE_LOG("Availability: " + std::to_string(availability.uintVal));
    else
        MACHINE_PROFILE_LOG("Availability falied ");

    if (get_property(controller, L"Description", description) && description.vt == VT_BSTR &&
        description.bstrVal != nullptr) {
        // The address, not the characters, is what this line has always shown.
        std::ostringstream line;
        line << "Description: " << static_cast<const void*>(description.bstrVal);
        MACHINE_PROFILE_LOG(line.str());
        models.push_back(
            utf8_of(description.bstrVal, static_cast<int>(SysStringLen(description.bstrVal))));
    } else {
        MACHINE_PROFILE_LOG("Description failed ");
    }

    if (get_property(controller, L"AdapterRAM", adapter_ram)) {
        memory_sizes.push_back(std::to_string(adapter_ram.uintVal));
        MACHINE_PROFILE_LOG("AdapterRAM: " + std::to_string(adapter_ram.uintVal));
    } else {
        MACHINE_PROFILE_LOG("AdapterRAM failed ");
    }

    VariantClear(&availability);
    VariantClear(&description);
    VariantClear(&adapter_ram);
}

// Releases a COM interface when leaving the scope.
template <typename Interface>
class com_pointer {
public:
    com_pointer() = default;
    ~com_pointer() {
        if (pointer_) pointer_->Release();
    }
    com_pointer(const com_pointer&) = delete;
    com_pointer& operator=(const com_pointer&) = delete;
    Interface* operator->() const { return pointer_; }
    Interface* get() const { return pointer_; }
    Interface** out() { return &pointer_; }
    void** out_void() { return reinterpret_cast<void**>(&pointer_); }

private:
    Interface* pointer_ = nullptr;
};

// Ends this thread's use of COM when leaving the scope, after the interfaces
// declared later are released.
struct com_uninitializer {
    com_uninitializer() = default;
    ~com_uninitializer() { CoUninitialize(); }
    com_uninitializer(const com_uninitializer&) = delete;
    com_uninitializer& operator=(const com_uninitializer&) = delete;
};

// The video controllers from WMI, for systems older than Vista.
bool read_video_controllers(std::vector<std::string>& models,
                            std::vector<std::string>& memory_sizes) {
    HRESULT result = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(result) && result != RPC_E_CHANGED_MODE && result != RPC_E_TOO_LATE) {
        MACHINE_PROFILE_COM_FAILURE("Failed to initialize COM library. ", result);
        return false;
    }
    // Also after RPC_E_CHANGED_MODE: the probe has always uninitialised once.
    const com_uninitializer uninitialize_com;

    result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                  RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (FAILED(result) && result != RPC_E_TOO_LATE && result != RPC_E_CHANGED_MODE) {
        MACHINE_PROFILE_COM_FAILURE("Failed to initialize security. ", result);
        return false;
    }

    com_pointer<IWbemLocator> locator;
    result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                              locator.out_void());
    if (FAILED(result)) {
        MACHINE_PROFILE_COM_FAILURE("Failed to create IWbemLocator object. ", result);
        return false;
    }

    com_pointer<IWbemServices> services;
    result = locator->ConnectServer(bstr(L"ROOT\\CIMV2"), nullptr, nullptr, nullptr, 0, nullptr,
                                    nullptr, services.out());
    if (FAILED(result)) {
        MACHINE_PROFILE_COM_FAILURE("Could not connect. Error code = 0x", result);
        return false;
    }
    MACHINE_PROFILE_LOG("Connected to ROOT\\CIMV2 WMI namespace\n");

    result =
        CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                          RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(result)) {
        MACHINE_PROFILE_COM_FAILURE("Could not set proxy blanket. Error code = 0x", result);
        return false;
    }

    com_pointer<IEnumWbemClassObject> controllers;
    result = services->ExecQuery(bstr(L"WQL"), bstr(L"SELECT * FROM Win32_VideoController"),
                                 WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY, nullptr,
                                 controllers.out());
    if (FAILED(result)) {
        MACHINE_PROFILE_COM_FAILURE("Query for processes failed. ", result);
        return false;
    }

    for (;;) {
        com_pointer<IWbemClassObject> controller;
        ULONG returned = 0;
        controllers->Next(static_cast<long>(WBEM_INFINITE), 1, controller.out(), &returned);
        if (returned == 0) break;
        read_video_controller(controller.get(), models, memory_sizes);
    }
    return true;
}

// A text value of the registry; empty when the key or the value is missing,
// as the settings reads of the browser lookup have always defaulted. A null
// name reads the key's default value.
std::wstring registry_text(HKEY root, const std::wstring& path, const wchar_t* name) {
    const DWORD types = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    DWORD size = 0;
    if (RegGetValueW(root, path.c_str(), name, types, nullptr, nullptr, &size) != ERROR_SUCCESS)
        return {};
    std::wstring value(size / sizeof(wchar_t) + 1, L'\0');
    size = static_cast<DWORD>(value.size() * sizeof(wchar_t));
    if (RegGetValueW(root, path.c_str(), name, types, nullptr, &value[0], &size) != ERROR_SUCCESS)
        return {};
    value.resize(wcsnlen(value.c_str(), value.size()));
    return value;
}

}  // namespace

bool read_os_name(std::string& os_name, bool& modern_os) {
    if (HMODULE ntdll = LoadLibraryA("ntdll.dll")) {
        DWORD major = 0, minor = 0, build = 0;
        using version_numbers = void(WINAPI*)(DWORD*, DWORD*, DWORD*);
        const auto get_version_numbers = reinterpret_cast<version_numbers>(
            reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetNtVersionNumbers")));
        if (get_version_numbers) get_version_numbers(&major, &minor, &build);
        const bool named = apply_nt_version({major, minor}, os_name, modern_os);
        FreeLibrary(ntdll);
        if (named) return true;
    }
    bool ok = false;
    const version_facts facts = read_version_facts(ok);
    if (!ok) return false;
    apply_version_table(facts, os_name, modern_os);
    return true;
}

std::string read_system_language() {
    return std::to_string(GetSystemDefaultLangID());
}

void read_disk_info(std::string& install_path, std::string& disk_size,
                    std::string& disk_free_size) {
    wchar_t executable[module_path_length];
    std::memset(executable, 0, sizeof executable);
    GetModuleFileNameW(nullptr, executable, module_path_length);
    const std::wstring folder = install_path_of(executable);
    install_path = utf8_of(folder);

    ULARGE_INTEGER available, total, total_free;
    if (GetDiskFreeSpaceExW(drive_of(folder).c_str(), &available, &total, &total_free)) {
        disk_size = std::to_string(total.QuadPart);
        disk_free_size = std::to_string(total_free.QuadPart);
    }
}

void read_cpu_info(std::string& cpu_cores, std::string& cpu_model) {
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    cpu_cores = std::to_string(system.dwNumberOfProcessors);

    processor_facts facts;
    facts.architecture = system.wProcessorArchitecture;
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0", 0,
                      KEY_QUERY_VALUE, &key) == ERROR_SUCCESS) {
        char name[processor_name_size];
        std::memset(name, 0, sizeof name);
        DWORD size = processor_name_size;
        // An unreadable name leaves the buffer empty, which is the same text.
        RegQueryValueExA(key, "ProcessorNameString", nullptr, nullptr,
                         reinterpret_cast<BYTE*>(name), &size);
        facts.name = std::string(name, strnlen(name, sizeof name));
        RegCloseKey(key);
    }
    compose_cpu_model(facts, cpu_model);
}

void read_memory_size(std::string& memory_size) {
    MEMORYSTATUSEX status;
    std::memset(&status, 0, sizeof status);
    status.dwLength = memory_status_length;
    if (!GlobalMemoryStatusEx(&status))
        MACHINE_PROFILE_LOG("GlobalMemoryStatusEx failed: " + std::to_string(GetLastError()));
    memory_size = std::to_string(status.ullTotalPhys);
}

bool read_display_adapters(std::vector<std::string>& models,
                           std::vector<std::string>& memory_sizes) {
    IDXGIFactory* factory = nullptr;
    if (FAILED(CreateDXGIFactory(__uuidof(IDXGIFactory), reinterpret_cast<void**>(&factory))))
        return false;

    // Software adapters count like any other.
    std::vector<IDXGIAdapter*> adapters;
    IDXGIAdapter* adapter = nullptr;
    for (UINT index = 0; SUCCEEDED(factory->EnumAdapters(index, &adapter)); ++index)
        adapters.push_back(adapter);

    for (IDXGIAdapter* each : adapters) {
        DXGI_ADAPTER_DESC description;
        std::memset(&description, 0, sizeof description);
        each->GetDesc(&description);
        const std::string model =
            utf8_of(description.Description,
                    static_cast<int>(wcsnlen(description.Description,
                                             sizeof description.Description / sizeof(wchar_t))));
        const std::string memory = std::to_string(description.DedicatedVideoMemory);
        MACHINE_PROFILE_LOG("系统视频内存:" +
                            std::to_string(description.DedicatedSystemMemory / 1024 / 1024));
        // Divided by 1204, not 1024: the figure has always been logged so.
        MACHINE_PROFILE_LOG("专用视频内存:" +
                            std::to_string(description.DedicatedVideoMemory / 1024 / 1204));
        MACHINE_PROFILE_LOG("共享系统内存:" +
                            std::to_string(description.SharedSystemMemory / 1024 / 1024));
        MACHINE_PROFILE_LOG("设备描述:" + model);
        models.push_back(model);
        memory_sizes.push_back(memory);
        each->Release();
    }
    factory->Release();
    return true;
}

bool read_gpu_info(bool modern_os, std::vector<std::string>& models,
                   std::vector<std::string>& memory_sizes) {
    if (!modern_os) return read_video_controllers(models, memory_sizes);
    const bool result = read_display_adapters(models, memory_sizes);
    // Balances no initialisation of this path; the probe has always ended so.
    CoUninitialize();
    return result;
}

int read_browser_version(const std::wstring& executable, std::string& browser_name,
                         std::string& browser_version) {
    char info[version_info_size];
    std::memset(info, 0, sizeof info);
    const BOOL ok = GetFileVersionInfoW(executable.c_str(), 0, version_info_size, info);
    {
        std::ostringstream line;
        line << "version_info=" << std::string(info, strnlen(info, sizeof info)) << "ret=" << ok
             << "last_error=" << GetLastError();
        MACHINE_PROFILE_LOG(line.str());
    }
    if (!ok) return -1;

    void* translation = nullptr;
    UINT length = 0;
    BOOL found = VerQueryValueW(info, L"\\VarFileInfo\\Translation", &translation, &length);
    {
        std::ostringstream line;
        line << "translation=" << translation << "ret=" << found << "last_error=" << GetLastError()
             << "puLen=" << length;
        MACHINE_PROFILE_LOG(line.str());
    }
    if (!found) return -1;
    const WORD language = static_cast<const WORD*>(translation)[0];
    const WORD code_page = static_cast<const WORD*>(translation)[1];

    // Reads one string of the resource into value; logs label with the value
    // as it stood before the query.
    auto query_string = [&](const wchar_t* format, const char* label, std::string& value) {
        wchar_t block[128];
        wsprintfW(block, format, language, code_page);
        void* text = nullptr;
        UINT text_length = 0;
        const BOOL read = VerQueryValueW(info, block, &text, &text_length);
        std::ostringstream line;
        line << label << value << "ret=" << read << "last_error=" << GetLastError()
             << "puLen=" << text_length;
        MACHINE_PROFILE_LOG(line.str());
        if (!read) return false;
        const auto* characters = static_cast<const wchar_t*>(text);
        value = utf8_of(characters, text_length > 0 ? static_cast<int>(text_length) - 1 : -1);
        return true;
    };
    if (!query_string(L"\\StringFileInfo\\%04x%04x\\ProductName", "default_brower=", browser_name))
        return -1;
    if (!query_string(L"\\StringFileInfo\\%04x%04x\\FileVersion", "version=", browser_version))
        return -1;
    return 0;
}

int read_default_browser(std::string& browser_name, std::string& browser_version) {
    const std::wstring progid = registry_text(
        HKEY_CURRENT_USER,
        L"Software\\Microsoft\\Windows\\Shell\\Associations\\UrlAssociations\\http\\UserChoice",
        L"Progid");
    log_debug("default browser=", utf8_of(progid));
    // Without a choice there is no handler key to read.
    const std::wstring command =
        progid.empty()
            ? std::wstring()
            : registry_text(HKEY_CLASSES_ROOT, progid + L"\\shell\\open\\command", nullptr);
    log_debug("default browser_path=", utf8_of(command));
    const std::wstring path = browser_executable_of(command);
    MACHINE_PROFILE_LOG("default browser_path=" + utf8_of(path));
    return read_browser_version(path, browser_name, browser_version);
}

}  // namespace machine_profile
}  // namespace information_api
}  // namespace TarvoConsumerScanner

#endif  // _WIN32
