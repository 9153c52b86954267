#include <iostream>
#include <string>
#include <vector>

#include "cli/Cli.h"
#include "platform/Log.h"
#include "platform/Process.h"

namespace {

void printHelp() {
    std::cout << "Usage: vrnl [--help] [--version] <command> [<args>]\n\n"
                 "Varnel drives the real git and hg for you.\n\nCommands:\n";
    for (const auto& command : vn::cli::subcommands()) {
        std::cout << "  " << command.usage << "\n      " << command.summary << "\n";
    }
    std::cout << "\nWithout a command, vrnl shows the repository it runs in at a glance: the "
                 "summary line\n"
                 "and a page of history with its graph.\n"
                 "Every command takes --json to print its result for programs.\n";
}

}  // namespace

int main(int argc, char** argv) {
    // vrnl keeps its terminal: the tools it runs stay in its process group.
    vn::Process::setMayStartSession(false);
    vn::Log::configureFromEnvironment();

    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && (words[0] == "--help" || words[0] == "-h" || words[0] == "help")) {
        printHelp();
        return 0;
    }
    if (!words.empty() && (words[0] == "--version" || words[0] == "-V")) {
        std::cout << "vrnl " << VARNEL_VERSION << "\n";
        return 0;
    }
    std::string name = "overview";
    if (!words.empty() && words[0].rfind("-", 0) != 0) {
        name = words[0];
        words.erase(words.begin());
    }
    for (const auto& command : vn::cli::subcommands()) {
        if (command.name == name) {
            vn::cli::Arguments args(words);
            return command.run(args);
        }
    }
    return vn::cli::usageError("unknown command \"" + name + "\"; see vrnl --help");
}
