#pragma once

#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace vn {

class CredentialStore;
class PasswordPrompt;

// One credential as git's credential protocol describes it: "key=value" lines ended by a blank
// line or the end of input.
struct GitCredential {
    std::string protocol;
    std::string host;  // with ":port" when git gives one
    std::string path;
    std::string username;
    std::string password;
    bool hasPassword = false;
    // Attributes this helper does not use, kept in order.
    std::vector<std::pair<std::string, std::string>> others;

    // Reads the attributes; "url=" is split into its parts. Lines without "=" are skipped.
    static GitCredential parse(std::string_view text);
    // "protocol://[user@]host[/path]": the address a password is filed under.
    std::string url(bool withUser) const;
};

// The helper git runs as "credential.helper=varnel": `get` answers a stored password or asks
// the user through the prompt, `store` files what worked, `erase` drops what was refused.
class GitCredentialHelper {
  public:
    GitCredentialHelper(CredentialStore& store, PasswordPrompt& prompt)
        : store_(store), prompt_(prompt) {}

    // Runs one action over the protocol; answers the process's exit status. Unknown actions
    // are ignored, as git asks of helpers.
    int run(std::string_view action, std::istream& in, std::ostream& out, std::ostream& err);

  private:
    int get(const GitCredential& credential, std::ostream& out, std::ostream& err);

    CredentialStore& store_;
    PasswordPrompt& prompt_;
};

}  // namespace vn
