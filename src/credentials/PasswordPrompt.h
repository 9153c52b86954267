#pragma once

#include <optional>
#include <string>

#include "platform/Process.h"

namespace vn {

// Asks the user for a password, a user name or a yes/no answer on behalf of git and ssh. Where
// the question goes is decided by the environment the tools pass on:
//   AUTH_NO_PROMPTS=1           nobody is asked; the answer is "cancelled"
//   VARNEL_LOGIN_ANSWER_FILE    tests: each question takes the first line of that file and is
//                               appended to the file's ".asked" companion
//   VARNEL_LOGIN_PROMPTER       a front end's own prompt program (the desktop's dialog): run
//                               with the question as its argument, the answer on its output
//   otherwise                   the controlling terminal (/dev/tty), without echo for secrets
class PasswordPrompt {
  public:
    static constexpr const char* CancelledMessage = "User cancelled password prompt.";

    explicit PasswordPrompt(Environment environment = processEnvironment())
        : environment_(std::move(environment)) {}
    virtual ~PasswordPrompt() = default;

    // The answer, or nothing when the user cancelled or may not be asked.
    virtual std::optional<std::string> ask(const std::string& question, bool secret);

    bool promptsSuppressed() const;

    // What kind of question ssh or git put: a password (or passphrase), a user name, or
    // anything else (host key confirmations), whose answers are never stored.
    enum class Kind { Password, Passphrase, Username, Other };
    static Kind classify(std::string_view question);

  private:
    std::string variable(const char* name) const;
    std::optional<std::string> askAnswerFile(const std::string& path, const std::string& question);
    std::optional<std::string> askPrompter(const std::string& program, const std::string& question);
    std::optional<std::string> askTerminal(const std::string& question, bool secret);

    Environment environment_;
};

// VarnelLogin's whole behaviour: the tool's question in, the answer printed on `out`. Password
// questions about AUTH_URL are answered from the credential store when it has the password, and
// what the user types is stored there (it is dropped again when the remote refuses it).
int runAskpass(const std::string& question, PasswordPrompt& prompt, class CredentialStore& store,
               const Environment& environment, std::string& out);

}  // namespace vn
