// PLACEHOLDER: usage document and event records (being built).
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

void windows_information_imp::build_usage_document(QJsonObject&) {}
void windows_information_imp::create_usage_info(const QString&, const QString&, const QString&,
                                                const QString&, int) {}
void windows_information_imp::record_calibration(const QStringList&, const QString&, const QString&,
                                                 const QString&, const QString&, const QStringList&,
                                                 const QString&, const QString&, const QStringList&,
                                                 const QStringList&, const QStringList&,
                                                 const QStringList&, int) {}
void windows_information_imp::record_scan(const scan_description_t&, int) {}
void windows_information_imp::record_share(const QString&, const QString&, const QString&,
                                           const QString&, const QString&, const QString&,
                                           const QString&, const QString&, int) {}
QString windows_information_imp::record_score(const QString&, const QString&, const QString&,
                                              const QString&, const QString&, const QString&, int) {
    return QString();
}
QString windows_information_imp::record_feedback(const QString&, const QString&, const QString&,
                                                 const QString&, const QStringList&, int,
                                                 const QString&, const QString&, const QString&,
                                                 const QStringList&) {
    return QString();
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
