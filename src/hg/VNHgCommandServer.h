#pragma once

#include <optional>
#include <string>

#include "platform/Process.h"

class VNTask;

// Mercurial's command server client `chg`: it keeps a started hg in memory, so that a query
// costs a few milliseconds instead of a Python start-up. Queries go through it when it is
// installed beside the hg in use, the preference "mercurialUseCommandServer" is on and the
// variable VARNEL_HG_COMMAND_SERVER is not "0".
//
// A server answers only runs whose environment matches the one it started with: each distinct
// environment (home folder, configuration path, hg) gets a socket of its own in a private folder,
// so that a server started for one never serves another.
class VNHgCommandServer {
  public:
    // The chg to use for `hgPath`, or nothing when queries should run hg itself.
    static std::optional<std::string> clientFor(const std::string& hgPath);
    // Whether chg is installed beside `hgPath` at all (whatever the settings).
    static std::optional<std::string> installedClientFor(const std::string& hgPath);

    // Turns a prepared hg task into a chg run: the same arguments, the hg environment (the
    // client does not get it by name), CHGHG and this environment's socket.
    static void prepare(VNTask& task, const std::string& hgPath, const std::string& chgPath,
                        const vn::Environment& plain);
    // The socket (base name) for runs of `hgPath` with the environment `env`.
    static std::string socketPathFor(const std::string& hgPath, const vn::Environment& env);
    // The private folder the sockets live in.
    static std::string socketFolder();
    // Whether a finished chg run failed for want of a server (not because of the command).
    static bool serverFailed(const VNTask& task);

    // Stops the server of this process's environment, if one runs (tests, shutdown).
    static void stopServer(const std::string& hgPath, const vn::Environment& plain);
};
