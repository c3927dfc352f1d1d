#include <QDebug>
#include <QSettings>
#include <QVariant>

#include "default_endpoints.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

const char* const test_app_id = "3c1f9a7e55d04b28a6e2f0b9d4c87a13";
const char* const release_app_id = "a94e07b3c2d851f6e0b7a4c39d2f6e58";

}  // namespace

int windows_information_imp::system_setting(const char* key, int default_value) {
    return system_settings_.value(key, default_value).toInt();
}

bool windows_information_imp::test_service() {
    return system_setting("test", 0) != 0;
}

void windows_information_imp::get_upload_config(int& enable, int& interval, QString& address,
                                                QString& app_id) {
    enable = system_setting("enable", 0);
    interval = system_setting("time_intval", 60);
    if (test_service()) {
        address = test_upload_url_;
        app_id = test_app_id;
        return;
    }
    qDebug() << "get_upload_config _release_url=" << release_upload_url_;
    if (release_upload_url_.isEmpty()) {
        // Looked up once: the address stays set for the manager's lifetime
        // unless the file names an empty one.
        const QSettings url_config("./url_config.ini", QSettings::IniFormat);
        release_upload_url_ =
            url_config.value("upload_url", INFORMATION_API_RELEASE_SERVICE_URL).toString();
        qDebug() << "url_config.ini get_upload_config _release_url=" << release_upload_url_;
    }
    address = release_upload_url_;
    app_id = release_app_id;
}

void windows_information_imp::get_file_upload_url(QString& out) {
    out = test_service() ? test_file_upload_url_ : release_file_upload_url_;
    // Deliberately the test service when no address was set, in release mode
    // too.
    if (out.isEmpty()) out = INFORMATION_API_TEST_UPLOAD_URL;
}

void windows_information_imp::get_cdn_url(QString& out) {
    // The CDN address does not depend on the "test" switch.
    out = INFORMATION_API_CDN_URL;
}

int windows_information_imp::get_connect_time() {
    return system_setting("connect_time", 20);
}

void windows_information_imp::set_upload_urls(const QString& release_url, const QString& test_url) {
    release_upload_url_ = release_url;
    test_upload_url_ = test_url;
}

void windows_information_imp::set_file_upload_urls(const QString& release_url,
                                                   const QString& test_url) {
    release_file_upload_url_ = release_url;
    test_file_upload_url_ = test_url;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
