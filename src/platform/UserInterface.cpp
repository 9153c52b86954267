#include "platform/UserInterface.h"

#include <mutex>

#include "platform/Log.h"

namespace vn {

namespace {
std::mutex gMutex;
std::shared_ptr<UserInterface> gCurrent;
}  // namespace

int UserInterface::showAlert(const Alert& alert) {
    Log::log(alert.critical ? Log::Error : Log::Warning, Log::General,
             "Alert \"" + alert.title + "\": " + alert.message);
    return 0;
}

void UserInterface::showNotification(const std::string& title, const std::string& text) {
    Log::info("Notification \"" + title + "\": " + text);
}

std::shared_ptr<UserInterface> UserInterface::current() {
    std::lock_guard<std::mutex> lock(gMutex);
    if (!gCurrent) {
        gCurrent = std::make_shared<UserInterface>();
    }
    return gCurrent;
}

void UserInterface::install(std::shared_ptr<UserInterface> ui) {
    std::lock_guard<std::mutex> lock(gMutex);
    gCurrent = std::move(ui);
}

}  // namespace vn
