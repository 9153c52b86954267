// hg-flow: feature, release and hotfix branches through the hgflow extension, configured in the
// repository's ".flow" file.

#include "base/Regex.h"
#include "hg/VNRepoHandlerMercurial.h"
#include "model/VNConfigFile.h"
#include "platform/FileSystem.h"

namespace {

constexpr const char* FlowFile = ".flow";
constexpr const char* FlowSection = "hgflow";

// hg-flow's own defaults, used for keys the file does not set.
const std::vector<std::pair<std::string, std::string>>& flowDefaults() {
    static const std::vector<std::pair<std::string, std::string>> defaults = {
        {"master", "default"},   {"develop", "develop"}, {"feature", "feature/"},
        {"release", "release/"}, {"hotfix", "hotfix/"},  {"versiontag", ""},
        {"support", "support/"},
    };
    return defaults;
}

std::vector<std::string_view> lines(std::string_view text) {
    std::vector<std::string_view> result;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        result.push_back(line);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return result;
}

}  // namespace

std::shared_ptr<VNTask> VNRepoHandlerMercurial::flowTask(const std::string& path,
                                                         std::vector<std::string> args) {
    auto task = writeTask(path, "flow", std::move(args));
    explainMissingExtension(*task, "hgflow", {"unknown command 'flow'"});
    return task;
}

