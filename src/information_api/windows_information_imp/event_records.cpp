// One record file per event the host reports: scan, share, score, feedback.
// (Calibration records live with the usage document.)
#include <QJsonArray>
#include <QJsonObject>

#include "record_document.h"
#include "record_file.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

QJsonObject scan_step(const scan_step_t& step) {
    QJsonObject object;
    object["startOn"] = step.start_on;
    object["endOn"] = step.end_on;
    object["classsify"] = step.classify;
    object["hdr"] = step.hdr;
    object["turntableSteps"] = step.turntable_steps;
    object["modular"] = step.module;
    object["alignMode"] = QJsonArray::fromStringList(step.align_modes);
    return object;
}

QJsonObject scan_content(const scan_description_t& scan) {
    QJsonObject content;
    // A scan without steps has no "mode" at all, not an empty one.
    if (!scan.steps.isEmpty()) {
        QJsonArray steps;
        for (const scan_step_t& step : scan.steps) steps.append(scan_step(step));
        content["mode"] = steps;
    }
    content["texture"] = scan.texture;
    content["totalPoint"] = scan.total_points.toInt();
    content["pointDis"] = scan.point_distance.toFloat();
    content["handHeldPointGenWay"] = scan.hand_held_point_gen_way;
    content["meshType"] = scan.mesh_type;
    content["fileName"] = scan.file_name;

    QJsonObject box;
    box["length"] = scan.length.toFloat();
    box["width"] = scan.width.toFloat();
    box["height"] = scan.height.toFloat();
    content["box"] = box;
    return content;
}

}  // namespace

void windows_information_imp::record_scan(const scan_description_t& description, int enable_guide) {
    module_file = description.module_file;
    model_name = description.model_name;
    modular_name = description.modular_name;
    software_version = description.software_version;
    start_on = description.start_on;
    end_on = description.end_on;
    modular_files = description.modular_files;
    this->enable_guide = enable_guide;

    write_event_record(*this, "scan", scan_content(description), record_name_format::scan, "info2");
}

void windows_information_imp::record_share(const QString& module_file, const QString& model_name,
                                           const QString& modular_name, const QString& start_on,
                                           const QString& end_on, const QString& target,
                                           const QString& name, const QString& account,
                                           int enable_guide) {
    // The software version stays as the last record left it.
    this->module_file = module_file;
    this->model_name = model_name;
    this->modular_name = modular_name;
    this->start_on = start_on;
    this->end_on = end_on;
    this->enable_guide = enable_guide;

    QJsonObject content;
    content["target"] = target;
    content["name"] = name;
    content["account"] = account;
    write_event_record(*this, "share", content, record_name_format::share, "info2");
}

QString windows_information_imp::record_score(const QString& score, const QString& module_file,
                                              const QString& software_version,
                                              const QString& model_name,
                                              const QString& modular_name, const QString& industry,
                                              int enable_guide) {
    this->enable_guide = enable_guide;
    this->model_name = model_name;
    this->modular_name = modular_name;
    modular_files.clear();
    this->module_file = cut_module_file(module_file);
    this->software_version = software_version;
    start_on = utc_now_text();
    end_on = start_on;

    QJsonObject content;
    content["score"] = score.toInt();
    content["industry"] = industry;
    return write_event_record(*this, "score", content, record_name_format::score, "score2");
}

QString windows_information_imp::record_feedback(
    const QString& module_file, const QString& software_version, const QString& model_name,
    const QString& modular_name, const QStringList& modular_files, int enable_guide,
    const QString& email, const QString& industry, const QString& text,
    const QStringList& attachments) {
    this->enable_guide = enable_guide;
    this->model_name = model_name;
    this->modular_name = modular_name;
    this->modular_files = modular_files;
    this->module_file = cut_module_file(module_file);
    this->software_version = software_version;
    start_on = utc_now_text();
    end_on = start_on;

    QJsonObject content;
    content["email"] = email;
    content["industry"] = industry;
    content["content"] = text;
    content["attachs"] = QJsonArray::fromStringList(attachments);
    return write_event_record(*this, "feedback", content, record_name_format::feedback, "info2");
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
