#include "server/host_routes.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QUuid>
#include <memory>

#include "json_handler/json_outline.h"
#include "server/json_answer.h"

namespace {

using httplib::ContentReader;
using httplib::Request;
using httplib::Response;

const char* const json_type = "application/json;charset=utf-8";

QString utc_now_text() {
    return QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
}

QString param(const Request& req, const char* key) {
    return QString::fromStdString(req.get_param_value(key));
}

// A refusal after which the rest of the request body cannot be trusted or
// was never read: the connection ends with the answer.
void refuse_and_close(Response& res, const QString& why, int http_status = 200) {
    answer_failed(res, why, http_status);
    res.set_header("Connection", "close");
}

void refuse_too_large(Response& res, quint64 limit) {
    refuse_and_close(res, QString("request body larger than %1 bytes").arg(limit), 413);
}

}  // namespace

QStringList default_app_ids() {
    return {"3c1f9a7e55d04b28a6e2f0b9d4c87a13", "a94e07b3c2d851f6e0b7a4c39d2f6e58"};
}

host_routes::host_routes(collector_config config, collector_database& database)
    : config_(std::move(config)), database_(database) {}

void host_routes::install(httplib::Server& server) {
    server.Post(".*", [this](const Request& req, Response& res, const ContentReader& reader) {
        if (refused_before_body(req, res)) return;
        if (req.is_multipart_form_data())
            accept_file(req, res, reader);
        else
            accept_information(req, res, reader);
    });
    // curl asks before it sends a large body: refusals are answered instead of "continue".
    server.set_expect_100_continue_handler([this](const Request& req, Response& res) {
        return refused_before_body(req, res) ? res.status : 100;
    });
    server.Get(R"(/software/([^/]+)/interface\.json)",
               [this](const Request& req, Response& res) { serve_descriptor(req, res); });
    server.Get(R"(/files/(.+))",
               [this](const Request& req, Response& res) { serve_file(req, res); });
}

bool host_routes::refused_before_body(const Request& req, Response& res) const {
    if (req.method != "POST") return false;
    if (!config_.app_ids.contains(QString::fromStdString(req.get_header_value("X-Auth-AppID"))))
        refuse_and_close(res, "unknown application id");
    else if (req.get_header_value<uint64_t>("Content-Length") > body_limit(req))
        refuse_too_large(res, body_limit(req));
    else
        return false;
    return true;
}

quint64 host_routes::body_limit(const Request& req) const {
    return req.is_multipart_form_data() ? config_.max_body
                                        : std::min(config_.max_body, information_body_limit);
}

void host_routes::accept_information(const Request& req, Response& res,
                                     const ContentReader& reader) {
    const quint64 limit = body_limit(req);
    std::string body;
    bool too_large = false;
    const bool complete = reader([&](const char* data, size_t length) {
        too_large = body.size() + length > limit;
        if (!too_large) body.append(data, length);
        return !too_large;
    });
    if (too_large) return refuse_too_large(res, limit);
    if (!complete) return refuse_and_close(res, "incomplete request body", 400);

    // Qt's parser loses the memory of an array or object whose name an object
    // repeats: such a body, or one nested past any record, is refused before
    // it gets there, so that no client can make the service leak.
    const QByteArray json = QByteArray::fromStdString(body);
    const auto outline = TarvoConsumerScanner::information_api::outline_of(json, 256);
    if (outline.too_deep) return answer_failed(res, "body is not JSON: nested too deep");
    if (outline.replaces_a_container)
        return answer_failed(res, "body is not JSON: a name repeated over an array or object");
    QJsonParseError parse_error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parse_error);
    if (parse_error.error != QJsonParseError::NoError)
        return answer_failed(res, "body is not JSON: " + parse_error.errorString());
    const QString type = param(req, "type");
    if (type.isEmpty()) return answer_failed(res, "no type given");

    QString error;
    if (!database_.add_information(
            {utc_now_text(), QString::fromStdString(req.get_header_value("X-Auth-AppID")), type,
             QString::fromStdString(body), facts_of(document.object())},
            error))
        return answer_failed(res, "could not store: " + error, 500);
    answer_success(res);
}

