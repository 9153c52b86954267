#include "hg/VNHgCommandServer.h"

#include <unistd.h>

#include <filesystem>
#include <functional>

#include "base/Format.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Preferences.h"

namespace {

std::string resolved(const std::string& path) {
    std::error_code error;
    auto real = std::filesystem::canonical(path, error);
    return error ? path : real.string();
}

// The variables that decide what a server reads at start: its configuration files and where
// they are looked up, and the hg it runs.
constexpr const char* SignificantVariables[] = {
    "HOME",   "HGRCPATH", "HGPLAIN", "HGPLAINEXCEPT", "HGENCODING", "HGUSER", "XDG_CONFIG_HOME",
    "LC_ALL", "LANG",     "PATH",    "PYTHONPATH",    "TZ",         "CHGHG",
};

}  // namespace

std::optional<std::string> VNHgCommandServer::installedClientFor(const std::string& hgPath) {
    std::string real = resolved(hgPath);
    std::string beside =
        vn::fs::appendPathComponent(vn::fs::deletingLastPathComponent(real), "chg");
    if (vn::fs::isExecutableFile(beside)) {
        return beside;
    }
    return std::nullopt;
}

std::optional<std::string> VNHgCommandServer::clientFor(const std::string& hgPath) {
    if (const char* setting = std::getenv("VARNEL_HG_COMMAND_SERVER");
        setting && std::string_view(setting) == "0") {
        return std::nullopt;
    }
    vn::Value preference = vn::Preferences::standard().valueForKey("mercurialUseCommandServer");
    if (!preference.isNull() && !preference.toBool()) {
        return std::nullopt;
    }
    return installedClientFor(hgPath);
}

std::string VNHgCommandServer::socketFolder() {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::string folder =
        runtime && *runtime && vn::fs::isDirectory(runtime)
            ? vn::fs::appendPathComponent(runtime, "varnel/chg")
            : vn::format("/tmp/varnel-chg-%lu", static_cast<unsigned long>(::getuid()));
    vn::fs::makeDirectories(folder, 0700);
    return folder;
}

std::string VNHgCommandServer::socketPathFor(const std::string& hgPath,
                                             const vn::Environment& env) {
    std::string key = resolved(hgPath);
    for (const char* name : SignificantVariables) {
        auto it = env.find(name);
        key.append("\x1f").append(name).append("=");
        if (it != env.end()) {
            key.append(it->second);
        }
    }
    std::size_t hash = std::hash<std::string>{}(key);
    return vn::fs::appendPathComponent(socketFolder(),
                                       vn::format("server-%lx", static_cast<unsigned long>(hash)));
}

void VNHgCommandServer::prepare(VNTask& task, const std::string& hgPath, const std::string& chgPath,
                                const vn::Environment& plain) {
    vn::Environment env = vn::processEnvironment();
    task.addStandardHgEnvironment(env);
    for (const auto& [name, value] : plain) {
        env[name] = value;
    }
    env["CHGHG"] = hgPath;
    env["CHGSOCKNAME"] = socketPathFor(hgPath, env);
    task.setCommand(chgPath);
    task.setEnvironmentCustomisations(std::move(env));
}

bool VNHgCommandServer::serverFailed(const VNTask& task) {
    if (task.termination() == VNTask::Termination::CouldNotStart) {
        return true;
    }
    // chg's own complaints start with "chg: "; hg's are "abort: ..." and the like.
    const std::string& error = task.errorOutput();
    return !task.success() &&
           (error.starts_with("chg: ") || error.find("\nchg: ") != std::string::npos);
}

void VNHgCommandServer::stopServer(const std::string& hgPath, const vn::Environment& plain) {
    auto chg = installedClientFor(hgPath);
    if (!chg) {
        return;
    }
    auto task = VNTask::taskWithCommand(*chg, "/", {"--kill-chg-daemon"});
    prepare(*task, hgPath, *chg, plain);
    const auto& env = *task->environmentCustomisations();
    std::string socket = env.at("CHGSOCKNAME");
    // Only a server that runs: asking chg to stop one that does not would start it first.
    if (!std::filesystem::exists(std::filesystem::symlink_status(socket))) {
        return;
    }
    task->run();
    std::error_code error;
    std::filesystem::remove(socket, error);
}
