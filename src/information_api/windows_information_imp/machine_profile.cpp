// The machine profile probes of the manager: Qt texts around the platform
// sources (machine_profile_windows.cpp, machine_profile_linux.cpp).
#include <glog/logging.h>

#include <QApplication>
#include <QDebug>
#include <QDesktopWidget>
#include <QSize>
#include <string>
#include <vector>

#include "machine_profile_facts.h"
#include "machine_profile_rules.h"
#include "machine_profile_sources.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// A UTF-8 copy of one member for a source to rewrite; the member takes the
// copy's value back when the probe is done.
class utf8_slot {
public:
    explicit utf8_slot(QString& member) : member_(member), text_(member.toStdString()) {}
    ~utf8_slot() { member_ = QString::fromStdString(text_); }
    utf8_slot(const utf8_slot&) = delete;
    utf8_slot& operator=(const utf8_slot&) = delete;
    std::string& text() { return text_; }

private:
    QString& member_;
    std::string text_;
};

void append(QStringList& list, const std::vector<std::string>& texts) {
    for (const auto& text : texts) list.append(QString::fromStdString(text));
}

// The desktop widget spans every screen. Without a widget application there
// is no desktop to measure, and the size reads 0*0.
QSize desktop_size() {
    if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return QSize(0, 0);
    const QDesktopWidget* desktop = QApplication::desktop();
    return QSize(desktop->width(), desktop->height());
}

}  // namespace

// The platform sources log through glog, with their own file and line, and
// through the debug stream.
void machine_profile::log_info(const char* file, int line, const std::string& text) {
    google::LogMessage(file, line, google::GLOG_INFO).stream() << text;
}

void machine_profile::log_debug(const std::string& label, const std::string& value) {
    qDebug() << label.c_str() << QString::fromStdString(value);
}

bool windows_information_imp::get_os_info(QString& os_name, QString& language,
                                          QString& resolution) {
    get_os_name(os_name);
    const QSize size = desktop_size();
    get_system_language(language);
    resolution =
        QString::fromStdString(machine_profile::resolution_text(size.width(), size.height()));
    return true;
}

bool windows_information_imp::get_disk_info(QString& install_path, QString& disk_size,
                                            QString& disk_free_size) {
    utf8_slot path(install_path), size(disk_size), free_size(disk_free_size);
    machine_profile::read_disk_info(path.text(), size.text(), free_size.text());
    return true;
}

bool windows_information_imp::get_cpu_info(QString& cpu_cores, QString& cpu_model) {
    utf8_slot cores(cpu_cores), model(cpu_model);
    machine_profile::read_cpu_info(cores.text(), model.text());
    return true;
}

bool windows_information_imp::get_gpu_info(QStringList& gpu_models, QStringList& gpu_memory_sizes) {
    std::vector<std::string> models, memory_sizes;
    const bool result = machine_profile::read_gpu_info(modern_os_, models, memory_sizes);
    append(gpu_models, models);
    append(gpu_memory_sizes, memory_sizes);
    return result;
}

bool windows_information_imp::get_memory_size(QString& memory_size) {
    utf8_slot size(memory_size);
    machine_profile::read_memory_size(size.text());
    return true;
}

int windows_information_imp::get_browser_info(QString& browser_name, QString& browser_version) {
    utf8_slot name(browser_name), version(browser_version);
    return machine_profile::read_default_browser(name.text(), version.text());
}

bool windows_information_imp::get_os_name(QString& os_name) {
    utf8_slot name(os_name);
    return machine_profile::read_os_name(name.text(), modern_os_);
}

bool windows_information_imp::get_system_language(QString& language) {
    language = QString::fromStdString(machine_profile::read_system_language());
    return true;
}

bool windows_information_imp::enumerate_dxgi_adapters(QStringList& gpu_models,
                                                      QStringList& gpu_memory_sizes) {
    std::vector<std::string> models, memory_sizes;
    const bool result = machine_profile::read_display_adapters(models, memory_sizes);
    append(gpu_models, models);
    append(gpu_memory_sizes, memory_sizes);
    return result;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