// One part named "file" is stored, written to disk as it arrives; other parts
// are read and passed over; a second "file" part refuses the upload.
void host_routes::accept_file(const Request& req, Response& res, const ContentReader& reader) {
    collector_database::file_row row;
    row.dfs_id = QUuid::createUuid().toString(QUuid::Id128);
    std::unique_ptr<QSaveFile> out;
    int file_parts = 0;
    bool in_file = false;
    quint64 received = 0;
    const bool complete = reader(
        [&](const httplib::MultipartFormData& part) {
            in_file = part.name == "file";
            if (!in_file) return true;
            if (++file_parts > 1) return false;
            // Only the last component of the sender's name, so it cannot point elsewhere.
            row.file_name = QFileInfo(QString::fromStdString(part.filename)).fileName();
            if (row.file_name.isEmpty()) row.file_name = "file";
            row.stored_path =
                QDir(config_.upload_dir).absoluteFilePath(row.dfs_id + "_" + row.file_name);
            out = std::make_unique<QSaveFile>(row.stored_path);
            return out->open(QIODevice::WriteOnly);
        },
        [&](const char* data, size_t length) {
            received += length;
            if (received > config_.max_body) return false;
            if (!in_file) return true;
            row.size += qint64(length);
            return out->write(data, qint64(length)) == qint64(length);
        });
    if (file_parts > 1) return refuse_and_close(res, "more than one form part named file");
    if (received > config_.max_body) return refuse_too_large(res, config_.max_body);
    if (out && out->error() != QFileDevice::NoError)
        return refuse_and_close(res, "could not store the file: " + out->errorString(), 500);
    if (!complete) return refuse_and_close(res, "malformed multipart body", 400);
    if (!out) return answer_failed(res, "no form part named file");
    if (!out->commit())
        return answer_failed(res, "could not store the file: " + out->errorString(), 500);

    row.received_at = utc_now_text();
    row.app_id = QString::fromStdString(req.get_header_value("X-Auth-AppID"));
    row.category = param(req, "category");
    row.bucket = param(req, "bucket");
    QString error;
    if (!database_.add_file(row, error)) {
        QFile::remove(row.stored_path);
        return answer_failed(res, "could not store: " + error, 500);
    }
    answer_success(res, QJsonObject{{"dfs_id", row.dfs_id}});
}

// Served as stored, also when it is not valid JSON: hosts are tested with that.
void host_routes::serve_descriptor(const Request& req, Response& res) {
    const QString id = QString::fromStdString(req.matches[1]);
    const QString path = config_.software.file(id + "/interface.json");
    if (path.isEmpty()) return answer_failed(res, "no descriptor for software " + id, 404);
    stream_file(res, path, json_type);
}

void host_routes::serve_file(const Request& req, Response& res) {
    const QString name = QString::fromStdString(req.matches[1]);
    const QString path = config_.files.file(name);
    if (path.isEmpty()) return answer_failed(res, "no file " + name, 404);
    stream_file(res, path, "application/octet-stream");
}

std::string host_routes::describe(const Request& req, const Response& res) {
    QString line = QString("%1 %2 %3")
                       .arg(QDateTime::currentDateTime().toString("hh:mm:ss"))
                       .arg(QString::fromStdString(req.method))
                       .arg(QString::fromStdString(req.target));
    if (req.has_header("X-Auth-AppID"))
        line += " app " + QString::fromStdString(req.get_header_value("X-Auth-AppID"));
    line += QString(" -> %1").arg(res.status);
    if (res.get_header_value("Content-Type").rfind("application/json", 0) == 0 &&
        res.body.size() <= 200 && !res.body.empty())
        line += " " + QString::fromStdString(res.body).simplified();
    else if (res.has_header("Content-Length"))
        line += " (" + QString::fromStdString(res.get_header_value("Content-Length")) + " bytes)";
    return line.toStdString();
}
