"""Shells in a folder of their own, with programs that stand where qvr-oauth2 and busctl would; and what
the shells offer to complete there."""
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import subprocess
import time

DRIVERS = pathlib.Path(__file__).parent
DEADLINE = 30
PROMPT = "READY> "

# Stands where qvr-oauth2 would: knows four accounts by default, and others by the configuration
# "my config.toml". What it is called with by others than the completion goes to $CALLS.
STUB = r"""#!/bin/sh
echo 'this must not be seen' >&2
echo "$*" >>"$ALL_CALLS"
case " $* " in
  *' config --show ')
    printf '# keychain\nkind = "%s"\nprotection = "passphrase"\n' "${KIND:-encrypted-file}"
    ;;
  *'my config.toml accounts ') printf 'Microsoft\tcarol@example.org\n' ;;
  *' accounts ')
    printf 'Google\talice@example.com\nGoogle\tanna b@example.com\nGoogle\to'\''brien@example.com\n'
    printf 'Microsoft\tbob@example.org\n'
    ;;
  *) python3 -c 'import json, sys; print(json.dumps(sys.argv[1:]))' "$@" >"$CALLS" ;;
esac
"""

# Stands where busctl would, which starts a service that does not run unless it is told not to.
BUS = """#!/bin/sh
echo 'this must not be seen' >&2
[ "$*" = '--user --auto-start=no --timeout=1 call org.freedesktop.secrets \
/org/freedesktop/secrets/aliases/default org.freedesktop.DBus.Properties Get ss \
org.freedesktop.Secret.Collection Locked' ] && echo "v b $KEYRING_IS_LOCKED"
"""


class Place:
    """A home folder with a configuration, and a folder of programs that go before all others."""

    def __init__(self, folder, completions):
        self.folder = folder
        self.completions = completions
        self.programs = folder / "programs"
        self.home = folder / "home"
        self.calls = folder / "calls"
        self.all_calls = folder / "all-calls"
        for each in (self.programs, self.home / "zsh"):
            each.mkdir(parents=True)
        (self.home / "my config.toml").touch()
        os.mkfifo(self.calls)
        self.incoming = os.open(self.calls, os.O_RDWR)  # so that a writer always finds a reader
        self.put("qvr-oauth2", STUB)
        self.put("busctl", BUS)
        self.functions = folder / "functions"
        self.functions.mkdir()
        shutil.copy(completions / "_qvr-oauth2", self.functions)
        lazy = self.home / ".local/share/bash-completion/completions"
        lazy.mkdir(parents=True)
        shutil.copy(completions / "qvr-oauth2.bash", lazy / "qvr-oauth2")

    def put(self, name, text):
        path = self.programs / name
        path.write_text(text)
        path.chmod(0o755)

    def environment(self, **more):
        kept = {name: value for name, value in os.environ.items() if name.endswith("SAN_OPTIONS")}
        return kept | {"PATH": f"{self.programs}:/usr/bin:/bin", "HOME": str(self.home), "TERM": "xterm",
                       "LC_ALL": "C.UTF-8", "CALLS": str(self.calls), "ALL_CALLS": str(self.all_calls),
                       "KEYRING_IS_LOCKED": "false", "OFFERS_FOLDER": str(self.functions)} | more

    def called(self):
        """The calls since the last time."""
        lines = self.all_calls.read_text().splitlines() if self.all_calls.exists() else []
        self.all_calls.unlink(missing_ok=True)
        return lines


