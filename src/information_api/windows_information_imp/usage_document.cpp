// The usage document every record carries, the session's usage record and the
// calibration record.
#include <glog/logging.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdio>

#include "record_document.h"
#include "record_file.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// Decimal member texts become whole numbers; anything else is 0.
QJsonValue whole_number(const QString& decimal) {
    return QJsonValue(decimal.toLongLong());
}

QJsonObject software_environment(const KeploInfoMgr& session) {
    QJsonObject browser;
    browser["name"] = session.browser_name;
    browser["ver"] = session.browser_version;

    QJsonObject environment;
    environment["osName"] = session.os_name;
    environment["lang"] = session.language;
    environment["resolution"] = session.resolution;
    environment["installPath"] = session.install_path;
    environment["browser"] = browser;
    return environment;
}

QJsonObject hardware(const KeploInfoMgr& session) {
    QJsonObject cpu;
    cpu["cpuCores"] = session.cpu_cores.toInt();
    cpu["cpuModel"] = session.cpu_model;

    // Memory sizes pair with models by index; a model without one has no size.
    QJsonArray gpus;
    for (int i = 0; i < session.gpu_models.size(); ++i) {
        QJsonObject gpu;
        gpu["gpuModel"] = session.gpu_models[i];
        if (i < session.gpu_memory_sizes.size())
            gpu["gpuMemSize"] = whole_number(session.gpu_memory_sizes[i]);
        gpus.append(gpu);
    }

    QJsonObject hardware;
    hardware["cpu"] = QJsonArray{cpu};
    hardware["memSize"] = whole_number(session.memory_size);
    hardware["gpu"] = gpus;
    hardware["hddSize"] = whole_number(session.disk_size);
    hardware["hddRemainSize"] = whole_number(session.disk_free_size);
    return hardware;
}

QJsonObject module_entry(const QString& modular_name, const QString& module_file) {
    QJsonObject entry;
    entry["name"] = modular_name;
    entry["sn"] = QString();
    entry["mple"] = module_file;
    return entry;
}

// Fills the target's module object rather than a fresh one: a session whose
// usage record is rewritten without modules keeps reporting the earlier ones.
QJsonObject modules(const KeploInfoMgr& session, QJsonObject modules) {
    modules["ple"] = session.module_file;
    LOG(INFO) << "modular=" << session.modular_name.toStdString()
              << "modular_ple.size=" << session.modular_files.size();

    // The first module is reported even when its file is empty; later empty
    // ones are dropped. The asymmetry is deliberate: keep it.
    QJsonArray entries;
    for (int i = 0; i < session.modular_files.size(); ++i) {
        if (i == 0 || !session.modular_files[i].isEmpty())
            entries.append(module_entry(session.modular_name, session.modular_files[i]));
    }
    if (!session.modular_name.isEmpty() && session.modular_files.isEmpty())
        entries.append(module_entry(session.modular_name, QString()));
    if (!entries.isEmpty()) modules["modular"] = entries;
    return modules;
}

QJsonArray calibration_items(const QStringList& modules, const QStringList& classes,
                             const QStringList& starts, const QStringList& ends,
                             const QStringList& results) {
    // The host passes parallel lists; item i takes entry i of each, and an
    // empty text where a list is shorter than the classes.
    QJsonArray items;
    for (int i = 0; i < classes.size(); ++i) {
        QJsonObject item;
        item["classsify"] = classes[i];
        item["startOn"] = starts.value(i);
        item["endOn"] = ends.value(i);
        item["result"] = results.value(i);
        item["modular"] = modules.value(i);
        items.append(item);
    }
    return items;
}

}  // namespace

void windows_information_imp::build_usage_document(QJsonObject& target) {
    target["modelName"] = model_name;
    target["seriaNum"] = serial_number;
    target["softwareName"] = software_name;
    target["softwareVer"] = software_version;
    target["tracingType"] = QStringLiteral("usage");
    target["endOn"] = end_on;
    target["startOn"] = start_on;
    target["enableGuide"] = enable_guide == 1 ? QStringLiteral("yes") : QStringLiteral("no");
    target["osSoftExt"] = software_environment(*this);
    target["osHdExt"] = hardware(*this);
    target["modularExt"] = modules(*this, target["modularExt"].toObject());
}

void windows_information_imp::create_usage_info(const QString& module_file,
                                                const QString& software_version,
                                                const QString& model_name,
                                                const QString& modular_name, int enable_guide) {
    LOG(INFO) << "create_usage_inifo 0";
    this->module_file = module_file;
    this->software_version = software_version;
    this->model_name = model_name;
    this->modular_name = modular_name;
    modular_files.clear();
    this->enable_guide = enable_guide;

    // The kept document is filled, not replaced: keys the builder leaves out
    // this time keep the values of an earlier call.
    build_usage_document(usage_document_);
    usage_file_path_ = record_path(start_time.toString(record_name_format::usage), "info2");
    write_record_file(usage_file_path_, QJsonDocument(usage_document_).toJson(), "usage");
    printf("\r\n create_usage_inifo=%s ", usage_file_path_.toUtf8().constData());
    LOG(INFO) << "create_usage_inifo 1";
}

void windows_information_imp::record_calibration(
    const QStringList& item_modules, const QString& software_version, const QString& module_file,
    const QString& model_name, const QString& modular_name, const QStringList& modular_files,
    const QString& start_on, const QString& end_on, const QStringList& item_classes,
    const QStringList& item_starts, const QStringList& item_ends, const QStringList& item_results,
    int enable_guide) {
    this->enable_guide = enable_guide;
    this->software_version = software_version;
    this->module_file = module_file;
    this->model_name = model_name;
    this->modular_name = modular_name;
    this->modular_files = modular_files;
    LOG(INFO) << "modular=" << modular_name.toStdString()
              << "device_ex_ple.size=" << modular_files.size();
    this->start_on = start_on;
    this->end_on = end_on;

    write_event_record(
        *this, "calibration",
        calibration_items(item_modules, item_classes, item_starts, item_ends, item_results),
        record_name_format::calibration, "info2");
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
