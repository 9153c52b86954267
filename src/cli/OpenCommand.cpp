#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "app/VNApplication.h"
#include "cli/Cli.h"
#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Resources.h"

namespace vn::cli {

namespace {

bool displayAvailable() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value && *value) {
            return true;
        }
    }
    return false;
}

// The desktop program: $VARNEL_DESKTOP when set, else varnel beside vrnl.
std::string desktopProgram() {
    if (const char* chosen = std::getenv("VARNEL_DESKTOP"); chosen && *chosen) {
        return chosen;
    }
    return fs::appendPathComponent(Resources::executableFolder(), "varnel");
}

}  // namespace

int runOpen(Arguments& args) {
    bool json = args.flag("--json");
    auto rest = args.positional();
    if (!args.error().empty()) {
        return usageError(args.error());
    }
    if (rest.size() > 1) {
        return usageError("open takes at most one repository path");
    }
    std::error_code error;
    std::filesystem::path given = rest.empty() ? "." : rest[0];
    std::filesystem::path folder = std::filesystem::absolute(given, error).lexically_normal();
    std::string path = folder.string();
    if (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    if (error || !fs::isDirectory(path)) {
        std::cerr << "vrnl: there is no folder " << display(path) << "\n";
        return 1;
    }
    if (VNApplication::shared().determineRepositoryType(path) == VNRepositoryTypeUnknown) {
        std::cerr << "vrnl: " << display(path) << " is not a working copy Varnel can open\n";
        return 1;
    }
    if (!displayAvailable()) {
        std::cerr << "vrnl: no display to open a window on (neither DISPLAY nor WAYLAND_DISPLAY "
                     "is set); `vrnl overview "
                  << display(path) << "` shows the repository in the terminal\n";
        return 1;
    }
    std::string program = desktopProgram();
    if (!fs::isExecutableFile(program)) {
        std::cerr << "vrnl: the desktop application " << display(program) << " is not installed\n";
        return 1;
    }
    // setsid -f starts the window in a session of its own and returns at once, so the terminal
    // is free again and closing it leaves the window open.
    auto setsid = fs::findExecutable("setsid");
    if (!setsid) {
        std::cerr << "vrnl: setsid (util-linux) is needed to start the window\n";
        return 1;
    }
    auto task = VNTask::taskWithCommand(*setsid, path, {"-f", program, "--detached", path});
    if (!task->run()) {
        std::cerr << "vrnl: could not start " << display(program) << ": "
                  << displayLines(task->errorOutput()) << "\n";
        return 1;
    }
    if (json) {
        Record result{{"path", path}, {"program", program}, {"started", true}};
        printJson(result);
    } else {
        std::cout << "Opening " << display(path) << " in Varnel\n";
    }
    return 0;
}

const Subcommand& openCommand() {
    static const Subcommand command{
        "open",
        {"open [PATH] [--json]"},
        "Open the working copy in the Varnel desktop window",
        "Starts the desktop application varnel (installed beside vrnl; VARNEL_DESKTOP names "
        "another program) on the working copy that PATH names (the current folder by default) "
        "and returns at once. Without a display it says so and names the terminal overview "
        "instead.",
        {{"--json", "Print what was started as JSON: path, program, started"}},
        runOpen,
    };
    return command;
}

}  // namespace vn::cli
