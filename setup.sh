# Sourced by ./demo, ./test and ./lint: the packages that they need, and how a tree is built.
# shellcheck shell=bash disable=SC2034  # what is set here is used by those scripts

packages=(g++ cmake ninja-build lld pkg-config python3 libgtest-dev libgmock-dev
  libfmt-dev libpng-dev libcli11-dev libtomlplusplus-dev libmicrohttpd-dev curl libsystemd-dev nlohmann-json3-dev prometheus-cpp-dev
  libturbojpeg0-dev libqrencode-dev zlib1g-dev
  libaravis-dev libusb-1.0-0-dev libxml2-dev libzip-dev aravis-tools aravis-tools-cli iproute2)
# What only ./test --all needs: the fuzzers' compiler, an independent reader of the protocol, a browser.
all_packages=(clang libclang-rt-14-dev tshark chromium chromium-driver python3-selenium)
# What ./lint needs.
lint_packages=(clang-format clang-tidy shellcheck pyflakes3 git)

# Installs the packages that are missing, if any.
install_missing() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
  done
  ((${#missing[@]})) || return 0
  echo "== Installing ${missing[*]}"
  local sudo=()
  ((EUID == 0)) || sudo=(sudo)
  "${sudo[@]}" apt-get update -qq
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# build NAME [TARGET...]: configures and builds a preset of CMakePresets.json; says nothing but what fails.
build() {
  local preset=$1
  shift
  echo "== Building ($preset)"
  cmake --preset "$preset" >"build-$preset.log" 2>&1 || { cat "build-$preset.log"; rm "build-$preset.log"; return 1; }
  rm "build-$preset.log"
  cmake --build --preset "$preset" ${1:+--target "$@"} -- --quiet
}

# What unshare needs to give a command a network of its own: who is not root gets a user namespace with it.
own_network=(--net)
((EUID == 0)) || own_network+=(--map-root-user)
