# varnel_auth: answer Mercurial's credential questions through Varnel's password prompt
#
# Varnel runs hg without a terminal, so a push, pull, clone, incoming or outgoing against an
# HTTP(S) remote that needs a password would stop at once with "http authorization required".
# This extension fills the gap the way ssh and git do it: when neither the URL, the passwords hg
# already holds nor the [auth] section give a user name and a password, it asks the program
# named by SSH_ASKPASS, else Varnel's "VarnelLogin" in the resources' bin/ folder (two levels
# above this file), one run per question, the question as the only argument and the answer on
# its standard output. The questions are git's ("Username for 'https://host': ", "Password for
# 'https://user@host': "), so one helper serves both tools and finds the stored password under
# the same service.
#
# Rules:
# - AUTH_NO_PROMPTS set (counting queries): the helper is never run; hg fails as it would
#   without this extension.
# - AUTH_USERNAME (the user of the remote as Varnel knows it) is used before asking for a name.
# - A helper that fails or answers nothing ends the run with "http authorization required"
#   and what the helper wrote on its standard error (for example "User cancelled password
#   prompt.", which stops Varnel from asking again).
# - A password the server refuses ends the run with hg's own "authorization failed", which makes
#   Varnel drop the stored password and run the command again, so the user is asked anew.
# - hg sends credentials as ASCII only; others end the run with a plain message instead of a
#   traceback.
# - For ssh remotes, the ssh client is told to use the same helper even where a terminal exists.
#
# The password never reaches hg's output: it goes from the helper's pipe to the HTTP handler.

import os
import subprocess

from mercurial import error, pycompat, url as urlmod
from mercurial.i18n import _
from mercurial.utils import urlutil

testedwith = b'6.3'


def _environ(name):
    value = os.environ.get(name)
    return value if value else None


def _helper():
    if _environ('AUTH_NO_PROMPTS'):
        return None
    # Varnel names the helper for ssh remotes only; for HTTP it is the one shipped beside this
    # file (resources/bin/VarnelLogin).
    shipped = os.path.join(
        os.path.dirname(os.path.abspath(__file__)), '..', '..', 'bin', 'VarnelLogin'
    )
    for helper in (_environ('SSH_ASKPASS'), os.path.normpath(shipped)):
        if helper and os.path.isfile(helper) and os.access(helper, os.X_OK):
            return helper
    return None


def _service(u, user=None):
    # scheme://[user@]host[:port], as git names the service in its questions.
    text = pycompat.strurl(u.scheme or b'https') + '://'
    if user:
        text += pycompat.strurl(user) + '@'
    text += pycompat.strurl(u.host or b'')
    if u.port:
        text += ':' + pycompat.strurl(u.port)
    return text


def _ask(helper, question, shownurl):
    try:
        proc = subprocess.run(
            [helper, question],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        )
    except OSError as e:
        raise error.Abort(
            _(b'http authorization required for %s') % shownurl,
            hint=b'the password prompt could not be started: %s'
            % pycompat.bytestr(e.strerror or str(e)),
        )
    answer = proc.stdout
    # One trailing line break is the helper's, not the secret's.
    if answer.endswith(b'\r\n'):
        answer = answer[:-2]
    elif answer.endswith(b'\n'):
        answer = answer[:-1]
    if proc.returncode != 0 or not answer:
        detail = proc.stderr.strip()
        raise error.Abort(
            _(b'http authorization required for %s') % shownurl,
            hint=detail or b'no credentials were given',
        )
    return answer


def _find_user_password(orig, self, realm, authuri):
    user, passwd = self.passwddb.find_user_password(realm, authuri)
    if user and passwd:
        return orig(self, realm, authuri)
    user = pycompat.bytesurl(user) if user else None
    res = urlmod.httpconnectionmod.readauthforuri(self.ui, authuri, user)
    if res:
        auth = res[1]
        user = user or auth.get(b'username')
        if user and auth.get(b'password'):
            return orig(self, realm, authuri)
    helper = _helper()
    if helper is None:
        return orig(self, realm, authuri)

    u = urlutil.url(pycompat.bytesurl(authuri))
    u.query = None
    shownurl = urlutil.hidepassword(bytes(u))
    if not user:
        user = pycompat.bytesurl(_environ('AUTH_USERNAME') or '') or None
    if not user:
        user = _ask(helper, "Username for '%s': " % _service(u), shownurl)
    passwd = _ask(helper, "Password for '%s': " % _service(u, user), shownurl)
    try:
        user, passwd = user.decode('ascii'), passwd.decode('ascii')
    except UnicodeDecodeError:
        # hg's HTTP authentication encodes both as ASCII and would fail with a traceback.
        raise error.Abort(
            _(b'http authorization required for %s') % shownurl,
            hint=b'Mercurial cannot send a user name or password that is not ASCII',
        )
    self.passwddb.add_password(realm, authuri, user, passwd)
    return (user, passwd)


def uisetup(ui):
    if _environ('SSH_ASKPASS') and not _environ('SSH_ASKPASS_REQUIRE'):
        os.environ['SSH_ASKPASS_REQUIRE'] = 'prefer'
    orig = urlmod.passwordmgr.find_user_password

    def wrapped(self, realm, authuri):
        return _find_user_password(orig, self, realm, authuri)

    urlmod.passwordmgr.find_user_password = wrapped
