// PLACEHOLDER: record store and upload configuration (being built).
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

void windows_information_imp::delete_old_records() {}
int windows_information_imp::list_due_records(QStringList&) {
    return 0;
}
int windows_information_imp::get_connect_time() {
    return 20;
}
void windows_information_imp::get_upload_config(int&, int&, QString&, QString&) {}
int windows_information_imp::read_record_file(const QString&, QString&, QString&) {
    return -1;
}
void windows_information_imp::list_score_files(QStringList&) {}
void windows_information_imp::get_cdn_url(QString&) {}
void windows_information_imp::set_upload_urls(const QString&, const QString&) {}
void windows_information_imp::get_file_upload_url(QString&) {}
void windows_information_imp::set_file_upload_urls(const QString&, const QString&) {}
int windows_information_imp::system_setting(const char* key, int default_value) {
    return system_settings_.value(key, default_value).toInt();
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
