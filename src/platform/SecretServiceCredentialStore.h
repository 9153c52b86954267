#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/CredentialStore.h"

namespace vn {

// Passwords in the desktop's Secret Service (GNOME Keyring, KWallet and the like) through
// libsecret, filed by the remote's service ("https://host:port") and user.
class SecretServiceCredentialStore : public CredentialStore {
  public:
    // A store when a session bus answers with a Secret Service; null otherwise, and always
    // null in a build without libsecret.
    static std::shared_ptr<SecretServiceCredentialStore> connect();
    // Lets go of the connection libsecret keeps for the process, so that the bus may go away
    // without taking the process with it. The next use connects again.
    static void disconnect();

    std::optional<std::string> passwordForURL(std::string_view url,
                                              std::string_view user = {}) override;
    std::optional<StoredCredential> credentialForURL(std::string_view url,
                                                     std::string_view user = {}) override;
    bool setPasswordForURL(std::string_view url, std::string_view user,
                           std::string_view password) override;
    std::size_t removePasswordForURL(std::string_view url) override;

  private:
    SecretServiceCredentialStore() = default;
};

}  // namespace vn
