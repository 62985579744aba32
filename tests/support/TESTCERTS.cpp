// Throw-away certificates for TLS tests, made with OpenSSL's own API.
#include "tests/support/TESTCERTS.h"

#include <cstdio>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "base/NETNAMES.h"

struct TESTCERTS::AUTHORITY {
    EVP_PKEY *key = nullptr;
    X509 *cert = nullptr;
    ~AUTHORITY() {
        X509_free(cert);
        EVP_PKEY_free(key);
    }
};

namespace {

long gSerial = 1;

bool extensionAdd(X509 *cert, X509 *issuer, int nid, const char *value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    bool added = extension != nullptr && X509_add_ext(cert, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

// A certificate for subject's key, signed with signer's key (itself when signer is null).
X509 *certMake(EVP_PKEY *subject, const std::string &name, bool authority, X509 *signerCert,
               EVP_PKEY *signerKey, long firstDay, long lastDay) {
    X509 *cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), gSerial++);
    X509_gmtime_adj(X509_getm_notBefore(cert), firstDay * 86400L);
    X509_gmtime_adj(X509_getm_notAfter(cert), lastDay * 86400L);
    X509_set_pubkey(cert, subject);
    X509_NAME *subjectName = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(subjectName, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char *>(name.c_str()), -1, -1, 0);
    X509 *issuer = signerCert != nullptr ? signerCert : cert;
    X509_set_issuer_name(cert, X509_get_subject_name(issuer));
    bool ok = true;
    if (authority) {
        ok = extensionAdd(cert, issuer, NID_basic_constraints, "critical,CA:TRUE") &&
             extensionAdd(cert, issuer, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        std::string alt = (NETNAMES::inetAddr(name.c_str()) != 0 ? "IP:" : "DNS:") + name;
        ok = extensionAdd(cert, issuer, NID_subject_alt_name, alt.c_str()) &&
             extensionAdd(cert, issuer, NID_basic_constraints, "CA:FALSE");
    }
    if (!ok || X509_sign(cert, signerKey != nullptr ? signerKey : subject, EVP_sha256()) == 0) {
        X509_free(cert);
        return nullptr;
    }
    return cert;
}

bool pemWrite(const std::string &path, X509 *cert, EVP_PKEY *key) {
    FILE *file = fopen(path.c_str(), "w");
    if (file == nullptr)
        return false;
    bool ok = cert != nullptr
                  ? PEM_write_X509(file, cert) == 1
                  : PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
    return fclose(file) == 0 && ok;
}

} // namespace

TESTCERTS::TESTCERTS(const std::string &folder)
    : fFolder(folder), fCaFile(folder + "/authority.crt"), fAuthority(new AUTHORITY),
      fStranger(new AUTHORITY) {
    for (AUTHORITY *each : {fAuthority, fStranger}) {
        each->key = EVP_EC_gen("P-256");
        if (each->key != nullptr)
            each->cert = certMake(each->key, each == fAuthority ? "Test Authority" : "Stranger",
                                  true, nullptr, nullptr, -1, 365);
    }
    fOk = fAuthority->cert != nullptr && fStranger->cert != nullptr &&
          pemWrite(fCaFile, fAuthority->cert, nullptr);
}

TESTCERTS::~TESTCERTS() {
    delete fAuthority;
    delete fStranger;
}

TESTCERTS::PAIR TESTCERTS::server(const std::string &stem, const std::string &name, ISSUER issuer,
                                  long firstDay, long lastDay) {
    PAIR pair{fFolder + "/" + stem + ".crt", fFolder + "/" + stem + ".key"};
    EVP_PKEY *key = EVP_EC_gen("P-256");
    const AUTHORITY *signer = issuer == kByAuthority  ? fAuthority
                              : issuer == kByStranger ? fStranger
                                                      : nullptr;
    X509 *cert = key == nullptr ? nullptr
                                : certMake(key, name, false, signer ? signer->cert : nullptr,
                                           signer ? signer->key : nullptr, firstDay, lastDay);
    if (cert == nullptr || !pemWrite(pair.cert, cert, nullptr) || !pemWrite(pair.key, nullptr, key))
        pair = PAIR{};
    X509_free(cert);
    EVP_PKEY_free(key);
    return pair;
}
