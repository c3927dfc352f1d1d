#pragma once

#include <QJsonValue>
#include <QString>

namespace TarvoConsumerScanner {
namespace information_api {

class windows_information_imp;

// Time stamps in file names, per record kind. They differ on purpose and the
// service's records have always been named so; keep them.
namespace record_name_format {
// Local time of the session start.
constexpr const char* usage = "yyyy-MM-ddThh-mm-ss";
// Current UTC time. Qt has no "sss" millisecond token ("ss" then "s" would
// repeat the seconds), so the scan's milliseconds are "zzz".
constexpr const char* scan = "yyyy-MM-ddThh-mm-ss.zzzZ";
constexpr const char* calibration = "yyyy-MM-ddThh-mm-ssZ";
constexpr const char* share = "yyyy-MM-ddThh-mm-ssZ";
constexpr const char* score = "yyyy-MM-ddThh-mm-ss";
constexpr const char* feedback = "yyyy-MM-ddThh-mm-ss";
}  // namespace record_name_format

// The current UTC date-time as records carry it: "yyyy-MM-ddThh:mm:ssZ".
QString utc_now_text();

// "./keploinfo/<stamp>.<extension>".
QString record_path(const QString& stamp, const char* extension);

// Writes one event record: the session's usage keys in a fresh document, kind
// as "tracingType" and as the file's "type", and content under "content". The
// file is named by the current UTC time in name_format; returns its path.
QString write_event_record(windows_information_imp& manager, const QString& kind,
                           const QJsonValue& content, const char* name_format,
                           const char* extension);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
