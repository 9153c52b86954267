#include "handler/VNHunkActions.h"

#include <chrono>

#include "base/Record.h"
#include "handler/FileType.h"
#include "platform/FileSystem.h"
#include "platform/Localized.h"
#include "platform/NotificationCenter.h"
#include "platform/UserInterface.h"

namespace {

using Action = VNHunkActions::Action;
using Outcome = VNHunkActions::Outcome;
using State = VNHunkActions::State;
using PatchTarget = VNRepoHandlerBase::PatchTarget;

Outcome notPossible(std::string message) {
    Outcome outcome;
    outcome.state = State::NotPossible;
    outcome.message = std::move(message);
    return outcome;
}

void requestRefresh(const VNHunkActions::Context& context, bool staged) {
    auto& center = vn::NotificationCenter::defaultCenter();
    if (staged) {
        center.post(VNHunkActions::StagedChangesNotification, context.document,
                    vn::Record{{"path", context.repositoryPath}});
    }
    vn::Record details{
        {"repoUpdatedWorkingCopy", true},
        {"repoUpdatedMetadata", false},
        {"repoUpdatedManual", true},
        {"repoUpdatedPaths", vn::Value::Array{}},
        {"repoUpdatedEventDate", vn::Value(std::chrono::system_clock::now())},
    };
    center.post(VNHunkActions::UpdateRequestNotification, context.document,
                vn::Record{{"path", context.repositoryPath}, {"details", std::move(details)}});
}

Outcome apply(const VNHunkActions::Context& context, const std::string& patch, PatchTarget target,
              bool reverse, vn::TextEncoding encoding, uint64_t options) {
    Outcome outcome;
    outcome.patch = patch;
    VNRepoHandlerBase::PatchApplication applied = context.handler->applyPatch(
        context.repositoryPath, patch, target, reverse, encoding, options);
    outcome.state = applied.success ? State::Applied : State::Refused;
    outcome.message = applied.errorOutput;
    outcome.keptPatchFile = applied.keptPatchFile;
    return outcome;
}

bool confirmed(Action action) {
    bool lines = VNHunkActions::isLineAction(action);
    vn::Alert alert;
    alert.title = vn::localized(lines ? "ConfirmDiscardLinesTitle" : "ConfirmDiscardHunkTitle");
    alert.message = vn::localized(lines ? "ConfirmDiscardLinesMsg" : "ConfirmDiscardHunkMsg");
    alert.buttons = {vn::localized("OK"), vn::localized("Cancel")};
    return vn::UserInterface::current()->showAlert(alert) == 0;
}

// The whole file instead of a hunk: an untracked file is staged by a patch that creates it, a
// deleted one by the patch that deletes it, an added or deleted file unstaged by the reverse of
// the patch that adds or deletes it.
Outcome wholeFile(Action action, const VNHunkActions::Context& context,
                  const VNDiffFileModel& file) {
    const std::string& root = context.repositoryPath;
    uint64_t options = context.patchOptions & VNRepoHandlerBase::PatchIgnoreWhitespace;
    if (action == Action::StageHunk && file.changeType() == VNDiffFileModel::Untracked) {
        std::string full = vn::fs::appendPathComponent(root, file.filename());
        std::string mode = context.handler->fileModeForPatch(root, file.filename(), false);
        if (mode == "120000" || vn::fs::isDirectory(full)) {
            return notPossible(file.filename() + " is not a regular file; add it as a whole");
        }
        std::optional<std::string> content = vn::fs::readFile(full);
        if (!content) {
            return notPossible("cannot read " + full);
        }
        if (content->find('\0') != std::string::npos) {
            return notPossible(file.filename() + " is binary; add it as a whole");
        }
        Outcome outcome = apply(context, vn::createNewFilePatch(file.filename(), *content, mode),
                                PatchTarget::Index, false, vn::TextEncoding::UTF8, options);
        outcome.wholeFileSummary = "Staging file";
        return outcome;
    }
    bool deleted = file.changeType() == VNDiffFileModel::Deleted;
    if (action == Action::StageHunk) {
        // The deletion of a file staged: a patch that deletes it from the index rather than
        // one that leaves it there empty.
        std::string mode = context.handler->fileModeForPatch(root, file.filename(), false);
        Outcome outcome = apply(context, vn::createPatch(file, false, mode), PatchTarget::Index,
                                false, vn::TextEncoding::UTF8, options);
        outcome.wholeFileSummary = "Staging file";
        return outcome;
    }
    std::string mode = context.handler->fileModeForPatch(root, file.filename(), deleted);
    Outcome outcome = apply(context, vn::createPatch(file, false, mode), PatchTarget::Index, true,
                            vn::TextEncoding::UTF8, options);
    outcome.wholeFileSummary = "Unstaging file";
    return outcome;
}

}  // namespace

