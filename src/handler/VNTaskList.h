#pragma once

#include <memory>

#include "handler/VNRepoHandler.h"

// Runs the tasks of a list one after the other on the calling thread and stops at the first that
// fails. Answers that task, or null when every task succeeded (also for an empty list).
std::shared_ptr<VNTask> runTasksUntilFailure(const VNTaskList& tasks);
