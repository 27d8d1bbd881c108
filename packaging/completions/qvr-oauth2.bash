# shellcheck shell=bash
#
# Completion of qvr-oauth2 for bash, with the bash-completion package or without: it is enough to
# source this file.
#
# A test compares what is offered with what the command's help says.

# Whether the desktop's keyring is open. It is asked in this way since a command that looks into a
# locked one has the desktop ask for its password. A keyring that does not run is not started.
_qvr_oauth2_keyring_is_open() {
  [[ $(command busctl --user --auto-start=no --timeout=1 call org.freedesktop.secrets \
    /org/freedesktop/secrets/aliases/default org.freedesktop.DBus.Properties \
    Get ss org.freedesktop.Secret.Collection Locked </dev/null 2>/dev/null) == 'v b false' ]]
}

# Prints the users who are signed in at PROVIDER, one a line: PROVIDER [CONFIGURATION]. Nobody is
# asked for anything: the passphrase is read, and not found, at the end of an empty input. Nor is a
# keychain chosen here, as the first command to need one would do.
_qvr_oauth2_users() {
  local -a options=(--timeout 2 --passphrase-fd 0)
  [[ -z ${2-} ]] || options+=(--config "$2")
  case "$(command qvr-oauth2 "${options[@]}" config --show </dev/null 2>/dev/null)"$'\n' in
    *$'\nkind = "encrypted-file"\n'*) ;;
    *$'\nkind = "secret-service"\n'*) _qvr_oauth2_keyring_is_open || return 0 ;;
    *) return 0 ;;
  esac
  local provider user
  while IFS=$'\t' read -r provider user; do
    [[ ${provider,,} != "${1,,}" ]] || printf '%s\n' "$user"
  done < <(command qvr-oauth2 "${options[@]}" accounts </dev/null 2>/dev/null)
}

# Splits LINE into words as the shell would, without quotes: sets `words`, of which the last is the
# one at the cursor; and what is left of the position START in it: `head`, and the quote, if any,
# that is open there: `open_quote`.
_qvr_oauth2_split() {
  local line=$1 start=$2 character quote='' word='' is_word='' i=0
  words=() head='' open_quote=''
  while ((i < ${#line})); do
    ((i != start)) || { head=$word open_quote=$quote; }
    character=${line:i:1}
    ((++i))
    case $quote$character in
      "''" | '""') quote='' ;;
      "'"?) word+=$character ;;
      "'" | '"') quote=$character is_word=yes ;;
      \\ | \"\\)
        # Within double quotes it stays before what needs none.
        [[ -z $quote || ${line:i:1} == [\"\\\$\`] ]] || word+=$character
        word+=${line:i:1} is_word=yes
        ((++i))
        ;;
      [[:blank:]])
        [[ -z $is_word ]] || words+=("$word")
        word='' is_word=''
        ;;
      *) word+=$character is_word=yes ;;
    esac
  done
  ((start < i)) || { head=$word open_quote=$quote; }
  words+=("$word")
}

# Offers a candidate, if what was typed of its word fits. The line editor replaces the part of the
# word behind `head` only, and inserts it as it is.
_qvr_oauth2_offer() {
  local candidate typed=${words[${#words[@]} - 1]}
  for candidate in "$@"; do
    [[ $candidate == "$typed"* ]] || continue
    candidate=${candidate#"$head"}
    case $open_quote in
      \")
        candidate=${candidate//\\/\\\\} candidate=${candidate//\"/\\\"}
        candidate=${candidate//\$/\\\$} candidate=${candidate//\`/\\\`}
        ;;
      \') candidate=${candidate//\'/\'\\\'\'} ;;
      *) [[ -z $candidate ]] || printf -v candidate %q "$candidate" ;;
    esac
    COMPREPLY+=("$candidate")
  done
}

# The same for the providers: the name takes the place of what was typed, whatever its case.
_qvr_oauth2_offer_providers() {
  local name typed=${words[${#words[@]} - 1]}
  for name in Google Microsoft; do
    [[ ${name,,} != "${typed,,}"* ]] || COMPREPLY+=("$name")
  done
}

# The line editor quotes names of files itself.
_qvr_oauth2_offer_files() {
  local file
  compopt -o filenames 2>/dev/null
  while IFS= read -r file; do
    file=$1$file
    COMPREPLY+=("${file#"$head"}")
  done < <(compgen -f -- "${words[${#words[@]} - 1]#"$1"}")
}

# Offers the values of OPTION, each behind PREFIX.
_qvr_oauth2_offer_values() {
  case $1 in
    --config) _qvr_oauth2_offer_files "$2" ;;
    --format) _qvr_oauth2_offer "$2"{raw,xoauth2,oauthbearer,json} ;;
    --prompt) _qvr_oauth2_offer "$2"{select_account,login,consent,none} ;;
    --port) _qvr_oauth2_offer "$2"{993,587,465} ;;
  esac
}

_qvr_oauth2_offer_options() {
  case $1 in
    '') _qvr_oauth2_offer --version ;;
    sign-in) _qvr_oauth2_offer --scope --prompt --domain-hint --no-browser ;;
    token) _qvr_oauth2_offer --format --host --port --min-valid --force-refresh ;;
    status | accounts | doctor) _qvr_oauth2_offer --json ;;
    sign-out) _qvr_oauth2_offer --local ;;
    unregister) _qvr_oauth2_offer --all ;;
    config) _qvr_oauth2_offer --show ;;
  esac
  _qvr_oauth2_offer --config --passphrase-fd --timeout -v --verbose -h --help
}

