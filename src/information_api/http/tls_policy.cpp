#include "tls_policy.h"

#include <QMutex>
#include <QMutexLocker>
#include <QSslCertificate>
#include <QSslSocket>

#ifndef INFORMATION_API_VERIFY_TLS_DEFAULT
#define INFORMATION_API_VERIFY_TLS_DEFAULT 0
#endif

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// The system's store is read once: it takes a while and does not change
// under a running host.
const QList<QSslCertificate>& system_certificates() {
    static const QList<QSslCertificate> certificates = QSslConfiguration::systemCaCertificates();
    return certificates;
}

// The extra file is read again only when its name changes. A file that
// cannot be read adds nothing: the server must then pass on the system's
// store alone, which fails safe.
QList<QSslCertificate> extra_certificates() {
    static QMutex mutex;
    static QString cached_path;
    static QList<QSslCertificate> cached;
    const QString path = qEnvironmentVariable("INFORMATION_API_CA_FILE");
    QMutexLocker lock(&mutex);
    if (path != cached_path) {
        cached_path = path;
        cached = path.isEmpty() ? QList<QSslCertificate>()
                                : QSslCertificate::fromPath(
                                      path, QSsl::Pem, QSslCertificate::PatternSyntax::FixedString);
    }
    return cached;
}

}  // namespace

bool tls_verification_wanted() {
    const QByteArray setting = qgetenv("INFORMATION_API_VERIFY_TLS");
    if (setting.isEmpty()) return INFORMATION_API_VERIFY_TLS_DEFAULT != 0;
    return setting != "0";
}

bool apply_verified_tls(QSslConfiguration& config) {
    if (!tls_verification_wanted()) return false;
    config.setPeerVerifyMode(QSslSocket::VerifyPeer);
    config.setProtocol(QSsl::TlsV1_2OrLater);
    // Setting the list replaces Qt's on-demand lookup of the system store, so
    // the system's certificates go in explicitly.
    config.setCaCertificates(system_certificates() + extra_certificates());
    return true;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
