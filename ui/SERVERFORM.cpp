// The server account dialog's fields and checks.
#include "ui/SERVERFORM.h"

#include <cstdlib>

#include "base/TextFormat.h"
#include "message/IMsg.h"
#include "storage/SERVERSETTINGS.h"

namespace {

using SERVER = decltype(BARN::NODE::server);

const std::vector<SERVERFORM::FIELD> kFields = {
    {"Name", "Account name", SERVERFORM::kText, BARN::kNameMax},
    {"Hostname", "News server", SERVERFORM::kText, BARN::kHostnameMax},
    {"Security", "Connection security", SERVERFORM::kChoice, 0, 0, 0,
     SERVERSETTINGS::indexSecurity},
    {"Port", "Port", SERVERFORM::kNumber, 0, 1, 65535},
    {"Timeout", "Time-out (seconds)", SERVERFORM::kSeconds, 0,
     SERVERSETTINGS::kTimeoutMin / 1'000'000, SERVERSETTINGS::kTimeoutMax / 1'000'000},
    {"Login", "Server requires a login", SERVERFORM::kCheck},
    {"Username", "User name", SERVERFORM::kText, BARN::kUsernameMax},
    {"Password", "Password", SERVERFORM::kPassword, BARN::kPasswordMax},
    {"PostName", "Your name", SERVERFORM::kText, BARN::kPostNameMax},
    {"PostMail", "E-mail address", SERVERFORM::kText, BARN::kPostMailMax},
    {"PostOrg", "Organization", SERVERFORM::kText, BARN::kPostOrgMax},
    {"Compress", "Compress the connection when the server offers it", SERVERFORM::kCheck},
};

const char *yesNo(bool value) {
    return value ? SERVERFORM::kYes : SERVERFORM::kNo;
}

std::string valueOf(const SERVERFORM::VALUES &values, const char *key) {
    auto found = values.find(key);
    return found != values.end() ? found->second : std::string();
}

// A whole decimal number within min..max, or false.
bool number(const std::string &text, long long min, long long max, long long *value) {
    if (text.empty() || text.size() > 10 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    *value = atoll(text.c_str());
    return *value >= min && *value <= max;
}

} // namespace

const std::vector<SERVERFORM::FIELD> &SERVERFORM::fields() {
    return kFields;
}

SERVERFORM::VALUES SERVERFORM::fill(const BARN::NODE &node) {
    const SERVER &server = node.server;
    const STR::INDEX *security = STR::indexRow(SERVERSETTINGS::indexSecurity, server.security);
    return VALUES{
        {"Name", node.name},
        {"Hostname", server.hostname},
        {"Security", security != nullptr ? security->text : "None"},
        {"Port", std::to_string(server.port)},
        {"Timeout", std::to_string(server.timeout / 1'000'000)},
        {"Login", yesNo(server.login)},
        {"Username", server.username},
        {"Password", server.password},
        {"PostName", server.postName},
        {"PostMail", server.postMail},
        {"PostOrg", server.postOrg},
        {"Compress", yesNo(server.compress)},
    };
}

std::string SERVERFORM::check(const VALUES &values, BARN::NODE *server, bool create) {
    for (const FIELD &field : kFields) {
        std::string text = valueOf(values, field.key);
        if (field.maxLength > 0 && text.size() > field.maxLength)
            return textFormat("The %s may be at most %zu characters long.", field.label,
                              field.maxLength);
    }
    std::string name = valueOf(values, "Name");
    if (name.empty() || !BARN::serverNameCheck(name.c_str()))
        return textFormat("'%s' cannot be the name of a server account: use a name without "
                          "'/' that does not begin with a dot.",
                          name.c_str());
    if ((create || name != server->name) && barn.serverIsDuplicate(name.c_str()))
        return textFormat("There is already a server named '%s'.", name.c_str());
    std::string hostname = valueOf(values, "Hostname");
    if (!BARN::serverHostnameCheck(hostname.c_str()))
        return textFormat("'%s' is not a valid news server name or address.", hostname.c_str());
    const STR::INDEX *security =
        STR::indexRow(SERVERSETTINGS::indexSecurity, valueOf(values, "Security"));
    long long port = 0;
    if (!number(valueOf(values, "Port"), 1, 65535, &port))
        return "The port must be a number from 1 to 65535.";
    long long seconds = 0;
    if (!number(valueOf(values, "Timeout"), SERVERSETTINGS::kTimeoutMin / 1'000'000,
                SERVERSETTINGS::kTimeoutMax / 1'000'000, &seconds))
        return "The time-out must be from 2 to 1800 seconds.";
    bool login = valueOf(values, "Login") == kYes;
    std::string username = valueOf(values, "Username");
    std::string password = valueOf(values, "Password");
    if (login && (username.empty() || password.empty()))
        return "A login needs both a user name and a password.";
    std::string postName = valueOf(values, "PostName");
    if (postName.empty())
        return "Enter your name: it goes into the From line of what you post.";
    std::string postMail = valueOf(values, "PostMail");
    if (!SERVERSETTINGS::emailCheck(postMail.c_str()))
        return textFormat("'%s' is not a valid e-mail address.", postMail.c_str());
    std::string postOrg = valueOf(values, "PostOrg");
    if (!SERVERSETTINGS::plainCheck(postOrg.c_str()))
        return "The organization must be plain text on one line.";

    STR::copy(server->name, name.c_str(), sizeof server->name);
    SERVER &account = server->server;
    STR::copy(account.hostname, hostname.c_str(), sizeof account.hostname);
    account.security = security != nullptr ? uint32_t(security->value) : kSecurityNone;
    account.port = uint16_t(port);
    account.timeout = seconds * 1'000'000;
    account.login = login;
    STR::copy(account.username, username.c_str(), sizeof account.username);
    STR::copy(account.password, password.c_str(), sizeof account.password);
    STR::copy(account.postName, postName.c_str(), sizeof account.postName);
    STR::copy(account.postMail, postMail.c_str(), sizeof account.postMail);
    STR::copy(account.postOrg, postOrg.c_str(), sizeof account.postOrg);
    account.compress = valueOf(values, "Compress") == kYes;
    return {};
}

std::string SERVERFORM::portFor(const std::string &security, const std::string &port) {
    const std::string plain = std::to_string(BARN::kPortDefault);
    const std::string secure = std::to_string(BARN::kPortTLS);
    if (security == "TLS" && port == plain)
        return secure;
    if (security != "TLS" && port == secure)
        return plain;
    return port;
}
