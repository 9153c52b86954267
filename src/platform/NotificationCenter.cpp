#include "platform/NotificationCenter.h"

#include <algorithm>

#include "platform/MainLoop.h"

namespace vn {

NotificationCenter::Observation::Observation(Observation&& other) noexcept
    : center_(other.center_), entry_(std::move(other.entry_)) {
    other.center_ = nullptr;
}

NotificationCenter::Observation& NotificationCenter::Observation::operator=(
    Observation&& other) noexcept {
    if (this != &other) {
        reset();
        center_ = other.center_;
        entry_ = std::move(other.entry_);
        other.center_ = nullptr;
    }
    return *this;
}

NotificationCenter::Observation::~Observation() {
    reset();
}

void NotificationCenter::Observation::reset() {
    if (entry_ && center_) {
        center_->remove(entry_);
    }
    entry_.reset();
    center_ = nullptr;
}

NotificationCenter& NotificationCenter::defaultCenter() {
    static NotificationCenter* center = new NotificationCenter();
    return *center;
}

NotificationCenter::Observation NotificationCenter::addObserver(std::string name,
                                                                const void* sender,
                                                                Handler handler) {
    auto entry = std::make_shared<Observation::Entry>();
    entry->name = name;
    entry->sender = sender;
    entry->handler = std::move(handler);
    std::lock_guard<std::mutex> lock(mutex_);
    observers_[std::move(name)].push_back(entry);
    return Observation(this, std::move(entry));
}

void NotificationCenter::remove(const std::shared_ptr<Observation::Entry>& entry) {
    entry->alive.store(false);
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = observers_.find(entry->name);
    if (it == observers_.end()) {
        return;
    }
    auto& list = it->second;
    list.erase(std::remove(list.begin(), list.end(), entry), list.end());
    if (list.empty()) {
        observers_.erase(it);
    }
}

void NotificationCenter::post(const Notification& notification) {
    std::vector<std::shared_ptr<Observation::Entry>> targets;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto it = observers_.find(notification.name);
        if (it == observers_.end()) {
            return;
        }
        targets = it->second;
    }
    for (const auto& entry : targets) {
        // An observer removed by an earlier handler of this same post is not called.
        if (entry->alive.load() && (!entry->sender || entry->sender == notification.sender)) {
            entry->handler(notification);
        }
    }
}

void NotificationCenter::postOnMainThread(Notification notification) {
    MainLoop* loop = MainLoop::main();
    if (!loop) {
        post(notification);
        return;
    }
    loop->post([this, n = std::move(notification)] { post(n); });
}

}  // namespace vn
