// The varnel_auth extension, loaded by the installed hg, against a real HTTP server that wants
// a user name and a password.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "handler/VNTask.h"
#include "platform/FileSystem.h"
#include "platform/Resources.h"
#include "support/HgRepository.h"

namespace {

using vn::test::HgRepository;
using vn::test::readFile;
using vn::test::TempDir;
using vn::test::writeFile;

// An hg command serving one repository through hgweb, answering 401 to every request without
// the expected basic credentials. It writes its port to a file and stops when a stop file
// appears.
constexpr const char* ServerExtension = R"PY(
import base64, os
from wsgiref.simple_server import make_server, WSGIRequestHandler
from mercurial import registrar
from mercurial.hgweb import hgweb
cmdtable = {}
command = registrar.command(cmdtable)

@command(b'authserve', norepo=True)
def authserve(ui, repo_path, user, password, portfile, stopfile):
    app = hgweb(repo_path)
    want = b'Basic ' + base64.b64encode(user + b':' + password)
    def guarded(environ, start):
        if environ.get('HTTP_AUTHORIZATION', '').encode('latin-1') != want:
            start('401 Unauthorized', [('WWW-Authenticate', 'Basic realm="varnel test"')])
            return [b'unauthorized']
        return app(environ, start)
    class Quiet(WSGIRequestHandler):
        def log_message(self, *args):
            pass
    server = make_server('127.0.0.1', 0, guarded, handler_class=Quiet)
    server.timeout = 0.1
    with open(portfile + b'.tmp', 'w') as f:
        f.write(str(server.server_port))
    os.rename(portfile + b'.tmp', portfile)
    while not os.path.exists(stopfile):
        server.handle_request()
)PY";

constexpr const char* Password = "s3cr\"t \\x";

