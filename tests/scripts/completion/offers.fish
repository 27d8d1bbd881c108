# Prints what fish offers for each line of standard input: "NUMBER TAB CANDIDATE", a line each.
#
#   fish --no-config offers.fish COMPLETION-FILE
source $argv[1]
set number 0
while read line
    for candidate in (complete -C $line)
        printf '%d\t%s\n' $number (string split -f 1 \t -- $candidate)
    end
    set number (math $number + 1)
end
