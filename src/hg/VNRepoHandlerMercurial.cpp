#include "hg/VNRepoHandlerMercurial.h"

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

std::shared_ptr<VNTask> VNRepoHandlerMercurial::hgTaskWithArgs(const std::string& path,
                                                               std::vector<std::string> args) {
    writeProgramConfiguration();
    auto task = VNTask::taskWithCommand(hgPath(), path, std::move(args));
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
    auto task = hgTaskWithArgs(path, std::move(args));
    std::string hg = hgPath();
    if (auto chg = VNHgCommandServer::clientFor(hg)) {
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
    reportTaskFailure(label, exitCode, errorOutput, displayToUser, vn::Log::Mercurial);
}

// ---- Repositories ------------------------------------------------------------------------------

bool VNRepoHandlerMercurial::validateWorkingDirectory(const std::string& path) {
    return !path.empty() && vn::fs::isDirectory(vn::fs::appendPathComponent(path, ".hg"));
}
