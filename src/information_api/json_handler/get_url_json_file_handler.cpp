#include <glog/logging.h>

#include <QDebug>
#include <QJsonDocument>
#include <QNetworkRequest>

#include "answer_bounds.h"
#include "json_handler.h"

namespace TarvoConsumerScanner {
namespace information_api {

int get_url_json_file_handler::handle(QNetworkReply* reply) {
    const int status_code = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    LOG(INFO) << "status_code=" << status_code;
    response_info_t info = initial_response(reply);
    const QByteArray body = reply->readAll();
    LOG(INFO) << "upload_file_handler" << quoted_answer(body);
    qDebug() << quoted_answer_bytes(body);

    bool success = false;
    try {
        QJsonParseError parse_error;
        // Nested deeper than a descriptor ever is: as unparsable as a broken
        // text, so that no host walks a document of a thousand levels.
        const QJsonDocument doc = nesting_within(body, max_answer_nesting)
                                      ? QJsonDocument::fromJson(body, &parse_error)
                                      : QJsonDocument();
        if (doc.isEmpty() || doc.isNull()) {
            LOG(WARNING) << "error: json parse error : isEmpty=" << doc.isEmpty()
                         << "isNull=" << doc.isNull();
            info.ok = false;
        } else {
            LOG(INFO) << " json parse result : isEmpty=" << doc.isEmpty()
                      << "isNull=" << doc.isNull() << "isArray=" << doc.isArray();
            success = true;
            info.content = QVariant(doc);
        }
    } catch (...) {
        LOG(WARNING) << "error: json parse exception: " << quoted_answer(body);
        success = false;
    }
    if (!success) {
        LOG(WARNING) << "error: failed response " << reply->errorString().toStdString();
        info.ok = false;
        info.state = 10;
        info.net_error = -2;
    }
    if (sink) {
        QVariant variant;
        variant.setValue(info);
        const QJsonDocument content = variant.value<response_info_t>().content.toJsonDocument();
        LOG(INFO) << " json  pram   : isEmpty=" << content.isEmpty()
                  << "isNull=" << content.isNull() << "isArray=" << content.isArray();
        sink->on_response(connection_id, variant);
    }
    return 0;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
