# shellcheck shell=bash
# SPDX-License-Identifier: BSD-3-Clause
# For the other scripts, which source it.
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

say() { printf '\n== %s\n' "$*"; }

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# Prints those of the packages that are not installed.
missing_packages() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || echo "$package"
  done
}

# install_packages PACKAGE...: installs what is missing of Debian's packages.
install_packages() {
  local missing
  mapfile -t missing < <(missing_packages "$@")
  if [ ${#missing[@]} -eq 0 ]; then return 0; fi
  say "Installing ${missing[*]}"
  as_root apt-get update -qq
  DEBIAN_FRONTEND=noninteractive as_root apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
}

install_build_packages() {
  install_packages g++ make cmake pkg-config binutils libelf-dev libtinyxml2-dev libgtest-dev \
    libcli11-dev nlohmann-json3-dev opencl-c-headers
}

# The tools that only some tests need. Without them these tests are skipped.
install_optional_packages() {
  install_packages verilator ghdl yosys clang llvm pocl-opencl-icd ocl-icd-libopencl1 \
    libxml2-utils zsh fish file scdoc mandoc ninja-build ||
    echo "could not install them: the tests that need them will be skipped"
}

# build FOLDER [CMAKE_OPTION...]
build() {
  local folder=$1
  shift
  cmake -S . -B "$folder" "$@" >"$folder.log" 2>&1 || { cat "$folder.log"; return 1; }
  rm "$folder.log"
  cmake --build "$folder" --parallel "$(nproc)"
}
