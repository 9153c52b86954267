#include "handler/FileType.h"

#include <filesystem>
#include <optional>

#include "handler/VNTask.h"
#include "model/VNDiffFileModel.h"
#include "platform/FileSystem.h"
#include "platform/Log.h"

namespace vn {

namespace {

std::optional<std::string> findFileCommand() {
    if (auto found = vn::fs::findExecutable("file")) {
        return found;
    }
    // A desktop session may start us with a bare PATH; `file` lives in the system folders.
    static const std::string systemFolders = "/usr/bin:/bin:/usr/local/bin";
    return vn::fs::findExecutable("file", &systemFolders);
}

}  // namespace

uint64_t determineFileType(const std::string& path) {
    if (path.empty() || !vn::fs::exists(path)) {
        return VNDiffFileModel::Text;
    }
    std::optional<std::string> command = findFileCommand();
    if (!command) {
        vn::Log::error("Unable to locate 'file' command!");
        return VNDiffFileModel::Text;
    }
    // Absolute, so that the task has a folder to run in and a name starting with a dash is not
    // taken for an option.
    std::error_code error;
    std::string absolute = std::filesystem::absolute(path, error).string();
    if (error) {
        return VNDiffFileModel::Text;
    }
    auto task = VNTask::taskWithCommand(*command, vn::fs::deletingLastPathComponent(absolute),
                                        {"-b", absolute});
    if (!task->run()) {
        return VNDiffFileModel::Text;
    }
    return task->output().find("text") == std::string::npos ? VNDiffFileModel::Binary
                                                            : VNDiffFileModel::Text;
}

}  // namespace vn
