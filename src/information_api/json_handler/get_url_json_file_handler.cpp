#include <glog/logging.h>

#include <QDebug>
#include <QJsonDocument>
#include <QNetworkRequest>

#include "answer_bounds.h"
#include "json_handler.h"
#include "json_outline.h"

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
        // text, so that no host walks a document of a thousand levels. A
        // name repeated over an array or object is refused too: Qt's parser
        // would lose the earlier value's memory, a leak a service could
        // repeat at will.
        const json_outline outline = outline_of(body, max_answer_nesting);
        const QJsonDocument doc = outline.too_deep || outline.replaces_a_container
                                      ? QJsonDocument()
                                      : QJsonDocument::fromJson(body, &parse_error);
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
