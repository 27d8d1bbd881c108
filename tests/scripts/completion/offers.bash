# shellcheck shell=bash
# Prints what bash offers for each line of standard input: "NUMBER TAB CANDIDATE", a line each.
#
#   bash offers.bash COMPLETION-FILE
set -u
# shellcheck source=/dev/null
source "$1"
specification="$(complete -p qvr-oauth2)"
function_name="${specification#*-F }"
function_name="${function_name%% *}"

number=0
while IFS= read -r COMP_LINE; do
  COMP_POINT=${#COMP_LINE}
  # The word as the line editor has it: behind the last character at which it breaks words.
  word="${COMP_LINE##*["$COMP_WORDBREAKS"]}"
  read -r -a COMP_WORDS <<<"$COMP_LINE"
  [[ $COMP_LINE != *' ' ]] || COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  "$function_name" qvr-oauth2 "$word" "${COMP_WORDS[COMP_CWORD - 1]}"
  for candidate in ${COMPREPLY[@]+"${COMPREPLY[@]}"}; do
    printf '%d\t%s\n' "$number" "$candidate"
  done
  ((++number))
done
