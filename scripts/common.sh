# What the project's scripts share; sourced by them with the project's folder as working directory.

packages=(
  g++ cmake ninja-build pkg-config
  clang clang-format clang-tidy libclang-rt-14-dev
  libboost-dev libboost-log-dev libprotobuf-dev protobuf-compiler libssl-dev openssl
  libgtest-dev libgmock-dev libbenchmark-dev
  libnats-dev nlohmann-json3-dev nats-server
)

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Installs the packages that are missing; quick when there are none.
install_dependencies() {
  local missing=() package
  for package in "${packages[@]}"; do
    installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  echo "Installing: ${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]: configures and builds into build/PRESET.
build() {
  local preset=$1
  shift
  local log
  log=$(cmake --preset "$preset" 2>&1) || { echo "$log"; return 1; }
  cmake --build --preset "$preset" ${1:+--target "$@"}
}
