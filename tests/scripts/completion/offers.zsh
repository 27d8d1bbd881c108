# The start-up file of an interactive zsh that writes what it offers for each line of $OFFERS_LINES
# into $OFFERS_RESULT, as "NUMBER TAB CANDIDATE", a line each, and ends.
fpath=($OFFERS_FOLDER $fpath)
autoload -Uz compinit
compinit -u -D

# Notes what would be added, with the prefix that stands before it on the line. Calls that only look
# something up add nothing.
compadd() {
  local argument
  local -a added
  for argument in "$@"; do
    [[ $argument != (-|--) ]] || break
    [[ $argument != -[OAD]* ]] || { builtin compadd "$@"; return }
  done
  builtin compadd -A added "$@"
  (( ! $#added )) || printf "$offers_number\t%s\n" ${IPREFIX}$^added >>$OFFERS_RESULT
  builtin compadd "$@"
}

zle -C offers-list list-choices _main_complete
zle-line-init() {
  offers_number=0
  for BUFFER in "${(@f)"$(<$OFFERS_LINES)"}"; do
    CURSOR=$#BUFFER
    zle offers-list
    ((++offers_number))
  done
  exit
}
zle -N zle-line-init
