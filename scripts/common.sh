# SPDX-License-Identifier: MIT
# Shared by the scripts of this folder: where the tree is, and the packages it needs.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '\n== %s\n' "$*"; }
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# packages_of GROUP...: the names listed under [GROUP] in scripts/packages.
packages_of() {
  local group
  for group in "$@"; do
    awk -v group="[$group]" '/^\[/ {on = ($0 == group); next} on && NF && !/^#/ {print $1}' "$root/scripts/packages"
  done
}

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# need_packages GROUP...: installs what is missing from the groups; asks for nothing when all is there.
need_packages() {
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "note: no apt-get here; make sure that the packages of scripts/packages are there"
    return
  fi
  local package missing=()
  for package in $(packages_of "$@"); do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  say "Installing: ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "these packages are missing and there is no sudo; as root: apt-get install ${missing[*]}"
    as_root=(sudo)
    [ -t 0 ] || as_root=(sudo -n)  # nobody there to type a password
  fi
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 -q -y)
  "${apt[@]}" update || die "apt-get update failed"
  "${apt[@]}" install --no-install-recommends "${missing[@]}" || die "apt-get could not install: ${missing[*]}"
}
