# varnel_checklink: remembers what the file system of a working copy can do.
#
# Before reading a working copy, hg asks whether its file system keeps symbolic links and
# executable bits. Where the repository has no cache folder for the answer, it finds out by
# creating and deleting probe files ("hg-checklink-*", ".hgcheck*") in the working folder
# itself. A program that watches that folder sees each probe as a change and reads the working
# copy again, which probes again. This extension answers each question once per folder and
# process (a command server keeps the answers across commands) and keeps the probes out of the
# working folder by putting them in the repository's own ".hg" folder when it exists.
"""remember file-system capabilities of working copies (Varnel)"""

import os

from mercurial import extensions, util

testedwith = b'6.3'

_answers = {}


def _probefolder(path):
    """The folder to probe in: the repository's .hg when `path` is a working copy."""
    metadata = os.path.join(path, b'.hg')
    if os.path.isdir(metadata):
        return metadata
    return path


def _remembered(orig, path, *args, **kwargs):
    try:
        st = os.stat(path)
    except OSError:
        return orig(path, *args, **kwargs)
    key = (orig.__name__, st.st_dev, os.path.realpath(path))
    if key not in _answers:
        _answers[key] = orig(_probefolder(path), *args, **kwargs)
    return _answers[key]


def uisetup(ui):
    extensions.wrapfunction(util, 'checklink', _remembered)
    extensions.wrapfunction(util, 'checkexec', _remembered)
