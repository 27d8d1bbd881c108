# Completion of qvr-oauth2 for fish.
#
# A test compares what is offered with what the command's help says.

# Prints what was typed before the cursor's word, a line each: first the configuration that it names
# (an empty line for none), then the arguments that are neither options nor values of options.
function __qvr_oauth2_typed
    set -l configuration ''
    set -l arguments
    set -l waiting
    set -l ended ''
    for word in (commandline -opc)[2..-1]
        if set -q waiting[1]
            test $waiting = --config; and set configuration (string replace -r '^~/' $HOME/ -- $word)
            set -e waiting
            continue
        end
        switch $ended$word
            case --
                set ended yes
            case '--config=*'
                set configuration (string replace -r '^~/' $HOME/ -- (string sub -s 10 -- $word))
            case --config --passphrase-fd --timeout --scope --prompt --domain-hint --format --host \
                --port --min-valid
                set waiting $word
            case '-*'
            case '*'
                set -a arguments $word
        end
    end
    printf '%s\n' $configuration $arguments
end

# Whether so many arguments were typed: COUNT [COMMAND...], the first of them one of the commands.
function __qvr_oauth2_follows
    set -l arguments (__qvr_oauth2_typed)[2..-1]
    test (count $arguments) -eq $argv[1]; or return 1
    test (count $argv) -eq 1; or contains -- "$arguments[1]" $argv[2..-1]
end

# Whether the command is one of these.
function __qvr_oauth2_is
    set -l arguments (__qvr_oauth2_typed)[2..-1]
    contains -- "$arguments[1]" $argv
end

# Whether the desktop's keyring is open. It is asked in this way since a command that looks into a
# locked one has the desktop ask for its password. A keyring that does not run is not started.
function __qvr_oauth2_keyring_is_open
    command -q busctl; or return
    set -l answer (command busctl --user --auto-start=no --timeout=1 call org.freedesktop.secrets \
        /org/freedesktop/secrets/aliases/default org.freedesktop.DBus.Properties \
        Get ss org.freedesktop.Secret.Collection Locked </dev/null 2>/dev/null)
    test "$answer" = 'v b false'
end

# Prints the users who are signed in at the provider that was typed. Nobody is asked for anything:
# the passphrase is read, and not found, at the end of an empty input. Nor is a keychain chosen here,
# as the first command to need one would do.
function __qvr_oauth2_users
    command -q qvr-oauth2; or return
    set -l typed (__qvr_oauth2_typed)
    set -l options --timeout 2 --passphrase-fd 0
    test -z "$typed[1]"; or set -a options --config $typed[1]
    set -l settings (command qvr-oauth2 $options config --show </dev/null 2>/dev/null)
    if contains 'kind = "secret-service"' $settings
        __qvr_oauth2_keyring_is_open; or return
    else if not contains 'kind = "encrypted-file"' $settings
        return
    end
    for line in (command qvr-oauth2 $options accounts </dev/null 2>/dev/null)
        set -l account (string split -m 1 \t -- $line)
        if test (string lower -- $account[1]) = (string lower -- "$typed[3]")
            printf '%s\n' $account[2]
        end
    end
end

complete -c qvr-oauth2 -f

complete -c qvr-oauth2 -l config -r -F -d 'The configuration file'
complete -c qvr-oauth2 -l passphrase-fd -x -d 'Read the passphrase from this file descriptor'
complete -c qvr-oauth2 -n 'not __qvr_oauth2_is sign-in' -l timeout -x \
    -d 'Seconds that the whole command may take'
complete -c qvr-oauth2 -s v -l verbose -d 'Show each step, secrets by their length alone'
complete -c qvr-oauth2 -s h -l help -d 'Print help'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -l version -d 'Print the version'

complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a sign-in -d 'Sign in with a browser'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a token -d 'Print an access token'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a status -d 'Show what is stored of an account'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a accounts -d 'List who is signed in'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a sign-out \
    -d 'Revoke the grant and remove what is stored'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a keychain -d 'Where tokens are kept'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a open-url \
    -d 'Hand a redirect to the waiting sign-in'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a register \
    -d 'Have the desktop hand redirects to this command'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a unregister -d 'Undo what register did'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a doctor \
    -d 'Check everything that signing in needs'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a config \
    -d 'Write a configuration, and say where to register'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 0' -a version -d 'Print the version'

complete -c qvr-oauth2 -n '__qvr_oauth2_follows 1 sign-in token status sign-out' \
    -a 'Google Microsoft' -d Provider
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 2 sign-in token status sign-out' \
    -a '(__qvr_oauth2_users)' -d 'Signed in'

complete -c qvr-oauth2 -n '__qvr_oauth2_is sign-in' -l scope -x -d 'The scopes to ask for'
complete -c qvr-oauth2 -n '__qvr_oauth2_is sign-in' -l prompt -x \
    -a 'select_account login consent none' -d 'Microsoft: what to ask'
complete -c qvr-oauth2 -n '__qvr_oauth2_is sign-in' -l domain-hint -x \
    -d 'Microsoft: the organisation\'s domain'
complete -c qvr-oauth2 -n '__qvr_oauth2_is sign-in' -l timeout -x \
    -d 'Seconds to wait for the browser'
complete -c qvr-oauth2 -n '__qvr_oauth2_is sign-in' -l no-browser -d 'Only print the URL to open'

complete -c qvr-oauth2 -n '__qvr_oauth2_is token' -l format -x \
    -a 'raw xoauth2 oauthbearer json' -d 'What to print'
complete -c qvr-oauth2 -n '__qvr_oauth2_is token' -l host -x \
    -d 'oauthbearer: the mail server\'s name'
complete -c qvr-oauth2 -n '__qvr_oauth2_is token' -l port -x -a '993 587 465' \
    -d 'oauthbearer: the mail server\'s port'
complete -c qvr-oauth2 -n '__qvr_oauth2_is token' -l min-valid -x \
    -d 'Refresh a token that expires within so many seconds'
complete -c qvr-oauth2 -n '__qvr_oauth2_is token' -l force-refresh \
    -d 'Refresh even if the token has not expired'

complete -c qvr-oauth2 -n '__qvr_oauth2_is status accounts doctor' -l json -d 'Print JSON'
complete -c qvr-oauth2 -n '__qvr_oauth2_is sign-out' -l local -d 'Remove without revoking'
complete -c qvr-oauth2 -n '__qvr_oauth2_is unregister' -l all \
    -d 'For every configuration there was'
complete -c qvr-oauth2 -n '__qvr_oauth2_is config' -l show -d 'Show what is in force'

complete -c qvr-oauth2 -n '__qvr_oauth2_follows 1 keychain' -a move \
    -d 'Carry all tokens over to the other keychain'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 2 keychain' -a secret-service \
    -d 'The desktop\'s keyring'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 2 keychain' -a file -d 'Encrypted files'
complete -c qvr-oauth2 -n '__qvr_oauth2_follows 1 open-url' -a - -d 'Read it from standard input'
