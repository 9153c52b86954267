#include "credentials/GitCredential.h"

#include <cctype>
#include <iterator>

#include "credentials/PasswordPrompt.h"
#include "platform/CredentialStore.h"
#include "platform/Log.h"

namespace vn {

namespace {

// A user name as the user part of a URL: the characters that end that part are escaped.
std::string percentEncodeUser(std::string_view text) {
    static const char* hex = "0123456789ABCDEF";
    std::string out;
    for (char c : text) {
        auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte >= 0x7f || c == '%' || c == '@' || c == ':' || c == '/' ||
            c == '?' || c == '#') {
            out.push_back('%');
            out.push_back(hex[byte >> 4]);
            out.push_back(hex[byte & 15]);
        } else {
            out.push_back(c);
        }
    }
    return out;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string percentDecode(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            out.push_back(static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2])));
            i += 2;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

// "scheme://[user[:password]@]host[/path]" into the credential's parts, as git reads "url=".
void applyURL(GitCredential& credential, std::string_view url) {
    std::size_t separator = url.find("://");
    if (separator == std::string_view::npos) {
        return;
    }
    credential.protocol = std::string(url.substr(0, separator));
    std::string_view rest = url.substr(separator + 3);
    std::size_t slash = rest.find('/');
    std::string_view authority = rest.substr(0, slash);
    credential.path = slash == std::string_view::npos ? "" : std::string(rest.substr(slash + 1));
    std::size_t at = authority.rfind('@');
    if (at != std::string_view::npos) {
        std::string_view userInfo = authority.substr(0, at);
        std::size_t colon = userInfo.find(':');
        credential.username = percentDecode(userInfo.substr(0, colon));
        if (colon != std::string_view::npos) {
            credential.password = percentDecode(userInfo.substr(colon + 1));
            credential.hasPassword = true;
        }
        authority.remove_prefix(at + 1);
    }
    credential.host = std::string(authority);
}

}  // namespace

GitCredential GitCredential::parse(std::string_view text) {
    GitCredential credential;
    std::size_t from = 0;
    while (from < text.size()) {
        std::size_t end = text.find('\n', from);
        std::string_view line =
            text.substr(from, end == std::string_view::npos ? std::string_view::npos : end - from);
        from = end == std::string_view::npos ? text.size() : end + 1;
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.empty()) {
            break;
        }
        std::size_t equals = line.find('=');
        if (equals == std::string_view::npos || equals == 0) {
            continue;
        }
        std::string_view key = line.substr(0, equals);
        std::string value(line.substr(equals + 1));
        if (key == "protocol") {
            credential.protocol = std::move(value);
        } else if (key == "host") {
            credential.host = std::move(value);
        } else if (key == "path") {
            credential.path = std::move(value);
        } else if (key == "username") {
            credential.username = std::move(value);
        } else if (key == "password") {
            credential.password = std::move(value);
            credential.hasPassword = true;
        } else if (key == "url") {
            applyURL(credential, value);
        } else {
            credential.others.emplace_back(std::string(key), std::move(value));
        }
    }
    return credential;
}

std::string GitCredential::url(bool withUser) const {
    std::string text = protocol + "://";
    if (withUser && !username.empty()) {
        text += percentEncodeUser(username) + "@";
    }
    text += host;
    if (!path.empty()) {
        text += "/" + path;
    }
    return text;
}

int GitCredentialHelper::run(std::string_view action, std::istream& in, std::ostream& out,
                             std::ostream& err) {
    std::string input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    GitCredential credential = GitCredential::parse(input);
    if (credential.protocol.empty()) {
        // Nothing to file a password under.
        return 0;
    }
    if (action == "get") {
        return get(credential, out, err);
    }
    if (action == "store") {
        if (credential.hasPassword && !credential.username.empty()) {
            store_.setPasswordForURL(credential.url(false), credential.username,
                                     credential.password);
        }
        return 0;
    }
    if (action == "erase") {
        // Only the password the remote refused goes; one stored since stays.
        auto stored = store_.credentialForURL(credential.url(false), credential.username);
        if (stored && (!credential.hasPassword || stored->password == credential.password)) {
            GitCredential refused = credential;
            refused.username = stored->user;
            store_.removePasswordForURL(refused.url(true));
            Log::info("Stored password for " + credential.url(false) + " dropped: refused");
        }
        return 0;
    }
    return 0;
}

int GitCredentialHelper::get(const GitCredential& credential, std::ostream& out,
                             std::ostream& err) {
    if (credential.hasPassword) {
        return 0;
    }
    std::string username = credential.username;
    auto stored = store_.credentialForURL(credential.url(false), username);
    if (stored) {
        if (username.empty()) {
            username = stored->user;
        }
        if (!username.empty()) {
            out << "username=" << username << "\n";
        }
        out << "password=" << stored->password << "\n";
        out.flush();
        return 0;
    }
    // Whoever may not be asked must not be asked by git on a terminal either.
    auto quit = [&] {
        out << "quit=1\n";
        out.flush();
        if (!prompt_.promptsSuppressed()) {
            err << PasswordPrompt::CancelledMessage << "\n";
        }
        return 0;
    };
    if (prompt_.promptsSuppressed()) {
        return quit();
    }
    GitCredential shown = credential;
    shown.path.clear();
    if (username.empty()) {
        auto answer = prompt_.ask("Username for '" + shown.url(false) + "': ", false);
        if (!answer || answer->empty()) {
            return quit();
        }
        username = *answer;
    }
    shown.username = username;
    auto password = prompt_.ask("Password for '" + shown.url(true) + "': ", true);
    if (!password) {
        return quit();
    }
    out << "username=" << username << "\n"
        << "password=" << *password << "\n";
    out.flush();
    return 0;
}

}  // namespace vn
