#pragma once

#include <QJsonValue>
#include <QString>

#include "server/http_exchange.h"

// The service's answers: {"status":"success"|"failed"} and, when given,
// "result" after it, as the real service writes them.
void answer(http_response& res, const char* status, const QJsonValue& result,
            int http_status = 200);

inline void answer_success(http_response& res, const QJsonValue& result = QJsonValue::Undefined) {
    answer(res, "success", result);
}

// Refusals of the service itself keep HTTP 200, so that the library reports
// them as rejections and not as network errors.
inline void answer_failed(http_response& res, const QString& why, int http_status = 200) {
    answer(res, "failed", why, http_status);
}
