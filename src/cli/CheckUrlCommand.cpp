#include <filesystem>
#include <iostream>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "handler/VNRepoHandler.h"
#include "platform/CredentialStore.h"
#include "platform/FileSystem.h"
#include "platform/NotificationCenter.h"

namespace vn::cli {

namespace {

// Passes git's messages on as they arrive and counts the references it lists.
class Reporter : public VNPathOrURLValidationDelegate {
  public:
    void validatePathOrURLOutputReceived(const Notification& notification, VNTask& task) override {
        if (notification.name == VNTask::ErrorOutputReceivedNotification) {
            std::string text = task.newErrorOutput();
            messages += text;
            std::cerr << displayLines(CredentialStore::redactURLPasswords(text)) << std::flush;
        } else {
            for (char c : task.newOutput()) {
                if (c == '\n') {
                    ++references;
                }
            }
        }
    }
    std::string messages;
    std::size_t references = 0;
};

// A local path is checked from a temporary folder, so a relative one is made absolute first.
std::string resolveLocalPath(const std::string& text) {
    if (text.empty() || text.front() == '/' || text.find("://") != std::string::npos ||
        !fs::exists(text)) {
        return text;
    }
    std::error_code error;
    std::filesystem::path absolute = std::filesystem::absolute(text, error);
    return error ? text : absolute.lexically_normal().string();
}

}  // namespace

int runCheckUrl(Arguments& args) {
    bool json = args.flag("--json");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() != 1 || rest[0].empty()) {
        return usageError("check-url takes one repository path or URL");
    }
    auto handler = VNApplication::shared().handlerForType(VNRepositoryTypeGit);
    std::string target = resolveLocalPath(rest[0]);
    Reporter reporter;
    bool reachable = handler->validatePathOrURL(target, &reporter);
    std::string shown = CredentialStore::redactURLPasswords(target);
    if (json) {
        printJson(Record{
            {"url", shown},
            {"reachable", reachable},
            {"references", static_cast<uint64_t>(reporter.references)},
            {"messages", CredentialStore::redactURLPasswords(reporter.messages)},
        });
    } else if (reachable) {
        std::cout << colour("reachable", "32") << "  " << display(shown) << " ("
                  << reporter.references
                  << (reporter.references == 1 ? " reference" : " references") << ")\n";
    } else {
        std::cout << colour("not reachable", "31") << "  " << display(shown) << "\n";
    }
    return reachable ? 0 : 1;
}

const Subcommand& checkUrlCommand() {
    static const Subcommand command{
        "check-url",
        {"check-url URL [--json]"},
        "Tell whether a path or URL is a Git repository that can be reached",
        "Asks git to list the references of the repository at URL (a local path, or a URL of any "
        "kind git reaches) and tells whether that worked, with how many references it saw. "
        "Git's own messages are passed on, with passwords in URLs masked. Exits 1 when the "
        "repository cannot be reached.",
        {{"--json", "Print the result as JSON for programs (compact; --pretty indents it)"}},
        runCheckUrl,
    };
    return command;
}

}  // namespace vn::cli
