// git's credential helper "varnel" (git runs it as git-credential-varnel get|store|erase).
#include <iostream>

#include "credentials/GitCredential.h"
#include "credentials/PasswordPrompt.h"
#include "platform/CredentialStore.h"
#include "platform/Log.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: git-credential-varnel get|store|erase\n";
        return 2;
    }
    vn::Log::configureFromEnvironment();
    vn::PasswordPrompt prompt;
    vn::GitCredentialHelper helper(*vn::CredentialStore::shared(), prompt);
    return helper.run(argv[1], std::cin, std::cout, std::cerr);
}
