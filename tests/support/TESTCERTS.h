// Throw-away certificates for TLS tests: a test authority and server certificates.
#pragma once

#include <string>

// Everything is made in memory with fresh P-256 keys and written as PEM files into a folder
// of the test's own. Point SSL_CERT_FILE at caFile() to make the program trust the authority.
class TESTCERTS {
public:
    struct PAIR {
        std::string cert; // PEM certificate file
        std::string key;  // PEM private key file
    };
    enum ISSUER {
        kByAuthority, // signed by this object's authority
        kBySelf,      // self-signed
        kByStranger,  // signed by an authority nobody trusts
    };

    explicit TESTCERTS(const std::string &folder);
    ~TESTCERTS();
    TESTCERTS(const TESTCERTS &) = delete;
    TESTCERTS &operator=(const TESTCERTS &) = delete;

    bool ok() const { return fOk; }
    const std::string &caFile() const { return fCaFile; }
    // A server certificate for name (a host name, or a dotted quad put in as an address),
    // valid from firstDay to lastDay counted from today, written as <stem>.crt and <stem>.key.
    PAIR server(const std::string &stem, const std::string &name, ISSUER issuer = kByAuthority,
                long firstDay = -1, long lastDay = 30);

private:
    struct AUTHORITY;
    std::string fFolder;
    std::string fCaFile;
    AUTHORITY *fAuthority = nullptr;
    AUTHORITY *fStranger = nullptr;
    bool fOk = false;
};
