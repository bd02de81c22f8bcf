# What the scripts share: where they stand, how they speak, and how they get what they need.
# shellcheck shell=bash
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '== %s\n' "$*"; }
fail() {
  printf '%s: %s\n' "${0##*/}" "$*" >&2
  exit 1
}

# Runs a command with administrator rights.
as_admin() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    fail "needs administrator rights for '$*': run it as root, or install sudo"
  fi
}

# Installs those of the named packages that are missing: Debian's names, or Homebrew's.
# usage: install_missing "debian names" "homebrew names"
install_missing() {
  local missing=() package
  if [ "$(uname -s)" = Darwin ]; then
    command -v brew >/dev/null || fail "needs Homebrew (https://brew.sh) to install: $2"
    for package in $2; do
      brew list --formula "$package" >/dev/null 2>&1 || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "installing ${missing[*]}"
    brew install --quiet "${missing[@]}"
  elif command -v apt-get >/dev/null; then
    for package in $1; do
      dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
        missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "installing ${missing[*]}"
    as_admin apt-get update -qq
    as_admin env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  else
    say "no apt-get here: taking for granted what Debian calls $1"
  fi
}
