# shellcheck shell=bash
#
# To be sourced by bash scripts: makes sure that Debian packages are installed.
#
#   need_packages NAME...   installs those that are missing, as root or with sudo, and says so
#   need_packages_without_services NAME...   the same, and starts no server that comes with them
#
# The lists that the scripts share are below.

BUILD_PACKAGES=(g++ cmake ninja-build pkg-config ca-certificates
  libcurl4-openssl-dev libsystemd-dev libsodium-dev libsimdjson-dev libcli11-dev libtomlplusplus-dev)
TEST_PACKAGES=(libgtest-dev libgmock-dev openssl python3 procps dbus xdg-utils desktop-file-utils systemd strace
  bash-completion zsh fish mandoc man-db)
MAIL_PACKAGES=(dovecot-imapd dovecot-submissiond curl neomutt msmtp isync libsasl2-modules-kdexoauth2
  offlineimap3 fetchmail getmail6 aerc git git-email libmailtools-perl)
DESKTOP_PACKAGES=(gnome-keyring libkf5wallet-bin libqca-qt5-2-plugins keepassxc libsecret-tools libglib2.0-bin
  chromium firefox-esr xvfb bubblewrap)
BENCH_PACKAGES=(libbenchmark-dev libssl-dev openssl gnome-keyring dbus gnuplot-nox python3 binutils valgrind)
CHECK_PACKAGES=(clang libclang-rt-14-dev clang-format clang-tidy)

is_installed() {
  [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null; then
    sudo "$@"
  else
    echo "packages: please run this as root, or install sudo: $*" >&2
    return 1
  fi
}

need_packages() {
  local name missing=()
  if ! command -v dpkg-query >/dev/null; then
    echo "packages: this is no Debian system; please see to it that these are there: $*"
    return 0
  fi
  for name in "$@"; do
    is_installed "$name" || missing+=("$name")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "packages: installing ${missing[*]}"
  as_root apt-get update -qq &&
    as_root env DEBIAN_FRONTEND=noninteractive \
      apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

are_installed() {
  local name
  for name in "$@"; do
    is_installed "$name" || return
  done
}

# Debian's packages ask this program whether a server may be started.
need_packages_without_services() (
  policy=/usr/sbin/policy-rc.d
  are_installed "$@" && return
  if [ ! -e "$policy" ]; then
    trap 'as_root rm -f "$policy"' EXIT
    printf '#!/bin/sh\nexit 101\n' | as_root install -m 755 /dev/stdin "$policy"
  fi
  need_packages "$@"
)
