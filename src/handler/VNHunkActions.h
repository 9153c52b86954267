#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "handler/VNRepoHandlerBase.h"
#include "model/DiffPatch.h"
#include "model/VNDiffFileModel.h"

// Staging, unstaging and discarding one hunk or the rows selected in it. Nothing edits the index
// or the files directly: each action writes a patch of exactly the chosen change and has the
// backend apply it (to the index for staging and unstaging, in reverse to the working folder for
// discarding).
//
// After an action that produced a patch the document is asked to refresh: the notification
// "repoUpdateRequested" (sender: the document; user info: "path" and the update details of a
// manual working-copy update). Staging also posts "stagedChanges" for the document. Both go out
// whatever the outcome, since a refused patch may still leave the view out of date.
class VNHunkActions {
  public:
    enum class Action {
        StageHunk,
        UnstageHunk,
        DiscardHunk,
        StageLines,
        UnstageLines,
        DiscardLines
    };

    static constexpr const char* StagedChangesNotification = "stagedChanges";
    static constexpr const char* UpdateRequestNotification = "repoUpdateRequested";

    struct Context {
        std::string repositoryPath;
        std::shared_ptr<VNRepoHandlerBase> handler;
        // The document's patch options: PatchIgnoreWhitespace; PatchReducedContext is decided
        // by the action.
        uint64_t patchOptions = 0;
        // The hunk comes from a committed revision: discarding reverts that change in the
        // working folder, without asking. Otherwise it is a change of the working copy.
        bool committedRevision = false;
        // Ask through the user interface before discarding a working-copy change.
        bool confirmDiscard = true;
        // The sender of the notifications.
        const void* document = nullptr;
    };

    enum class State {
        Applied,
        NothingSelected,  // no added or removed row in the range: no patch, no command
        Cancelled,        // the person declined the discard
        Refused,          // the tool refused the patch; see `message` and `keptPatchFile`
        NotPossible,      // the action does not apply to this file; see `message`
    };
    struct Outcome {
        State state = State::NothingSelected;
        std::string message;
        std::string keptPatchFile;
        std::string patch;
        // The whole file was staged or unstaged instead of the hunk ("Staging file",
        // "Unstaging file").
        std::string wholeFileSummary;
    };

    static bool isLineAction(Action action);
    static bool isDiscard(Action action);
    static const char* actionName(Action action);

    // Runs the action on `hunk` of `file`; the hunk actions take the whole hunk and ignore
    // `range`.
    static Outcome perform(Action action, const Context& context, const VNDiffFileModel& file,
                           const VNDiffHunkModel& hunk, vn::HunkLineRange range);
};
