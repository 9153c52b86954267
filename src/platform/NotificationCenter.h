#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "base/Record.h"

namespace vn {

struct Notification {
    std::string name;
    // Identifies the sender; observers that asked for one sender compare against it.
    const void* sender = nullptr;
    Record userInfo;
};

// Named notifications with a sender and a user-info record. `post` calls the observers on the
// calling thread; `postOnMainThread` queues the delivery to the main loop.
class NotificationCenter {
  public:
    using Handler = std::function<void(const Notification&)>;

    // Keeps an observer registered while it lives.
    class Observation {
      public:
        Observation() = default;
        Observation(Observation&& other) noexcept;
        Observation& operator=(Observation&& other) noexcept;
        ~Observation();
        void reset();
        bool active() const { return entry_ != nullptr; }

      private:
        friend class NotificationCenter;
        struct Entry;
        Observation(NotificationCenter* center, std::shared_ptr<Entry> entry)
            : center_(center), entry_(std::move(entry)) {}
        NotificationCenter* center_ = nullptr;
        std::shared_ptr<Entry> entry_;
    };

    static NotificationCenter& defaultCenter();

    // `sender` null observes every sender.
    [[nodiscard]] Observation addObserver(std::string name, const void* sender, Handler handler);

    void post(const Notification& notification);
    void post(std::string name, const void* sender, Record userInfo = {}) {
        post(Notification{std::move(name), sender, std::move(userInfo)});
    }
    // Without a main loop the notification is delivered at once on the calling thread.
    void postOnMainThread(Notification notification);

  private:
    void remove(const std::shared_ptr<Observation::Entry>& entry);

    std::mutex mutex_;
    std::unordered_map<std::string, std::vector<std::shared_ptr<Observation::Entry>>> observers_;
};

struct NotificationCenter::Observation::Entry {
    std::string name;
    const void* sender;
    Handler handler;
    std::atomic<bool> alive{true};
};

}  // namespace vn
