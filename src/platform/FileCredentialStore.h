#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/CredentialStore.h"

namespace vn {

// Passwords in a JSON file readable only by the user (mode 0600), for systems without a Secret
// Service. Every change re-reads the file and replaces it atomically, so that the companions
// that write to it in their own processes are not overwritten with stale contents.
class FileCredentialStore : public CredentialStore {
  public:
    explicit FileCredentialStore(std::string path = defaultPath());

    // "credentials.json" in the application data folder.
    static std::string defaultPath();
    const std::string& path() const { return path_; }

    std::optional<std::string> passwordForURL(std::string_view url,
                                              std::string_view user = {}) override;
    std::optional<StoredCredential> credentialForURL(std::string_view url,
                                                     std::string_view user = {}) override;
    bool setPasswordForURL(std::string_view url, std::string_view user,
                           std::string_view password) override;
    std::size_t removePasswordForURL(std::string_view url) override;

  private:
    struct Entry {
        std::string service;
        std::string user;
        std::string password;
    };
    // Nothing when the file exists but cannot be read as a store: it is then left alone.
    std::optional<std::vector<Entry>> load() const;
    bool save(const std::vector<Entry>& entries) const;

    std::string path_;
    mutable std::mutex mutex_;
};

}  // namespace vn
