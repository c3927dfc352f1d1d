#include "collector_service.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QUuid>
#include <memory>

namespace {

const char* const json_type = "application/json;charset=utf-8";

QString utc_now_text() {
    return QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
}

// {"status":...} first and "result" after it, as the service writes its
// answers (QJsonObject would sort the keys).
void answer(httplib::Response& res, const char* status, const QJsonValue& result,
            int http_status = 200) {
    QByteArray body = QByteArray("{\"status\":\"") + status + "\"";
    if (!result.isUndefined()) {
        const QByteArray wrapped = QJsonDocument(QJsonArray{result}).toJson(QJsonDocument::Compact);
        body += ",\"result\":" + wrapped.mid(1, wrapped.size() - 2);
    }
    body += "}";
    res.status = http_status;
    res.set_content(body.toStdString(), json_type);
}

void answer_success(httplib::Response& res, const QJsonValue& result = QJsonValue::Undefined) {
    answer(res, "success", result);
}

void answer_failed(httplib::Response& res, const QString& why, int http_status = 200) {
    answer(res, "failed", why, http_status);
}

QString param(const httplib::Request& req, const char* key) {
    return QString::fromStdString(req.get_param_value(key));
}

// The part of a request path below a served folder, or an empty text when the
// path would leave the folder.
QString path_below(const QString& folder, const std::string& relative) {
    const QString rel = QString::fromStdString(relative);
    if (folder.isEmpty() || rel.isEmpty()) return QString();
    for (const QString& part : rel.split('/'))
        if (part.isEmpty() || part == "." || part == "..") return QString();
    return QDir(folder).filePath(rel);
}

}  // namespace

QStringList default_app_ids() {
    return {"3c1f9a7e55d04b28a6e2f0b9d4c87a13", "a94e07b3c2d851f6e0b7a4c39d2f6e58"};
}

collector_service::collector_service(collector_config config, collector_database& database)
    : config_(std::move(config)), database_(database) {}

void collector_service::install(httplib::Server& server) {
    server.Post(".*",
                [this](const httplib::Request& req, httplib::Response& res) { on_post(req, res); });
    server.Get(R"(/software/([^/]+)/interface\.json)",
               [this](const httplib::Request& req, httplib::Response& res) {
                   serve_descriptor(req, res);
               });
    server.Get(R"(/files/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
        serve_file(req, res);
    });
    // Unrouted requests get a JSON body like every other refusal.
    server.set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty() && res.status == 404) answer_failed(res, "not found", 404);
    });
}

bool collector_service::known_app_id(const std::string& app_id) const {
    return config_.app_ids.contains(QString::fromStdString(app_id));
}

void collector_service::on_post(const httplib::Request& req, httplib::Response& res) {
    if (req.is_multipart_form_data())
        accept_file(req, res);
    else
        accept_information(req, res);
}

void collector_service::accept_information(const httplib::Request& req, httplib::Response& res) {
    const std::string app_id = req.get_header_value("X-Auth-AppID");
    if (!known_app_id(app_id)) return answer_failed(res, "unknown application id");
    QJsonParseError parse_error;
    QJsonDocument::fromJson(QByteArray::fromStdString(req.body), &parse_error);
    if (parse_error.error != QJsonParseError::NoError)
        return answer_failed(res, "body is not JSON: " + parse_error.errorString());
    const QString type = param(req, "type");
    if (type.isEmpty()) return answer_failed(res, "no type given");

    QString error;
    if (!database_.add_information({utc_now_text(), QString::fromStdString(app_id), type,
                                    QString::fromStdString(req.body)},
                                   error))
        return answer_failed(res, "could not store: " + error, 500);
    answer_success(res);
}

void collector_service::accept_file(const httplib::Request& req, httplib::Response& res) {
    const std::string app_id = req.get_header_value("X-Auth-AppID");
    if (!known_app_id(app_id)) return answer_failed(res, "unknown application id");
    if (!req.has_file("file")) return answer_failed(res, "no form part named file");
    const httplib::MultipartFormData part = req.get_file_value("file");

    const QString dfs_id = QUuid::createUuid().toString(QUuid::Id128);
    // Only the last component of the sender's name, so it cannot point elsewhere.
    QString name = QFileInfo(QString::fromStdString(part.filename)).fileName();
    if (name.isEmpty()) name = "file";
    const QString stored_path = QDir(config_.upload_dir).absoluteFilePath(dfs_id + "_" + name);
    QSaveFile out(stored_path);
    if (!out.open(QIODevice::WriteOnly) ||
        out.write(part.content.data(), qint64(part.content.size())) !=
            qint64(part.content.size()) ||
        !out.commit())
        return answer_failed(res, "could not store the file: " + out.errorString(), 500);

    collector_database::file_row row;
    row.dfs_id = dfs_id;
    row.received_at = utc_now_text();
    row.app_id = QString::fromStdString(app_id);
    row.category = param(req, "category");
    row.bucket = param(req, "bucket");
    row.file_name = name;
    row.size = qint64(part.content.size());
    row.stored_path = stored_path;
    QString error;
    if (!database_.add_file(row, error)) {
        QFile::remove(stored_path);
        return answer_failed(res, "could not store: " + error, 500);
    }
    answer_success(res, QJsonObject{{"dfs_id", dfs_id}});
}

void collector_service::serve_descriptor(const httplib::Request& req, httplib::Response& res) {
    const QString id = QString::fromStdString(req.matches[1]);
    const QString path = path_below(config_.software_dir, req.matches[1].str() + "/interface.json");
    QFile file(path);
    if (path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return answer_failed(res, "no descriptor for software " + id, 404);
    // Served as stored, also when it is not valid JSON: hosts are tested with that.
    res.set_content(file.readAll().toStdString(), json_type);
}

void collector_service::serve_file(const httplib::Request& req, httplib::Response& res) {
    const QString path = path_below(config_.files_dir, req.matches[1].str());
    auto file = std::make_shared<QFile>(path);
    if (path.isEmpty() || !QFileInfo(path).isFile() || !file->open(QIODevice::ReadOnly))
        return answer_failed(res, "no file " + QString::fromStdString(req.matches[1].str()), 404);
    // Streamed with its length announced, so a client can show real progress.
    res.set_content_provider(size_t(file->size()), "application/octet-stream",
                             [file](size_t offset, size_t length, httplib::DataSink& sink) {
                                 if (!file->seek(qint64(offset))) return false;
                                 const QByteArray chunk =
                                     file->read(qint64(std::min<size_t>(length, 64 * 1024)));
                                 if (chunk.isEmpty()) return false;
                                 return sink.write(chunk.constData(), size_t(chunk.size()));
                             });
}

std::string collector_service::describe(const httplib::Request& req, const httplib::Response& res) {
    QString line = QString("%1 %2 %3")
                       .arg(QDateTime::currentDateTime().toString("hh:mm:ss"))
                       .arg(QString::fromStdString(req.method))
                       .arg(QString::fromStdString(req.target));
    if (req.has_header("X-Auth-AppID"))
        line += " app " + QString::fromStdString(req.get_header_value("X-Auth-AppID"));
    line += QString(" -> %1").arg(res.status);
    if (res.get_header_value("Content-Type").rfind("application/json", 0) == 0 &&
        res.body.size() <= 200)
        line += " " + QString::fromStdString(res.body).simplified();
    else if (res.has_header("Content-Length"))
        line += " (" + QString::fromStdString(res.get_header_value("Content-Length")) + " bytes)";
    return line.toStdString();
}
