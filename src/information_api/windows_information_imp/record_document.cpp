#include "record_document.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>

#include "record_file.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

QString utc_now_text() {
    return QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddThh:mm:ssZ");
}

QString record_path(const QString& stamp, const char* extension) {
    return QString("./keploinfo/%1.%2").arg(stamp, QLatin1String(extension));
}

QString write_event_record(windows_information_imp& manager, const QString& kind,
                           const QJsonValue& content, const char* name_format,
                           const char* extension) {
    QJsonObject document;
    manager.build_usage_document(document);
    document["tracingType"] = kind;
    document["content"] = content;
    const QString path =
        record_path(QDateTime::currentDateTimeUtc().toString(name_format), extension);
    write_record_file(path, QJsonDocument(document).toJson(), kind);
    return path;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
