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
#include "server/multipart_reader.h"

namespace {

const char* const json_type = "application/json;charset=utf-8";

QString utc_now_text() {
    return QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
}

QString param(const http_request& req, const char* key) {
    return QString::fromStdString(req.get_param_value(key));
}

// A refusal after which the rest of the request body cannot be trusted or
// was never read: the connection ends with the answer.
void refuse_and_close(http_response& res, const QString& why, int http_status = 200) {
    answer_failed(res, why, http_status);
    res.close_connection = true;
}

void refuse_too_large(http_response& res, quint64 limit) {
    refuse_and_close(res, QString("request body larger than %1 bytes").arg(limit), 413);
}

}  // namespace

QStringList default_app_ids() {
    return {"3c1f9a7e55d04b28a6e2f0b9d4c87a13", "a94e07b3c2d851f6e0b7a4c39d2f6e58"};
}

host_routes::host_routes(collector_config config, collector_database& database)
    : config_(std::move(config)), database_(database) {}

// An information upload: its JSON, held in memory up to the limit and stored in one row.
class host_routes::information_upload : public body_receiver {
public:
    information_upload(collector_database& database, quint64 limit)
        : database_(database), limit_(limit) {}

    bool take(const char* data, size_t length, http_response& res) override {
        if (body_.size() + length > limit_) {
            refuse_too_large(res, limit_);
            return false;
        }
        body_.append(data, length);
        return true;
    }

    void finish(const http_request& req, bool complete, http_response& res) override {
        if (!complete) return refuse_and_close(res, "incomplete request body", 400);
        // Qt's parser loses the memory of an array or object whose name an object
        // repeats: such a body, or one nested past any record, is refused before
        // it gets there, so that no client can make the service leak.
        const QByteArray json = QByteArray::fromStdString(body_);
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
                 QString::fromStdString(body_), facts_of(document.object())},
                error))
            return answer_failed(res, "could not store: " + error, 500);
        answer_success(res);
    }

private:
    collector_database& database_;
    const quint64 limit_;
    std::string body_;
};

// A file upload: one part named "file" is stored, written to disk as it
// arrives; other parts are read and passed over; a second "file" part refuses
// the upload.
class host_routes::file_upload : public body_receiver {
public:
    file_upload(const http_request& req, const collector_config& config,
                collector_database& database)
        : config_(config),
          database_(database),
          reader_(
              req.get_header_value("Content-Type"),
              [this](const multipart_reader::part& part) { return begin_part(part); },
              [this](const char* data, size_t length) {
                  if (!in_file_) return true;
                  row_.size += qint64(length);
                  return out_->write(data, qint64(length)) == qint64(length);
              }) {
        row_.dfs_id = QUuid::createUuid().toString(QUuid::Id128);
    }

    bool take(const char* data, size_t length, http_response& res) override {
        received_ += length;
        if (received_ > config_.max_body) {
            refuse_too_large(res, config_.max_body);
            return false;
        }
        return reader_.feed(data, length) || !refused(false, res);
    }

    void finish(const http_request& req, bool complete, http_response& res) override {
        if (refused(complete && reader_.complete(), res)) return;
        if (!out_) return answer_failed(res, "no form part named file");
        if (!out_->commit())
            return answer_failed(res, "could not store the file: " + out_->errorString(), 500);

        row_.received_at = utc_now_text();
        row_.app_id = QString::fromStdString(req.get_header_value("X-Auth-AppID"));
        row_.category = param(req, "category");
        row_.bucket = param(req, "bucket");
        QString error;
        if (!database_.add_file(row_, error)) {
            QFile::remove(row_.stored_path);
            return answer_failed(res, "could not store: " + error, 500);
        }
        answer_success(res, QJsonObject{{"dfs_id", row_.dfs_id}});
    }

private:
    bool begin_part(const multipart_reader::part& part) {
        in_file_ = part.name == "file";
        if (!in_file_) return true;
        if (++file_parts_ > 1) return false;
        // Only the last component of the sender's name, so it cannot point elsewhere.
        row_.file_name = QFileInfo(QString::fromStdString(part.filename)).fileName();
        if (row_.file_name.isEmpty()) row_.file_name = "file";
        row_.stored_path =
            QDir(config_.upload_dir).absoluteFilePath(row_.dfs_id + "_" + row_.file_name);
        out_ = std::make_unique<QSaveFile>(row_.stored_path);
        return out_->open(QIODevice::WriteOnly);
    }

