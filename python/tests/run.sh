#!/bin/sh
# Builds the wheel of the package, installs it into a virtual environment of its own and runs the package's tests there, with
# nothing of the source tree in reach of `import`. Environment and build stay for the next run.
#   run.sh BUILD_FOLDER [pytest argument...]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
source=$(cd "$here/../.." && pwd)
mkdir -p "$1/python"
work=$(cd "$1/python" && pwd)
wheel=$(cd "$1" && pwd)-wheel # beside, so that a compiler cache sees the paths of other builds
shift
quietly() { "$@" >"$work/log" 2>&1 || { tail -n 60 "$work/log"; return 1; }; }

# Any CPython from 3.10 on that can make environments and has the headers, the system's first.
usable='import sys, venv, ensurepip, os, sysconfig
sys.exit(sys.version_info < (3, 10) or not os.path.exists(sysconfig.get_path("include") + "/Python.h"))'
python=
for candidate in /usr/bin/python3 python3 python3.14 python3.13 python3.12 python3.11 python3.10; do
  if "$candidate" -c "$usable" 2>/dev/null; then
    python=$candidate
    break
  fi
done
if [ -z "$python" ]; then
  echo "No Python from 3.10 on with venv and its headers: install python3-venv and python3-dev."
  exit 1
fi

# The environment is made anew when the interpreter or the requirements change.
wanted=$({ "$python" -VV; cat "$here/requirements.txt"; } | cksum)
if [ "$(cat "$work/made-for" 2>/dev/null)" != "$wanted" ]; then
  rm -rf "$work/made-for" "$work/environment"
  "$python" -m venv "$work/environment"
  quietly "$work/environment/bin/pip" install --disable-pip-version-check -r "$here/requirements.txt" || {
    echo "The packages of python/tests/requirements.txt cannot be installed: is the package index out of reach?"
    exit 1
  }
  echo "$wanted" >"$work/made-for"
fi
PATH="$work/environment/bin:$PATH"
export PATH PYTHONDONTWRITEBYTECODE=1

quietly pip wheel --no-build-isolation --no-deps --disable-pip-version-check --wheel-dir "$work" \
  --config-settings=build-dir="$wheel" --config-settings=cmake.define.ZEL_WERROR="${ZEL_WERROR:-OFF}" "$source"
quietly pip install --no-deps --no-index --force-reinstall --disable-pip-version-check "$work"/zel-*.whl
rm "$work"/zel-*.whl
cd "$work"
python -m mypy --config-file "$source/pyproject.toml" -p zel
MYPYPATH="$source/examples/python:$source/examples/exudyn:$here" python -m mypy --config-file "$source/pyproject.toml" \
  "$source"/examples/python/*.py "$source"/examples/exudyn/*.py "$here"/*.py
exec python -m pytest -q -c "$source/pyproject.toml" --rootdir "$source" -p no:cacheprovider "$here" "$@"
