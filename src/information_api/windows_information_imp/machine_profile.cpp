// PLACEHOLDER: machine profile probes (being built).
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

bool windows_information_imp::get_os_info(QString&, QString&, QString&) {
    return true;
}
bool windows_information_imp::get_disk_info(QString&, QString&, QString&) {
    return true;
}
bool windows_information_imp::get_cpu_info(QString&, QString&) {
    return true;
}
bool windows_information_imp::get_gpu_info(QStringList&, QStringList&) {
    return false;
}
bool windows_information_imp::get_memory_size(QString&) {
    return true;
}
int windows_information_imp::get_browser_info(QString&, QString&) {
    return -1;
}
bool windows_information_imp::get_os_name(QString&) {
    return false;
}
bool windows_information_imp::get_system_language(QString&) {
    return true;
}
bool windows_information_imp::enumerate_dxgi_adapters(QStringList&, QStringList&) {
    return false;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