class VarnelAuthTest : public ::testing::Test {
  protected:
    void SetUp() override {
        origin.commitFile("f.txt", "one\n", "one");
        writeFile(origin.file(".hg/hgrc"), "[web]\npush_ssl = false\nallow-push = *\n");
        std::string serverExtension = dir.file("authserve.py");
        writeFile(serverExtension, ServerExtension);
        portFile = dir.file("port");
        stopFile = dir.file("stop");
        server = std::thread([this, serverExtension] {
            vn::test::runHg(dir.path(),
                            {"--config", "extensions.authserve=" + serverExtension, "authserve",
                             origin.path(), "alice", Password, portFile, stopFile});
        });
        for (int i = 0; i < 300 && !vn::fs::exists(portFile); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ASSERT_TRUE(vn::fs::exists(portFile)) << "the test server did not start";
        url = "http://127.0.0.1:" + readFile(portFile) + "/";
        asked = dir.file("asked");
        // A copy in a resources layout of its own, so that which prompt program lies beside it
        // is up to the test.
        extension = dir.file("res/mercurial_local/hgext/varnel_auth.py");
        writeFile(extension,
                  readFile(vn::Resources::pathFor("mercurial_local/hgext/varnel_auth.py")));
    }
    void TearDown() override {
        writeFile(stopFile, "");
        if (server.joinable()) {
            server.join();
        }
    }

    // A password prompt that records each question and answers `user` and `password`.
    std::string helper(const std::string& user, const std::string& password) {
        return vn::test::writeScript(dir.path(), "ask-" + std::to_string(helpers++),
                                     "printf '%s\\n' \"$1\" >> '" + asked +
                                         "'\ncase \"$1\" in\n  Username*) printf '%s\\n' '" + user +
                                         "';;\n  Password*) cat <<'EOF'\n" + password +
                                         "\nEOF\n;;\nesac\n");
    }

    // Runs hg with the extension and the given environment; answers the finished task.
    std::shared_ptr<VNTask> hg(const std::vector<std::string>& args, vn::Environment env,
                               bool withExtension = true) {
        std::vector<std::string> all;
        if (withExtension) {
            all = {"--config", "extensions.varnel_auth=" + extension};
        }
        all.insert(all.end(), args.begin(), args.end());
        auto task =
            VNTask::taskWithCommand(vn::fs::findExecutable("hg").value_or("hg"), dir.path(), all);
        env["HGRCPATH"] = vn::fs::appendPathComponent(vn::test::sandboxPath(), "hgrc");
        env["HGPLAIN"] = "1";
        task->setEnvironmentCustomisations(env);
        task->run();
        return task;
    }

    std::string questions() { return readFile(asked); }

    TempDir dir{"varnel-auth"};
    HgRepository origin;
    std::thread server;
    std::string portFile, stopFile, url, asked, extension;
    int helpers = 0;
};

TEST_F(VarnelAuthTest, CredentialsComeFromThePromptOnlyWhenNothingElseGivesThem) {
    std::string host = url.substr(0, url.size() - 1);
    std::string withUser = "http://alice@" + host.substr(7) + "/";
    struct Case {
        const char* name;
        std::string source;
        vn::Environment env;
        bool succeeds;
        std::string questions;
        const char* error;  // part of the error output when the clone fails
    };
    const std::string good = helper("alice", Password);
    const std::string wrongUser = helper("bob", Password);
    const std::string cancels = vn::test::writeScript(
        dir.path(), "cancel", "echo 'User cancelled password prompt.' >&2\nexit 1\n");
    const Case cases[] = {
        {"both asked",
         url,
         {{"SSH_ASKPASS", good}},
         true,
         "Username for '" + host + "': \nPassword for '" + "http://alice@" + host.substr(7) +
             "': \n",
         ""},
        {"user from the address",
         withUser,
         {{"SSH_ASKPASS", good}},
         true,
         "Password for 'http://alice@" + host.substr(7) + "': \n",
         ""},
        {"user from Varnel",
         url,
         {{"SSH_ASKPASS", good}, {"AUTH_USERNAME", "alice"}},
         true,
         "Password for 'http://alice@" + host.substr(7) + "': \n",
         ""},
        {"prompts suppressed",
         url,
         {{"SSH_ASKPASS", good}, {"AUTH_NO_PROMPTS", "1"}},
         false,
         "",
         "http authorization required"},
        {"refused",
         url,
         {{"SSH_ASKPASS", wrongUser}},
         false,
         "Username for '" + host + "': \nPassword for 'http://bob@" + host.substr(7) + "': \n",
         "authorization failed"},
        {"cancelled",
         url,
         {{"SSH_ASKPASS", cancels}},
         false,
         "",
         "User cancelled password prompt."},
        {"no prompt program", url, {}, false, "", "http authorization required"},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::remove(asked.c_str());
        std::string target = dir.file("clone" + std::to_string(n++));
        auto task = hg({"clone", "--noupdate", c.source, target}, c.env);
        EXPECT_EQ(task->success(), c.succeeds) << task->errorOutput();
        EXPECT_EQ(questions(), c.questions);
        if (c.succeeds) {
            HgRepository clone(target);
            EXPECT_EQ(clone.hg({"log", "--template", "{desc}"}), "one");
        } else {
            EXPECT_NE(task->errorOutput().find(c.error), std::string::npos) << task->errorOutput();
            EXPECT_EQ(task->errorOutput().find("Traceback"), std::string::npos);
        }
        EXPECT_EQ(task->output().find(Password), std::string::npos);
        EXPECT_EQ(task->errorOutput().find(Password), std::string::npos);
    }
}

TEST_F(VarnelAuthTest, StoredCredentialsWinAndPushesAuthenticateToo) {
    const std::string good = helper("alice", Password);
    // Credentials in [auth]: the prompt is never asked.
    std::string target = dir.file("clone");
    auto clone = hg({"--config", "auth.t.prefix=" + url, "--config", "auth.t.username=alice",
                     "--config", std::string("auth.t.password=") + Password, "clone", url, target},
                    {{"SSH_ASKPASS", good}});
    ASSERT_TRUE(clone->success()) << clone->errorOutput();
    EXPECT_EQ(questions(), "");

    HgRepository local(target);
    local.commitFile("g.txt", "g\n", "pushed over http");
    auto push = hg({"-R", target, "push", url}, {{"SSH_ASKPASS", good}});
    EXPECT_TRUE(push->success()) << push->errorOutput();
    EXPECT_EQ(origin.hg({"log", "-r", "tip", "--template", "{desc}"}), "pushed over http");

    // Without the extension hg cannot ask at all.
    auto plain = hg({"clone", url, dir.file("plain")}, {{"SSH_ASKPASS", good}}, false);
    EXPECT_FALSE(plain->success());
    EXPECT_NE(plain->errorOutput().find("http authorization required"), std::string::npos);
}

TEST_F(VarnelAuthTest, TheShippedPromptAnswersWhenNoneIsNamed) {
    std::string shipped = helper("alice", Password);
    vn::fs::makeDirectories(dir.file("res/bin"));
    ASSERT_EQ(std::rename(shipped.c_str(), dir.file("res/bin/VarnelLogin").c_str()), 0);
    auto task = hg({"clone", "--noupdate", url, dir.file("clone")}, {});
    EXPECT_TRUE(task->success()) << task->errorOutput();
    EXPECT_NE(questions().find("Password for 'http://alice@"), std::string::npos);
}

TEST_F(VarnelAuthTest, NonAsciiCredentialsEndWithAPlainMessage) {
    auto task = hg({"clone", url, dir.file("clone")},
                   {{"SSH_ASKPASS", helper("alice", "p\xc3\xa4sswort")}});
    EXPECT_FALSE(task->success());
    EXPECT_NE(task->errorOutput().find("not ASCII"), std::string::npos) << task->errorOutput();
    EXPECT_EQ(task->errorOutput().find("Traceback"), std::string::npos);
}

}  // namespace
