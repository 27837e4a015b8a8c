#!/usr/bin/env bash
# Prints the Python to build with: the first python3 that is new enough and has headers and venv. Fails without one.
for candidate in python3 /usr/bin/python3; do
    if "$candidate" - 2>/dev/null <<'END'
import os, sys, sysconfig
import ensurepip, venv
new_enough = sys.version_info >= (3, 11)
has_headers = os.path.exists(os.path.join(sysconfig.get_path("include"), "Python.h"))
sys.exit(not (new_enough and has_headers))
END
    then
        command -v "$candidate"
        exit 0
    fi
done
exit 1
