# Sourced by ./demo and ./test: installs the Debian packages that are missing, and nothing when none is.
packages="g++ gfortran cmake ninja-build pkg-config binutils libtirpc-dev libopenblas-dev
  libgtest-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev libeigen3-dev
  libmumps-seq-dev libmetis-dev zlib1g-dev libmeshoptimizer-dev libjs-three python3 python3-venv python3-dev ${ZEL_EXTRA_PACKAGES:-}"
missing=
for package in $packages; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
done
if [ -n "$missing" ]; then
  as_root=
  [ "$(id -u)" -eq 0 ] || as_root=sudo
  $as_root apt-get update -qq >&2
  # shellcheck disable=SC2086 # a list of words
  DEBIAN_FRONTEND=noninteractive $as_root apt-get install -y -qq --no-install-recommends $missing >&2
fi