bool VNHunkActions::isLineAction(Action action) {
    return action == Action::StageLines || action == Action::UnstageLines ||
           action == Action::DiscardLines;
}

bool VNHunkActions::isDiscard(Action action) {
    return action == Action::DiscardHunk || action == Action::DiscardLines;
}

const char* VNHunkActions::actionName(Action action) {
    switch (action) {
        case Action::StageHunk:
            return "stageHunk";
        case Action::UnstageHunk:
            return "unstageHunk";
        case Action::DiscardHunk:
            return "discardHunk";
        case Action::StageLines:
            return "stageLines";
        case Action::UnstageLines:
            return "unstageLines";
        case Action::DiscardLines:
            return "discardLines";
    }
    return "";
}

VNHunkActions::Outcome VNHunkActions::perform(Action action, const Context& context,
                                              const VNDiffFileModel& file,
                                              const VNDiffHunkModel& hunk,
                                              vn::HunkLineRange range) {
    if (!context.handler) {
        return notPossible("no repository handler");
    }
    bool staging = action == Action::StageHunk || action == Action::StageLines;
    bool discard = isDiscard(action);
    if (!isLineAction(action)) {
        range = {0, hunk.lineCount()};
    } else if (range.length == 0) {
        return {};
    }
    uint64_t changeType = file.changeType();
    if (action == Action::StageHunk &&
        (changeType == VNDiffFileModel::Untracked ||
         (changeType == VNDiffFileModel::Deleted && file.hunks().size() == 1))) {
        Outcome outcome = wholeFile(action, context, file);
        requestRefresh(context, true);
        return outcome;
    }
    if (action == Action::UnstageHunk &&
        (changeType == VNDiffFileModel::Added || changeType == VNDiffFileModel::Deleted)) {
        Outcome outcome = wholeFile(action, context, file);
        requestRefresh(context, false);
        return outcome;
    }
    if (discard && !context.committedRevision && changeType != VNDiffFileModel::Modified) {
        return notPossible("only changes to a modified file can be discarded");
    }
    if (file.fileType() != VNDiffFileModel::Text) {
        return notPossible(file.filename() + " has no lines to patch");
    }
    std::string problem = vn::hunkPatchProblem(hunk);
    if (!problem.empty()) {
        return notPossible(problem);
    }

    // A hunk the parser read knows its lines' ends and bytes; only a hunk given as records
    // needs the file's own format.
    vn::TextFormat format;
    if (hunk.lineCount() > 0 && hunk.lineEndAt(0) == VNDiffHunkModel::LineEnd::Unknown) {
        format = vn::textFormatOfFile(
            vn::fs::appendPathComponent(context.repositoryPath, file.filename()));
    }
    std::optional<std::string> patch =
        vn::createPatchForHunkLinesInRange(file, hunk, range, staging, format.crlf);
    if (!patch) {
        return {};
    }
    if (discard && !context.committedRevision && context.confirmDiscard && !confirmed(action)) {
        Outcome outcome;
        outcome.state = State::Cancelled;
        return outcome;
    }

    uint64_t options = context.patchOptions & VNRepoHandlerBase::PatchIgnoreWhitespace;
    Outcome outcome;
    if (discard) {
        // Reduced context for a hunk of a revision, but for selected lines of a working-copy
        // file; the two discards differ here on purpose.
        bool reduced =
            action == Action::DiscardHunk ? context.committedRevision : !context.committedRevision;
        if (reduced) {
            options |= VNRepoHandlerBase::PatchReducedContext;
        }
        outcome =
            apply(context, *patch, PatchTarget::WorkingFolder, true, format.encoding, options);
    } else {
        outcome = apply(context, *patch, PatchTarget::Index, !staging, format.encoding, options);
    }
    requestRefresh(context, staging);
    return outcome;
}