    // Answers why the body cannot be stored, if it cannot.
    bool refused(bool complete, http_response& res) const {
        if (file_parts_ > 1)
            refuse_and_close(res, "more than one form part named file");
        else if (out_ && out_->error() != QFileDevice::NoError)
            refuse_and_close(res, "could not store the file: " + out_->errorString(), 500);
        else if (!complete)
            refuse_and_close(res, "malformed multipart body", 400);
        else
            return false;
        return true;
    }

    const collector_config& config_;
    collector_database& database_;
    multipart_reader reader_;
    collector_database::file_row row_;
    std::unique_ptr<QSaveFile> out_;
    int file_parts_ = 0;
    bool in_file_ = false;
    quint64 received_ = 0;
};

void host_routes::install(route_table& routes) {
    // Refusals come before any of the body is read, also when the client
    // asks to continue and waits.
    routes.post(
        ".*",
        [this](const http_request& req, http_response& res) -> std::unique_ptr<body_receiver> {
            if (refused_before_body(req, res)) return nullptr;
            if (req.is_multipart_form_data())
                return std::make_unique<file_upload>(req, config_, database_);
            return std::make_unique<information_upload>(database_, body_limit(req));
        });
    routes.get(R"(/software/([^/]+)/interface\.json)",
               [this](const http_request& req, http_response& res) { serve_descriptor(req, res); });
    routes.get(R"(/files/(.+))",
               [this](const http_request& req, http_response& res) { serve_file(req, res); });
}

bool host_routes::refused_before_body(const http_request& req, http_response& res) const {
    if (!config_.app_ids.contains(QString::fromStdString(req.get_header_value("X-Auth-AppID"))))
        refuse_and_close(res, "unknown application id");
    else if (req.get_header_number("Content-Length") > body_limit(req))
        refuse_too_large(res, body_limit(req));
    else
        return false;
    return true;
}

quint64 host_routes::body_limit(const http_request& req) const {
    return req.is_multipart_form_data() ? config_.max_body
                                        : std::min(config_.max_body, information_body_limit);
}

// Served as stored, also when it is not valid JSON: hosts are tested with that.
void host_routes::serve_descriptor(const http_request& req, http_response& res) {
    const QString id = QString::fromStdString(req.matches.at(1));
    const QString path = config_.software.file(id + "/interface.json");
    if (path.isEmpty()) return answer_failed(res, "no descriptor for software " + id, 404);
    stream_file(res, path, json_type);
}

void host_routes::serve_file(const http_request& req, http_response& res) {
    const QString name = QString::fromStdString(req.matches.at(1));
    const QString path = config_.files.file(name);
    if (path.isEmpty()) return answer_failed(res, "no file " + name, 404);
    stream_file(res, path, "application/octet-stream");
}

std::string host_routes::describe(const http_request& req, const http_response& res) {
    // A request refused before its head was whole has neither method nor target.
    QString line = QString("%1 %2 %3")
                       .arg(QDateTime::currentDateTime().toString("hh:mm:ss"))
                       .arg(req.method.empty() ? "-" : QString::fromStdString(req.method))
                       .arg(req.target.empty() ? "-" : QString::fromStdString(req.target));
    if (req.has_header("X-Auth-AppID"))
        line += " app " + QString::fromStdString(req.get_header_value("X-Auth-AppID"));
    line += QString(" -> %1").arg(res.status);
    if (res.get_header_value("Content-Type").rfind("application/json", 0) == 0 &&
        res.body.size() <= 200 && !res.body.empty())
        line += " " + QString::fromStdString(res.body).simplified();
    else
        line += QString(" (%1 bytes)").arg(res.body_length());
    return line.toStdString();
}