class Terminal:
    """A shell on a terminal of its own, whose controlling terminal it is."""

    def __init__(self, place, command, environment):
        self.text = ""
        self.process, self.descriptor = pty.fork()
        if self.process == 0:
            os.chdir(place.home)
            os.execvpe(command[0], command, environment)

    def read_until(self, pattern):
        """Waits for the pattern behind what was read before; an empty one is the end of the shell."""
        start, deadline = len(self.text), time.monotonic() + DEADLINE
        while not (pattern and re.search(pattern, self.text[start:])):
            if not select.select([self.descriptor], [], [], max(0, deadline - time.monotonic()))[0]:
                raise TimeoutError(f"no {pattern or 'end'} in {self.text!r}")
            try:
                data = os.read(self.descriptor, 65536)
            except OSError:  # how Linux tells that the other end was closed
                data = b""
            if not data:
                if pattern:
                    raise EOFError(f"no {pattern} in {self.text!r}")
                return
            self.text += data.decode(errors="replace")

    def type(self, text):
        os.write(self.descriptor, text.encode())

    def next_call(self, place):
        """What the next program writes to $CALLS. The shell's output is read meanwhile."""
        deadline = time.monotonic() + DEADLINE
        while True:
            sources = [place.incoming, self.descriptor]
            ready = select.select(sources, [], [], max(0, deadline - time.monotonic()))[0]
            if not ready:
                raise TimeoutError("nothing was called")
            if place.incoming in ready:
                return os.read(place.incoming, 65536).decode()
            self.text += os.read(self.descriptor, 65536).decode(errors="replace")

    def finish(self):
        """Reads all there is, up to the end of the shell."""
        self.type("exit\r")
        self.read_until("")

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.descriptor)


def zsh_offers(place, lines, environment):
    result = place.folder / "result"
    result.write_text("")
    shutil.copy(DRIVERS / "offers.zsh", place.home / "zsh/.zshrc")
    (place.folder / "lines").write_text("\n".join(lines) + "\n")
    terminal = Terminal(place, ["zsh", "-d", "-i"], environment | {
        "ZDOTDIR": str(place.home / "zsh"), "OFFERS_LINES": str(place.folder / "lines"),
        "OFFERS_RESULT": str(result)})
    terminal.read_until("")
    terminal.close()
    return result.read_text(), "".join(re.findall("this must not be seen|not found|rror", terminal.text))


def offers(place, shell, lines, **more):
    """For each line, what the shell offers for its last word; and what else it printed."""
    environment = place.environment(**more)
    if shell == "zsh":
        text, said = zsh_offers(place, lines, environment)
    else:
        command = {"bash": ["bash", "--norc"], "fish": ["fish", "--no-config"]}[shell]
        command += [DRIVERS / f"offers.{shell}", place.completions / f"qvr-oauth2.{shell}"]
        result = subprocess.run(command, input="\n".join(lines) + "\n", capture_output=True, text=True,
                                timeout=DEADLINE, env=environment, cwd=place.home,
                                start_new_session=True, check=True)
        text, said = result.stdout, result.stderr
    found = [set() for _ in lines]
    for line in text.splitlines():
        number, candidate = line.split("\t", 1)
        found[int(number)].add(candidate)
    return found, said


def interactive(place, shell):
    """The command that starts a shell, and the line that has it complete and show the prompt."""
    bash = ["bash", "--norc", "--noprofile", "-i"]
    return {
        "bash": (bash, f"source '{place.completions}/qvr-oauth2.bash'; PS1=R'EADY> '"),
        "bash with bash-completion":
            (bash, "source /usr/share/bash-completion/bash_completion; PS1=R'EADY> '"),
        "zsh": (["zsh", "-f", "-i"],
                "fpath=($OFFERS_FOLDER $fpath); autoload -Uz compinit; compinit -u -D; PROMPT=R'EADY> '"),
        "fish": (["fish", "--no-config", "-i"],
                 f"source '{place.completions}/qvr-oauth2.fish'; function fish_prompt; echo R'EADY> '; end"),
    }[shell]


def start(place, shell, **more):
    """The shell on a terminal, at its prompt."""
    command, line = interactive(place, shell)
    terminal = Terminal(place, command, place.environment(**more))
    terminal.type(line + "\r")
    terminal.read_until(PROMPT)
    return terminal
