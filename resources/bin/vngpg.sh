#!/bin/sh
# The signing program git is given as gpg.program: runs GnuPG 2 under whichever name it has
# here (gpg2 where both versions are installed, gpg elsewhere), with the arguments git passes.
# The folder of the "gpgProgram" preference is on PATH too, so a GnuPG kept only there is found.
for candidate in gpg2 gpg; do
    if command -v "$candidate" >/dev/null 2>&1; then
        exec "$candidate" "$@"
    fi
done
echo "vngpg.sh: GnuPG (gpg2 or gpg) was not found on PATH" >&2
exit 127
