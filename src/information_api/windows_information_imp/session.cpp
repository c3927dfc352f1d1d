#include <glog/logging.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QJsonDocument>

#include "record_document.h"
#include "record_file.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

const char* const uploader_application_name = "information_uploader";

}  // namespace

windows_information_imp::windows_information_imp()
    : system_settings_("./res/system.ini", QSettings::IniFormat), modern_os_(true) {
    QDir("./").mkdir("keploinfo");
    software_name = "keplo-express-software";
    enable_guide = 0;
    // The separate uploader process only lists, reads and sends records.
    if (QCoreApplication::applicationName() != uploader_application_name) start_session();
}

windows_information_imp::~windows_information_imp() {
    qDebug() << "~windows_information_imp";
    usage_document_["endOn"] = utc_now_text();
    // A session that never wrote its usage record has no file to rewrite.
    if (usage_file_path_.isEmpty()) return;
    write_record_file(usage_file_path_, QJsonDocument(usage_document_).toJson(), "usage");
}

void windows_information_imp::start_session() {
    start_time = QDateTime::currentDateTime();
    start_on = utc_now_text();
    end_on = start_on;
    run_probes();
}

void windows_information_imp::run_probes() {
    get_os_info(os_name, language, resolution);
    get_disk_info(install_path, disk_size, disk_free_size);
    get_cpu_info(cpu_cores, cpu_model);
    get_memory_size(memory_size);
    get_gpu_info(gpu_models, gpu_memory_sizes);
    get_browser_info(browser_name, browser_version);
}

void windows_information_imp::set_ple_file(const QString& path) {
    module_file = cut_module_file(path);
}

void windows_information_imp::reserved_10() {}

void windows_information_imp::reserved_16() {}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
