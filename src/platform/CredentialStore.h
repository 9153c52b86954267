#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vn {

// A remote's address as credentials are filed: scheme, user, host and port. Understands URLs
// ("https://user@host:8443/path") and git's scp-style addresses ("user@host:path", filed under
// "ssh").
struct RemoteAddress {
    std::string scheme;  // lower case
    std::string user;    // percent-decoded
    std::string host;    // lower case; empty for local paths and file URLs
    std::string port;
    std::string path;

    // "scheme://host[:port]": the service a password belongs to, together with the user.
    std::string service() const;

    static std::optional<RemoteAddress> parse(std::string_view url);
};

// Where passwords for remotes and hosting accounts are kept. Secrets never leave it through a
// log line: callers log the service and user, never the password.
class CredentialStore {
  public:
    virtual ~CredentialStore() = default;

    // The store the engine and its companions use: the Secret Service when the session bus has
    // one, else the file store in the application data folder. VARNEL_CREDENTIAL_STORE=file
    // chooses the file store whatever the desktop offers.
    static std::shared_ptr<CredentialStore> shared();
    static std::shared_ptr<CredentialStore> makeDefault();
    // For front ends and tests; null returns to the default.
    static void setShared(std::shared_ptr<CredentialStore> store);

    // Host and user named by a URL or scp-style address; empty when it names none.
    static std::string hostFromURL(std::string_view url);
    static std::string userFromURL(std::string_view url);
    // `text` with the password part of every URL in it replaced by "***".
    static std::string redactURLPasswords(std::string_view text);

    // The password stored for the URL's service and `user` (the URL's own user when empty).
    virtual std::optional<std::string> passwordForURL(std::string_view url,
                                                      std::string_view user = {}) = 0;
    // The password with the user it belongs to: for `user` when given (else the URL's own),
    // else the first stored for the URL's service.
    struct StoredCredential {
        std::string user;
        std::string password;
    };
    virtual std::optional<StoredCredential> credentialForURL(std::string_view url,
                                                             std::string_view user = {});
    virtual bool setPasswordForURL(std::string_view url, std::string_view user,
                                   std::string_view password) = 0;
    // Drops what is stored for the URL's service: for its user when it names one, else for
    // every user of the service. Answers how many passwords went.
    virtual std::size_t removePasswordForURL(std::string_view url) = 0;

    // Called when a remote refused the credentials: the stored password is dropped so that the
    // next prompt asks the user again.
    void authenticationFailedForURL(std::string_view url);
};

}  // namespace vn
