# shellcheck shell=bash
#
# To be sourced after scripts/lib/node.sh: the authorization servers of the end-to-end tests, for
# scripts. They end with the script, however it ends.
#
#   start_provider FOLDER OPTION...   starts them and waits until they are ready
#   provider_fact NAME.NAME           what ready.json says
#   provider_count PROVIDER KIND      how many requests of a kind a provider got
#   stop_provider

PROVIDER_START_SECONDS=30

start_provider() {
  local line
  PROVIDER_FOLDER="$1"
  shift
  coproc PROVIDER { exec env NODE_NO_WARNINGS=1 "$NODE" tests/e2e/provider/main.mjs \
    --dir "$PROVIDER_FOLDER" --until-stdin-closes "$@" 2>"$PROVIDER_FOLDER.log"; }
  if ! read -r -t "$PROVIDER_START_SECONDS" line <&"${PROVIDER[0]}" || [[ "$line" != *ready* ]]; then
    echo "provider: did not start:" >&2
    cat "$PROVIDER_FOLDER.log" >&2
    return 1
  fi
}

provider_fact() {
  "$NODE" -e 'const [path, name] = process.argv.slice(1);
    let value = JSON.parse(require("fs").readFileSync(path));
    for (const part of name.split(".")) value = value[part];
    console.log(value);' "$PROVIDER_FOLDER/ready.json" "$1"
}

provider_count() {
  "$NODE" -e 'const [url, provider, kind] = process.argv.slice(1);
    fetch(`${url}/counts`).then((answer) => answer.json())
      .then((counts) => console.log(counts[provider][kind]));' \
    "$(provider_fact control)" "$1" "$2"
}

stop_provider() {
  [ -n "${PROVIDER_PID:-}" ] && kill "$PROVIDER_PID" 2>/dev/null && wait "$PROVIDER_PID" 2>/dev/null
  true
}
