#pragma once

#include <QSslConfiguration>

namespace TarvoConsumerScanner {
namespace information_api {

// Verified TLS is opt-in. The build sets the default (CMake option
// INFORMATION_API_VERIFY_TLS, off); the environment variable of the same name
// overrides it at run time: "0" switches verification off, any other
// non-empty value switches it on. INFORMATION_API_CA_FILE names a PEM file
// of certificates to trust besides the system's trust store.
bool tls_verification_wanted();

// When verification is wanted, makes config verify the server against the
// system's trust store and the extra file, with TLS 1.2 or newer, and returns
// true. Otherwise leaves config as it is and returns false.
bool apply_verified_tls(QSslConfiguration& config);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
