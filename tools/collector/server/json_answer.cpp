#include "server/json_answer.h"

#include <QJsonArray>
#include <QJsonDocument>

// Written by hand because QJsonObject would sort "result" before "status".
void answer(http_response& res, const char* status, const QJsonValue& result, int http_status) {
    QByteArray body = QByteArray("{\"status\":\"") + status + "\"";
    if (!result.isUndefined()) {
        const QByteArray wrapped = QJsonDocument(QJsonArray{result}).toJson(QJsonDocument::Compact);
        body += ",\"result\":" + wrapped.mid(1, wrapped.size() - 2);
    }
    body += "}";
    res.status = http_status;
    res.set_content(body.toStdString(), "application/json;charset=utf-8");
}
