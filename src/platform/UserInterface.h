#pragma once

#include <memory>
#include <string>
#include <vector>

namespace vn {

struct Alert {
    std::string title;
    std::string message;
    std::vector<std::string> buttons;  // the first is the default; none means "OK"
    bool critical = false;
};

// How the engine reaches the person: alerts, questions and desktop notifications. A front end
// installs its own; the default one logs and answers the default button.
class UserInterface {
  public:
    virtual ~UserInterface() = default;

    // Shows the alert and answers the index of the chosen button.
    virtual int showAlert(const Alert& alert);
    virtual void showNotification(const std::string& title, const std::string& text);

    static std::shared_ptr<UserInterface> current();
    static void install(std::shared_ptr<UserInterface> ui);
};

}  // namespace vn
