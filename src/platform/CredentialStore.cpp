#include "platform/CredentialStore.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <mutex>

#include "base/Regex.h"
#include "platform/FileCredentialStore.h"
#include "platform/Log.h"
#include "platform/SecretServiceCredentialStore.h"

namespace vn {

namespace {

std::string lowercase(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return -1;
}

std::string percentDecode(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            result.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
            i += 2;
        } else {
            result.push_back(text[i]);
        }
    }
    return result;
}

bool isScheme(std::string_view text) {
    if (text.empty() || !std::isalpha(static_cast<unsigned char>(text[0]))) {
        return false;
    }
    return std::all_of(text.begin(), text.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) || c == '+' || c == '.' || c == '-';
    });
}

// "user@host" or "user:password@host:port" into its parts; the password is dropped.
void splitAuthority(std::string_view authority, RemoteAddress& address, bool withPort) {
    std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
        std::string_view userInfo = authority.substr(0, at);
        address.user = percentDecode(userInfo.substr(0, userInfo.find(':')));
        authority.remove_prefix(at + 1);
    }
    std::string_view host = authority;
    if (!host.empty() && host.front() == '[') {
        std::size_t close = host.find(']');
        if (close != std::string_view::npos) {
            std::string_view rest = host.substr(close + 1);
            host = host.substr(1, close - 1);
            if (withPort && rest.size() > 1 && rest.front() == ':') {
                address.port = std::string(rest.substr(1));
            }
        }
    } else if (withPort) {
        std::size_t colon = host.rfind(':');
        if (colon != std::string_view::npos) {
            address.port = std::string(host.substr(colon + 1));
            host = host.substr(0, colon);
        }
    }
    address.host = lowercase(host);
}

std::mutex gSharedMutex;
std::shared_ptr<CredentialStore> gShared;

}  // namespace

std::string RemoteAddress::service() const {
    std::string text = scheme + "://" + host;
    if (!port.empty()) {
        text += ":" + port;
    }
    return text;
}

std::optional<RemoteAddress> RemoteAddress::parse(std::string_view url) {
    url = trim(url);
    if (url.empty()) {
        return std::nullopt;
    }
    RemoteAddress address;
    std::size_t separator = url.find("://");
    if (separator != std::string_view::npos && isScheme(url.substr(0, separator))) {
        address.scheme = lowercase(url.substr(0, separator));
        std::string_view rest = url.substr(separator + 3);
        std::size_t pathStart = rest.find_first_of("/?#");
        std::string_view authority = rest.substr(0, pathStart);
        if (pathStart != std::string_view::npos) {
            address.path = std::string(rest.substr(pathStart));
        }
        splitAuthority(authority, address, true);
        return address;
    }
    // git's scp-style address: only when no slash comes before the first colon.
    std::size_t colon = url.find(':');
    std::size_t slash = url.find('/');
    if (colon != std::string_view::npos && colon > 0 &&
        (slash == std::string_view::npos || slash > colon)) {
        address.scheme = "ssh";
        address.path = std::string(url.substr(colon + 1));
        splitAuthority(url.substr(0, colon), address, false);
        if (!address.host.empty()) {
            return address;
        }
        address = RemoteAddress();
    }
    address.scheme = "file";
    address.path = std::string(url);
    return address;
}

std::shared_ptr<CredentialStore> CredentialStore::shared() {
    std::lock_guard<std::mutex> lock(gSharedMutex);
    if (!gShared) {
        gShared = makeDefault();
    }
    return gShared;
}

std::shared_ptr<CredentialStore> CredentialStore::makeDefault() {
    const char* choice = std::getenv("VARNEL_CREDENTIAL_STORE");
    if (!(choice && std::string_view(choice) == "file")) {
        if (auto secretService = SecretServiceCredentialStore::connect()) {
            return secretService;
        }
    }
    return std::make_shared<FileCredentialStore>();
}

void CredentialStore::setShared(std::shared_ptr<CredentialStore> store) {
    std::lock_guard<std::mutex> lock(gSharedMutex);
    gShared = std::move(store);
}

std::string CredentialStore::hostFromURL(std::string_view url) {
    auto address = RemoteAddress::parse(url);
    return address ? address->host : std::string();
}

std::string CredentialStore::userFromURL(std::string_view url) {
    auto address = RemoteAddress::parse(url);
    return address ? address->user : std::string();
}

std::string CredentialStore::redactURLPasswords(std::string_view text) {
    static const Regex userInfo("([A-Za-z][A-Za-z0-9+.\\-]*://[^/\\s:@]*):[^/\\s@]*@");
    return userInfo.replaceAll(text, "$1:***@");
}

std::optional<CredentialStore::StoredCredential> CredentialStore::credentialForURL(
    std::string_view url, std::string_view user) {
    auto password = passwordForURL(url, user);
    if (!password) {
        return std::nullopt;
    }
    return StoredCredential{user.empty() ? userFromURL(url) : std::string(user),
                            std::move(*password)};
}

void CredentialStore::authenticationFailedForURL(std::string_view url) {
    auto address = RemoteAddress::parse(url);
    if (!address) {
        return;
    }
    std::size_t removed = removePasswordForURL(url);
    Log::info("Authentication failed for " + address->service() +
              (address->user.empty() ? "" : " (user " + address->user + ")") + "; " +
              std::to_string(removed) + " stored password(s) dropped");
}

}  // namespace vn
