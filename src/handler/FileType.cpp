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

// What `file -b` says of the file at `path`; nothing when it cannot tell.
std::optional<std::string> describeFile(const std::string& path) {
    if (path.empty() || !vn::fs::exists(path)) {
        return std::nullopt;
    }
    std::optional<std::string> command = findFileCommand();
    if (!command) {
        vn::Log::error("Unable to locate 'file' command!");
        return std::nullopt;
    }
    // Absolute, so that the task has a folder to run in and a name starting with a dash is not
    // taken for an option.
    std::error_code error;
    std::string absolute = std::filesystem::absolute(path, error).string();
    if (error) {
        return std::nullopt;
    }
    auto task = VNTask::taskWithCommand(*command, vn::fs::deletingLastPathComponent(absolute),
                                        {"-b", absolute});
    if (!task->run()) {
        return std::nullopt;
    }
    return task->output();
}

}  // namespace

uint64_t determineFileType(const std::string& path) {
    std::optional<std::string> description = describeFile(path);
    if (!description) {
        return VNDiffFileModel::Text;
    }
    return description->find("text") == std::string::npos ? VNDiffFileModel::Binary
                                                          : VNDiffFileModel::Text;
}

TextFormat textFormatFromDescription(std::string_view description) {
    TextFormat format;
    format.crlf = description.find(" CRLF ") != std::string_view::npos;
    if (description.find("Non-ISO extended-ASCII") != std::string_view::npos) {
        format.encoding = TextEncoding::MacRoman;
    } else if (description.find("UTF-8") != std::string_view::npos) {
        format.encoding = TextEncoding::UTF8;
    } else if (description.find("ISO-8859") != std::string_view::npos) {
        format.encoding = TextEncoding::Latin1;
    }
    return format;
}

TextFormat textFormatOfFile(const std::string& path) {
    std::optional<std::string> description = describeFile(path);
    return description ? textFormatFromDescription(*description) : TextFormat{};
}

}  // namespace vn
