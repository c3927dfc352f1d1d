#include <QProcess>
#include <stdexcept>

#include "local_server.h"

namespace test_support {

tls_files make_self_signed_certificate(const std::string& folder) {
    tls_files files{folder + "/server.crt", folder + "/server.key"};
    QProcess openssl;
    openssl.start(
        "openssl",
        {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days",
         "1", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
         QString::fromStdString(files.key), "-out", QString::fromStdString(files.certificate)});
    if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
        throw std::runtime_error("openssl could not make a certificate: " +
                                 openssl.readAllStandardError().toStdString());
    return files;
}

}  // namespace test_support