# Offers what comes behind the arguments, the first of which is the command.
_qvr_oauth2_offer_arguments() {
  case $#:${1-} in
    0:) _qvr_oauth2_offer sign-in token status accounts sign-out keychain open-url register \
      unregister doctor config version ;;
    1:sign-in | 1:token | 1:status | 1:sign-out) _qvr_oauth2_offer_providers ;;
    2:sign-in | 2:token | 2:status | 2:sign-out)
      local user
      while IFS= read -r user; do
        _qvr_oauth2_offer "$user"
      done < <(_qvr_oauth2_users "$2" "$configuration")
      ;;
    1:keychain) _qvr_oauth2_offer move ;;
    2:keychain) _qvr_oauth2_offer secret-service file ;;
    1:open-url) _qvr_oauth2_offer - ;;
  esac
}

_qvr_oauth2() {
  local line=${COMP_LINE:0:COMP_POINT} head open_quote word waiting='' configuration='' ended=''
  local -a words arguments=()
  COMPREPLY=()
  _qvr_oauth2_split "$line" $((${#line} - ${#2}))
  for word in "${words[@]:1:${#words[@]}-2}"; do
    if [[ -n $waiting ]]; then
      [[ $waiting != --config ]] || configuration=${word/#~\//$HOME/}
      waiting=''
      continue
    fi
    case $ended$word in
      --) ended=yes ;;
      --config=*) configuration=${word#*=} ;;
      --config | --passphrase-fd | --timeout | --scope | --prompt | --domain-hint | --format | \
        --host | --port | --min-valid) waiting=$word ;;
      -*) ;;
      *) arguments+=("$word") ;;
    esac
  done
  word=${words[${#words[@]} - 1]}
  if [[ -n $waiting ]]; then
    _qvr_oauth2_offer_values "$waiting" ''
  elif [[ -z $ended && $word == --*=* ]]; then
    _qvr_oauth2_offer_values "${word%%=*}" "${word%%=*}="
  elif [[ -z $ended && $word == -* ]]; then
    _qvr_oauth2_offer_options "${arguments[0]-}"
    [[ $word != - ]] || _qvr_oauth2_offer_arguments ${arguments[@]+"${arguments[@]}"}
  else
    _qvr_oauth2_offer_arguments ${arguments[@]+"${arguments[@]}"}
  fi
}

complete -F _qvr_oauth2 qvr-oauth2
