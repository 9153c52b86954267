#include <iomanip>
#include <iostream>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "git/VNRepoHandlerGit.h"
#include "handler/ToolCheck.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "platform/Preferences.h"
#include "platform/Resources.h"

namespace vn::cli {

int runDoctor(Arguments& args) {
    bool json = args.flag("--json");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (!rest.empty()) {
        return usageError("doctor takes no arguments");
    }
    std::vector<Record> tools = checkTools();
    auto git = std::dynamic_pointer_cast<VNRepoHandlerGit>(
        VNApplication::shared().handlerForType(VNRepositoryTypeGit));
    std::string gitVersion = git ? git->versionDetails().string("number") : "";
    bool credentialHelper = git && git->useGitCredHelper();
    auto hg = std::dynamic_pointer_cast<VNRepoHandlerMercurial>(
        VNApplication::shared().handlerForType(VNRepositoryTypeMercurial));
    std::string hgVersion = hg ? hg->versionDetails().string("number") : "";
    bool commandServer = hg && hg->usesCommandServer();
    std::vector<std::string> missingExtensions;
    if (hg && !hgVersion.empty()) {
        missingExtensions = hg->missingExtensions();
    }
    if (json) {
        Value::Array list(tools.begin(), tools.end());
        printJson(Record{
            {"version", VARNEL_VERSION},
            {"resources", Resources::path()},
            {"preferences", Preferences::standard().filePath()},
            {"data", AppData::path()},
            {"gitVersion", gitVersion.empty() ? Value() : Value(gitVersion)},
            {"usesCredentialHelper", credentialHelper},
            {"mercurialVersion", hgVersion.empty() ? Value() : Value(hgVersion)},
            {"usesCommandServer", commandServer},
            {"missingMercurialExtensions",
             Value::Array(missingExtensions.begin(), missingExtensions.end())},
            {"tools", std::move(list)},
        });
        return 0;
    }
    std::cout << "vrnl " << VARNEL_VERSION << "\n"
              << "Resources:   " << Resources::path() << "\n"
              << "Preferences: " << Preferences::standard().filePath() << "\n"
              << "Data:        " << AppData::path() << "\n"
              << "Git:         " << (gitVersion.empty() ? "unknown version" : gitVersion)
              << (credentialHelper ? ", credential helper used" : ", credential helper not used")
              << "\n"
              << "Mercurial:   " << (hgVersion.empty() ? "unknown version" : hgVersion)
              << (commandServer ? ", command server (chg) used" : ", command server not used");
    if (!missingExtensions.empty()) {
        std::cout << "; extensions not installed:";
        for (const std::string& name : missingExtensions) {
            std::cout << " " << name;
        }
    }
    std::cout << "\n\n";
    for (const Record& tool : tools) {
        std::string name = tool.string("name");
        std::cout << "  " << std::left << std::setw(10) << name << std::setw(9)
                  << tool.string("source");
        if (tool.boolean("missing")) {
            std::cout << colour("missing", "31") << "  " << display(tool.string("path"))
                      << (tool.string("path").empty() ? "" : "  ") << "(" << tool.string("note")
                      << ")\n";
        } else {
            std::cout << colour(display(tool.string("version")), "32") << "\n"
                      << std::setw(21) << "" << display(tool.string("path")) << "\n";
        }
    }
    return 0;
}

const Subcommand& doctorCommand() {
    static const Subcommand command{
        "doctor",
        {"doctor [--json]"},
        "Show which git, hg and companion tools Varnel runs, and their versions",
        "Lists the resource, preference and data folders, the version of git in use and whether "
        "its credential helper is used, the version of Mercurial and whether its command server "
        "serves the queries, then each tool with the copy that runs (shipped or "
        "custom), its version and path, or why it is missing.",
        {{"--json", "Print the result as JSON for programs (compact; --pretty indents it)"}},
        runDoctor,
    };
    return command;
}

}  // namespace vn::cli
