# Sourced by the scripts beside it: where the tree is, how to say something, how to get what is missing.

cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\n== %s\n' "$*"; }

# need_packages NAME...: installs the Debian packages that are missing, and says which.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  say "Installing with apt: ${missing[*]}"
  local root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "Not root and no sudo: please install ${missing[*]} yourself." >&2; exit 2; }
    root=(sudo)
  fi
  "${root[@]}" apt-get update -qq
  "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# What building the library, the command and the tests takes.
BUILD_PACKAGES=(g++ cmake ninja-build ccache libasio-dev libfmt-dev nlohmann-json3-dev libcli11-dev libgtest-dev
  libavcodec-dev libasound2-dev zlib1g-dev)

# build PRESET [cmake --build argument...]: configures when needed, then builds; quiet unless it fails.
build() {
  local preset=$1 log
  shift
  mkdir -p build
  log=build/$preset.log
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "$@"; } >"$log" 2>&1; then
    grep -E 'error|FAILED|undefined reference' "$log" | head -40 >&2
    echo "The $preset build failed; all of it is in $log" >&2
    return 1
  fi
}
