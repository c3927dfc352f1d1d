#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "local_server.h"

namespace test_support {

namespace {

template <typename T, void (*Free)(T*)>
using owned = std::unique_ptr<T, std::integral_constant<decltype(Free), Free>>;

void write_pem(const std::string& path, const std::function<int(FILE*)>& write) {
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) throw std::runtime_error("cannot write " + path);
    const int ok = write(file);
    std::fclose(file);
    if (!ok) throw std::runtime_error("cannot encode " + path);
}

}  // namespace

tls_files make_self_signed_certificate(const std::string& folder) {
    owned<EVP_PKEY, EVP_PKEY_free> key(EVP_EC_gen("P-256"));
    owned<X509, X509_free> cert(X509_new());
    if (!key || !cert) throw std::runtime_error("OpenSSL could not make a key");
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -60);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 60L * 60 * 24);
    X509_set_pubkey(cert.get(), key.get());
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert.get(), cert.get(), nullptr, nullptr, 0);
    owned<X509_EXTENSION, X509_EXTENSION_free> san(
        X509V3_EXT_conf_nid(nullptr, &ctx, NID_subject_alt_name, "IP:127.0.0.1"));
    if (san) X509_add_ext(cert.get(), san.get(), -1);
    if (!X509_sign(cert.get(), key.get(), EVP_sha256()))
        throw std::runtime_error("OpenSSL could not sign the certificate");

    tls_files files{folder + "/server.crt", folder + "/server.key"};
    write_pem(files.certificate, [&](FILE* f) { return PEM_write_X509(f, cert.get()); });
    write_pem(files.key, [&](FILE* f) {
        return PEM_write_PrivateKey(f, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
    return files;
}

}  // namespace test_support
