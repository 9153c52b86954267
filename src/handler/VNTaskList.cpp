#include "handler/VNTaskList.h"

std::shared_ptr<VNTask> runTasksUntilFailure(const VNTaskList& tasks) {
    for (const auto& task : tasks) {
        if (!task->run()) {
            return task;
        }
    }
    return nullptr;
}
