// The password prompt git and ssh run through SSH_ASKPASS or GIT_ASKPASS: the question comes as
// the first argument, the answer goes to standard output.
#include <iostream>

#include "credentials/PasswordPrompt.h"
#include "platform/CredentialStore.h"
#include "platform/Log.h"

int main(int argc, char** argv) {
    vn::Log::configureFromEnvironment();
    std::string question = argc > 1 ? argv[1] : "Password: ";
    vn::Environment environment = vn::processEnvironment();
    vn::PasswordPrompt prompt(environment);
    std::string answer;
    int status =
        vn::runAskpass(question, prompt, *vn::CredentialStore::shared(), environment, answer);
    if (status != 0) {
        // The task runner stops re-running a command once it reads this.
        std::cerr << vn::PasswordPrompt::CancelledMessage << "\n";
        return status;
    }
    std::cout << answer << "\n" << std::flush;
    return 0;
}
