#include <glog/logging.h>

#include <QFile>
#include <QFileInfo>
#include <QHttpMultiPart>
#include <QHttpPart>
#include <QUrl>

#include "http_connector.h"
#include "json_handler/answer_bounds.h"
#include "json_handler/json_handler.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

QHttpPart form_field(const QString& name, const QString& value) {
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QString("form-data; name=\"") + name + "\"");
    part.setBody(value.toUtf8());
    return part;
}

}  // namespace

int http_connector::send_multipart_request(const QString& url_suffix, const QString& file_path,
                                           const std::map<QString, QString>& fields,
                                           const std::map<QString, QString>& headers,
                                           int timeout_ms, const QString& base) {
    auto* file = new QFile(file_path);
    if (!file->open(QIODevice::ReadOnly)) {
        LOG(INFO) << "file open faied or not readable  !" << file_path.toLocal8Bit().constData();
        delete file;
        return -1;
    }
    auto* multipart = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    const QString url = base + url_suffix;
    for (const auto& field : fields) multipart->append(form_field(field.first, field.second));

    QNetworkRequest request(QUrl(url, QUrl::TolerantMode));
    ask_for_uncompressed_answer(request);
    // Only the first of the host's headers in key order is sent.
    if (!headers.empty())
        request.setRawHeader(headers.begin()->first.toUtf8(), headers.begin()->second.toUtf8());

    const QString file_name = QFileInfo(file_path).fileName();
    relax_tls_for_https_url(request, url);
    QHttpPart file_part;
    file_part.setHeader(QNetworkRequest::ContentTypeHeader, "application/octet-stream");
    file_part.setHeader(QNetworkRequest::ContentDispositionHeader,
                        QString("form-data; name=\"file\"; filename=\"") + file_name + "\"");
    // The body is streamed from the open file, never read whole into memory.
    file_part.setBodyDevice(file);
    file->setParent(multipart);
    multipart->append(file_part);

    handler_ = new upload_file_handler(sink_, connect_id_);
    QNetworkReply* reply = manager_->post(request, multipart);
    limit_answer(reply, max_upload_answer_size);
    multipart->setParent(reply);
    connect(reply, SIGNAL(uploadProgress(qint64, qint64)), this,
            SLOT(update_data_write_progress(qint64, qint64)));
    if (timer_ && !timer_->isActive()) timer_->start(timeout_ms);
    return 0;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