bool VNRepoHandlerMercurial::isFlowEnabled(const std::string& path) {
    return vn::fs::exists(vn::fs::appendPathComponent(path, FlowFile));
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::flowInitTask(const std::string& path) {
    return flowTask(path, {"init"});
}

bool VNRepoHandlerMercurial::flowConfigure(
    const std::string& path, const std::string& productionBranch, const std::string& developBranch,
    const std::string& featurePrefix, const std::string& releasePrefix,
    const std::string& hotfixPrefix, const std::string& versionTagPrefix) {
    VNConfigFile config(vn::fs::appendPathComponent(path, FlowFile), true, true);
    const std::pair<const char*, const std::string*> values[] = {
        {"master", &productionBranch}, {"develop", &developBranch},
        {"feature", &featurePrefix},   {"release", &releasePrefix},
        {"hotfix", &hotfixPrefix},     {"versiontag", &versionTagPrefix},
    };
    for (const auto& [key, value] : values) {
        config.setConfigValue(*value, key, FlowSection);
    }
    if (!config.getConfigValueForKey("support", FlowSection)) {
        config.setConfigValue("support/", "support", FlowSection);
    }
    return config.save();
}

vn::Record VNRepoHandlerMercurial::flowPrefixes(const std::string& path) {
    std::string file = vn::fs::appendPathComponent(path, FlowFile);
    vn::Record prefixes;
    std::optional<VNConfigFile> config;
    if (vn::fs::exists(file)) {
        config.emplace(file, true, true);
    }
    for (const auto& [key, fallback] : flowDefaults()) {
        std::optional<std::string> value;
        if (config) {
            value = config->getConfigValueForKey(key, FlowSection);
        }
        prefixes.set(key, value.value_or(fallback));
    }
    return prefixes;
}

std::string VNRepoHandlerMercurial::flowOutput(const std::string& path, const std::string& kind) {
    auto task = flowTask(path, {kind, "list"});
    if (runQuery(task)) {
        return task->output();
    }
    // Without hg-flow the error names the missing extension.
    handleHgFailure("hg flow", task->exitCode(), task->errorOutput(), false);
    return {};
}

std::optional<std::string> VNRepoHandlerMercurial::parseFlowCurrent(std::string_view output,
                                                                    const std::string& prefix) {
    vn::Regex current("flow: " + vn::Regex::escape(prefix) + R"((.*?)\#?\*)");
    for (std::string_view line : lines(output)) {
        if (auto match = current.match(line)) {
            return match->str(1);
        }
    }
    return std::nullopt;
}

std::vector<std::string> VNRepoHandlerMercurial::parseFlowOpen(std::string_view output,
                                                               const std::string& prefix) {
    vn::Regex open("flow: " + vn::Regex::escape(prefix) + R"((.*?)\#?\*?)");
    std::vector<std::string> names;
    bool listing = false;
    for (std::string_view line : lines(output)) {
        if (line.rfind("flow: Open", 0) == 0) {
            listing = true;
            continue;
        }
        if (!listing) {
            continue;
        }
        if (auto match = open.match(line)) {
            names.push_back(match->str(1));
        }
    }
    return names;
}

std::optional<std::string> VNRepoHandlerMercurial::flowCurrentState(const std::string& path,
                                                                    const std::string& ofType) {
    std::string prefix = flowPrefixes(path).string(ofType);
    return parseFlowCurrent(flowOutput(path, ofType), prefix);
}

std::optional<std::string> VNRepoHandlerMercurial::flowCurrentFeatureName(const std::string& path) {
    return flowCurrentState(path, "feature");
}

std::optional<std::string> VNRepoHandlerMercurial::flowCurrentReleaseName(const std::string& path) {
    return flowCurrentState(path, "release");
}

std::optional<std::string> VNRepoHandlerMercurial::flowCurrentHotfixName(const std::string& path) {
    return flowCurrentState(path, "hotfix");
}

std::vector<std::string> VNRepoHandlerMercurial::flowList(const std::string& path,
                                                          const std::string& ofType) {
    std::string prefix = flowPrefixes(path).string(ofType);
    return parseFlowOpen(flowOutput(path, ofType), prefix);
}

std::vector<std::string> VNRepoHandlerMercurial::flowFeatureList(const std::string& path) {
    return flowList(path, "feature");
}

std::vector<std::string> VNRepoHandlerMercurial::flowReleaseList(const std::string& path) {
    return flowList(path, "release");
}

std::vector<std::string> VNRepoHandlerMercurial::flowHotfixList(const std::string& path) {
    return flowList(path, "hotfix");
}

namespace {

// "start" of a feature, release or hotfix branch, from `baseRevision` when one is given.
std::vector<std::string> flowStartArgs(const char* kind, const std::string& name,
                                       const std::optional<std::string>& baseRevision) {
    std::vector<std::string> args{kind, "start"};
    if (baseRevision && !baseRevision->empty()) {
        args.emplace_back("-r");
        args.push_back(*baseRevision);
    }
    args.emplace_back("--");
    args.push_back(name);
    return args;
}

// "finish" of a release or hotfix branch, with the message of its tag when one is given.
std::vector<std::string> flowFinishArgs(const char* kind, const std::string& name,
                                        const std::string& message) {
    std::vector<std::string> args{kind, "finish"};
    if (!message.empty()) {
        args.emplace_back("-m");
        args.push_back(message);
    }
    args.emplace_back("--");
    args.push_back(name);
    return args;
}

}  // namespace

std::shared_ptr<VNTask> VNRepoHandlerMercurial::flowFeatureStartTask(
    const std::string& path, const std::string& name,
    const std::optional<std::string>& baseRevision, uint64_t /*options*/) {
    return flowTask(path, flowStartArgs("feature", name, baseRevision));
}

VNTaskList VNRepoHandlerMercurial::flowFeatureFinishTasks(const std::string& path,
                                                          const std::string& name,
                                                          uint64_t /*options*/) {
    return {flowTask(path, {"feature", "finish", "--", name})};
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::flowReleaseStartTask(
    const std::string& path, const std::string& name,
    const std::optional<std::string>& baseRevision) {
    return flowTask(path, flowStartArgs("release", name, baseRevision));
}

VNTaskList VNRepoHandlerMercurial::flowReleaseFinishTasks(const std::string& path,
                                                          const std::string& name,
                                                          const std::string& message,
                                                          uint64_t /*options*/) {
    return {flowTask(path, flowFinishArgs("release", name, message))};
}

std::shared_ptr<VNTask> VNRepoHandlerMercurial::flowHotfixStartTask(
    const std::string& path, const std::string& name,
    const std::optional<std::string>& baseRevision, uint64_t /*options*/) {
    return flowTask(path, flowStartArgs("hotfix", name, baseRevision));
}

VNTaskList VNRepoHandlerMercurial::flowHotfixFinishTasks(const std::string& path,
                                                         const std::string& name,
                                                         const std::string& message,
                                                         uint64_t /*options*/) {
    return {flowTask(path, flowFinishArgs("hotfix", name, message))};
}
