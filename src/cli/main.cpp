#include <iostream>
#include <string>
#include <vector>

#include "cli/Cli.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Process.h"

namespace {

// Takes the global words ("--pretty") out of the command line wherever they stand before "--".
bool takeGlobalFlag(std::vector<std::string>& words, std::string_view name) {
    bool found = false;
    for (auto it = words.begin(); it != words.end() && *it != "--";) {
        if (*it == name) {
            it = words.erase(it);
            found = true;
        } else {
            ++it;
        }
    }
    return found;
}

bool asksForHelp(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word == "--") {
            return false;
        }
        if (word == "--help" || word == "-h") {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    // Used by the build to write the manual page from the same texts as the help.
    if (words.size() == 2 && words[0] == "--write-man-page") {
        std::string error;
        if (!vn::fs::writeFileAtomically(words[1], vn::cli::manPage(), &error)) {
            std::cerr << "vrnl: " << error << "\n";
            return 1;
        }
        return 0;
    }

    // vrnl keeps its terminal: the tools it runs stay in its process group.
    vn::Process::setMayStartSession(false);
    vn::Log::configureFromEnvironment();

    vn::cli::setPrettyJson(takeGlobalFlag(words, "--pretty"));
    if (!words.empty() && (words[0] == "--version" || words[0] == "-V")) {
        std::cout << "vrnl " << VARNEL_VERSION << "\n";
        return 0;
    }
    std::string name = "overview";
    if (!words.empty() && words[0].rfind("-", 0) != 0) {
        name = words[0];
        words.erase(words.begin());
    } else if (asksForHelp(words)) {
        std::cout << vn::cli::overallHelp();
        return 0;
    }
    const vn::cli::Subcommand* command = vn::cli::findSubcommand(name);
    if (!command) {
        return vn::cli::usageError("unknown command \"" + name + "\"; see vrnl help");
    }
    if (asksForHelp(words)) {
        std::cout << vn::cli::commandHelp(*command);
        return 0;
    }
    vn::cli::Arguments args(words);
    return command->run(args);
}
