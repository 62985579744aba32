// The server account file, Server.ini: its one section bound to a server node's fields.
#include "storage/SERVERSETTINGS.h"

#include "app/SETTINGS.h"
#include "base/NETNAMES.h"
#include "base/STR.h"
#include "message/IMsg.h"

namespace {
using ITEM = INITFILE::ITEM;

ITEM text(const char *key, unsigned long size, long long min, const char *description,
          FIELD::VALIDATOR validator, unsigned long required) {
    return ITEM{.key = key,
                .description = description,
                .type = FIELD::String,
                .size = size,
                .min = min,
                .max = (long long)size - 1,
                .validator = validator,
                .required = required};
}

using SERVER = decltype(BARN::NODE::server);

// Indexes into gItems, in file order.
enum {
    kHostname,
    kPort,
    kTimeout,
    kPostName,
    kPostMail,
    kPostOrg,
    kLogin,
    kUsername,
    kPassword,
    kSecurity,
    kCompress,
    kFingerprint,
    kItemCount,
};

ITEM gItems[] = {
    text("Hostname", sizeof(SERVER::hostname), 1, "Server DNS name or TCP/IP address",
         SERVERSETTINGS::hostnameCheck, 1),
    ITEM{.key = "Port",
         .description = "Server port number (default is 119)",
         .type = FIELD::Uint16,
         .size = sizeof(uint16_t),
         .min = 1,
         .max = 65535,
         .required = 1},
    ITEM{.key = "Timeout",
         .description = "Max time to wait for server reply",
         .type = FIELD::Microseconds,
         .size = sizeof(int64_t),
         .min = SERVERSETTINGS::kTimeoutMin,
         .max = SERVERSETTINGS::kTimeoutMax,
         .required = 1},
    text("PostName", sizeof(SERVER::postName), 1, "Posting author's name", nullptr, 1),
    text("PostMail", sizeof(SERVER::postMail), 3, "Posting author's e-mail address",
         SERVERSETTINGS::emailCheck, 1),
    text("PostOrg", sizeof(SERVER::postOrg), 0, "Posting author's organization",
         SERVERSETTINGS::plainCheck, 0),
    ITEM{.key = "Login",
         .description = "Server requires user login?",
         .type = FIELD::Bool,
         .size = sizeof(bool),
         .names = SETTINGS::indexYesNo,
         .required = 1},
    text("Username", sizeof(SERVER::username), 0, "Server login name", nullptr, 0),
    text("Password", sizeof(SERVER::password), 0, "Server login password", nullptr, 0),
    // Beyond the original account file: a file without these lines reads as a plain,
    // compressible connection with no trusted certificate.
    ITEM{.key = "Security",
         .description = "Connection security (None or TLS)",
         .type = FIELD::Uint32,
         .size = sizeof(uint32_t),
         .names = SERVERSETTINGS::indexSecurity,
         .min = kSecurityNone,
         .max = kSecurityTLS},
    ITEM{.key = "Compress",
         .description = "Compress the connection when the server offers it?",
         .type = FIELD::Bool,
         .size = sizeof(bool),
         .names = SETTINGS::indexYesNo},
    // Written once the user trusts a certificate, not into a new account file.
    ITEM{.key = "Fingerprint",
         .description = "SHA-256 fingerprint of a server certificate you chose to trust",
         .type = FIELD::String,
         .size = sizeof(SERVER::fingerprint),
         .min = 0,
         .max = (long long)sizeof(SERVER::fingerprint) - 1,
         .validator = SERVERSETTINGS::fingerprintCheck,
         .defaultWrite = 0},
    ITEM{},
};
static_assert(sizeof(gItems) / sizeof(gItems[0]) == kItemCount + 1);

INITFILE::SECT gSection = {"Server", "USENET server settings", gItems, true};

// Runs one INITFILE operation with the table bound to node.
template <typename OPERATION>
int32_t bound(BARN::NODE *node, OPERATION operation) {
    CRITSECT_HOLD hold(SERVERSETTINGS::lock);
    SERVERSETTINGS::bind(node);
    INITFILE file;
    int32_t result = operation(file);
    SERVERSETTINGS::bind(nullptr);
    return result;
}
} // namespace

INITFILE::SECT *SERVERSETTINGS::sections[] = {&gSection, nullptr};
const STR::INDEX SERVERSETTINGS::indexSecurity[] = {
    {kSecurityNone, "None"},
    {kSecurityTLS, "TLS"},
    {0, nullptr},
};
CRITSECT SERVERSETTINGS::lock;

void SERVERSETTINGS::bind(BARN::NODE *node) {
    SERVER *server = node != nullptr ? &node->server : nullptr;
    gItems[kHostname].variable = server != nullptr ? server->hostname : nullptr;
    gItems[kPort].variable = server != nullptr ? &server->port : nullptr;
    gItems[kTimeout].variable = server != nullptr ? &server->timeout : nullptr;
    gItems[kPostName].variable = server != nullptr ? server->postName : nullptr;
    gItems[kPostMail].variable = server != nullptr ? server->postMail : nullptr;
    gItems[kPostOrg].variable = server != nullptr ? server->postOrg : nullptr;
    gItems[kLogin].variable = server != nullptr ? &server->login : nullptr;
    gItems[kUsername].variable = server != nullptr ? server->username : nullptr;
    gItems[kPassword].variable = server != nullptr ? server->password : nullptr;
    gItems[kSecurity].variable = server != nullptr ? &server->security : nullptr;
    gItems[kCompress].variable = server != nullptr ? &server->compress : nullptr;
    gItems[kFingerprint].variable = server != nullptr ? server->fingerprint : nullptr;
}

void SERVERSETTINGS::afterRead(BARN::NODE *node) {
    // Deliberate: Login = Yes with either field empty reads as No.
    if (node->server.username[0] == '\0' || node->server.password[0] == '\0')
        node->server.login = false;
}

int32_t SERVERSETTINGS::read(BARN::NODE *node, const char *file) {
    int32_t result = bound(node, [file](INITFILE &ini) { return ini.read(sections, file); });
    afterRead(node);
    return result;
}

int32_t SERVERSETTINGS::write(BARN::NODE *node, const char *file) {
    return bound(node, [file](INITFILE &ini) { return ini.write(sections, file); });
}

int32_t SERVERSETTINGS::writeDefault(BARN::NODE *node, const char *file) {
    return bound(node, [file](INITFILE &ini) { return ini.writeDefault(sections, file); });
}

bool SERVERSETTINGS::hostnameCheck(const void *value) {
    return NETNAMES::hostnameCheck(static_cast<const char *>(value));
}

bool SERVERSETTINGS::emailCheck(const void *value) {
    return IMsg::EmailCheck(static_cast<const char *>(value));
}

bool SERVERSETTINGS::plainCheck(const void *value) {
    return STR::plain(static_cast<const char *>(value));
}

bool SERVERSETTINGS::fingerprintCheck(const void *value) {
    const char *text = static_cast<const char *>(value);
    size_t i = 0;
    for (; text[i] != 0; ++i) {
        char c = text[i];
        bool hex = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F');
        if (i % 3 == 2 ? c != ':' : !hex)
            return false;
    }
    return i == 0 || i == BARN::kFingerprintMax;
}
