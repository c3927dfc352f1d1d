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
    // Left unset, the list lets Qt look the issuer up in the system's store
    // on demand, which costs a connection a few milliseconds. Setting it ends
    // that lookup, so the system's certificates then go in beside the file's,
    // and each connection builds its store from all of them (about 0.1 s).
    const QList<QSslCertificate> extra = extra_certificates();
    if (!extra.isEmpty()) config.setCaCertificates(system_certificates() + extra);
    return true;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
