#include "hg/VNRepoHandlerMercurial.h"

#include <algorithm>
#include <array>

#include "handler/ToolPaths.h"
#include "handler/VNRepoWindowController.h"
#include "hg/VNHgCommandServer.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"
#include "platform/Process.h"
#include "platform/Resources.h"

// ---- Tools -------------------------------------------------------------------------------------

std::shared_ptr<VNRepoWindowController> VNRepoHandlerMercurial::newWindowControllerWithDoc(
    std::shared_ptr<VNRepoDocument> doc) {
    return VNRepoWindowController::create(std::move(doc));
}

std::string VNRepoHandlerMercurial::hgPath() const {
    return vn::ToolPaths::hgPath();
}

bool VNRepoHandlerMercurial::commandTakesYes(std::string_view command) {
    static constexpr std::array<std::string_view, 10> mayPrompt = {
        "outgoing", "push", "pull", "fetch", "incoming", "identify", "clone", "flow", "-R", "sign",
    };
    for (std::string_view word : mayPrompt) {
        if (command == word) {
            return false;
        }
    }
    return true;
}

// ---- Identity and setup ------------------------------------------------------------------------

std::vector<std::string> VNRepoHandlerMercurial::defaultArgsForPath(const std::string& /*path*/,
                                                                    const std::string& command) {
    std::vector<std::string> args{command};
    if (commandTakesYes(command)) {
        args.emplace_back("-y");
    }
    if (needsWebCacerts_) {
        args.emplace_back("--config");
        args.push_back("web.cacerts=" + vn::Resources::pathFor("mercurial_local/dummycert.pem"));
    }
    return args;
}

// ---- Tasks -------------------------------------------------------------------------------------

vn::Environment VNRepoHandlerMercurial::plainEnvironment() {
    return vn::Environment{
        {"HGPLAIN", "+strictflags"},
        {"HGPLAINEXCEPT", ""},
    };
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::hgTask(const std::string& path,
                                                       const std::string& command,
                                                       std::vector<std::string> args) {
    std::vector<std::string> all = defaultArgsForPath(path, command);
    all.insert(all.end(), std::make_move_iterator(args.begin()),
               std::make_move_iterator(args.end()));
    return hgTaskWithArgs(path, std::move(all));
}

std::vector<std::string> VNRepoHandlerMercurial::configOptionsFirst(std::vector<std::string> args) {
    // Only the words of the default arguments are looked at: the repository ("-R" and its
    // value), the command word, "-y" and the "--config" pairs among them. What follows is the
    // caller's, where a value may well read "--config".
    std::vector<std::string> configs;
    std::vector<std::string> leading;
    bool commandSeen = false;
    std::size_t i = 0;
    auto isConfigPair = [&] { return i + 1 < args.size() && args[i] == "--config"; };
    while (i < args.size()) {
        if (isConfigPair()) {
            configs.push_back(std::move(args[i]));
            configs.push_back(std::move(args[i + 1]));
            i += 2;
        } else if (args[i] == "-R" && i + 1 < args.size()) {
            // A bundle's defaults have "-R" as the command word and their pairs before the
            // bundle itself.
            leading.push_back(std::move(args[i++]));
            while (isConfigPair()) {
                configs.push_back(std::move(args[i]));
                configs.push_back(std::move(args[i + 1]));
                i += 2;
            }
            if (i < args.size()) {
                leading.push_back(std::move(args[i++]));
            }
        } else if (args[i] == "-y" && commandSeen) {
            leading.push_back(std::move(args[i++]));
        } else if (!commandSeen && !args[i].starts_with("-")) {
            commandSeen = true;
            leading.push_back(std::move(args[i++]));
        } else {
            break;
        }
    }
    configs.insert(configs.end(), std::make_move_iterator(leading.begin()),
                   std::make_move_iterator(leading.end()));
    configs.insert(configs.end(),
                   std::make_move_iterator(args.begin() + static_cast<std::ptrdiff_t>(i)),
                   std::make_move_iterator(args.end()));
    return configs;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::hgTaskWithArgs(const std::string& path,
                                                               std::vector<std::string> args) {
    writeProgramConfiguration();
    auto task = VNTask::taskWithCommand(hgPath(), path, configOptionsFirst(std::move(args)));
    task->setEnvironmentCustomisations(plainEnvironment());
    return task;
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::hgQueryTask(const std::string& path,
                                                            const std::string& command,
                                                            std::vector<std::string> args) {
    std::vector<std::string> all = defaultArgsForPath(path, command);
    all.insert(all.end(), std::make_move_iterator(args.begin()),
               std::make_move_iterator(args.end()));
    return hgQueryTaskWithArgs(path, std::move(all));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::hgQueryTaskWithArgs(const std::string& path,
                                                                    std::vector<std::string> args) {
    // chg refuses "--config" in strict plain mode wherever it stands; such runs go to hg.
    bool configured = std::find(args.begin(), args.end(), "--config") != args.end();
    auto task = hgTaskWithArgs(path, std::move(args));
    std::string hg = hgPath();
    if (auto chg = VNHgCommandServer::clientFor(hg); chg && !configured) {
        VNHgCommandServer::prepare(*task, hg, *chg, plainEnvironment());
    }
    return task;
}

bool VNRepoHandlerMercurial::runQuery(const std::shared_ptr<VNTask>& task) {
    if (task->run()) {
        return true;
    }
    std::string hg = hgPath();
    if (task->command() == hg || !VNHgCommandServer::serverFailed(*task)) {
        return false;
    }
    // The command server could not start: the same run through hg itself.
    vn::Log::warning("Mercurial command server failed, running hg instead: " + task->errorOutput(),
                     vn::Log::Mercurial);
    task->setCommand(hg);
    task->setEnvironmentCustomisations(plainEnvironment());
    return task->run();
}

bool VNRepoHandlerMercurial::usesCommandServer() const {
    return VNHgCommandServer::clientFor(hgPath()).has_value();
}

// ---- Failures ----------------------------------------------------------------------------------

void VNRepoHandlerMercurial::handleHgFailure(const std::string& label, int64_t exitCode,
                                             const std::string& errorOutput, bool displayToUser) {
    // The line that names a missing extension leads: it says what to do, hg's line only what
    // it did not know.
    static constexpr std::string_view Note = "This needs the Mercurial extension";
    if (std::size_t note = errorOutput.find(Note); note != std::string::npos && note > 0) {
        reportTaskFailure(label, exitCode, errorOutput.substr(note) + errorOutput.substr(0, note),
                          displayToUser, vn::Log::Mercurial);
        return;
    }
    reportTaskFailure(label, exitCode, errorOutput, displayToUser, vn::Log::Mercurial);
}

// ---- Repositories ------------------------------------------------------------------------------

bool VNRepoHandlerMercurial::validateWorkingDirectory(const std::string& path) {
    return !path.empty() && vn::fs::isDirectory(vn::fs::appendPathComponent(path, ".hg"));
}
