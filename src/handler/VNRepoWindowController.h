#pragma once

#include <functional>
#include <memory>
#include <string>

class VNRepoDocument;

// The window of one repository document, as the engine sees it. A front end with windows
// registers a factory; the handlers' `newWindowControllerWithDoc` makes windows through it, so
// that the engine never depends on the front end.
class VNRepoWindowController {
  public:
    using Factory =
        std::function<std::shared_ptr<VNRepoWindowController>(std::shared_ptr<VNRepoDocument>)>;

    virtual ~VNRepoWindowController() = default;

    virtual void showWindow() = 0;
    virtual void close() = 0;
    virtual std::shared_ptr<VNRepoDocument> document() const = 0;

    // Installs the factory windows are made with, replacing the one before; an empty function
    // removes it. Answers the one replaced.
    static Factory registerFactory(Factory factory);
    static bool hasFactory();
    // A window for `doc` from the registered factory; null, with the reason logged and in
    // `error` when given, without a factory or a document.
    static std::shared_ptr<VNRepoWindowController> create(std::shared_ptr<VNRepoDocument> doc,
                                                          std::string* error = nullptr);
};
