"""The commands and options of qvr-oauth2, read from what its --help prints."""
import re
import subprocess


def help_text(program, *command):
    result = subprocess.run([program, *command, "--help"], stdin=subprocess.DEVNULL, capture_output=True,
                            text=True, timeout=30, check=True)
    return result.stdout


def section(text, title):
    """The first columns of a section: "-v,--verbose" or "token"."""
    match = re.search(rf"^{title}:\n((?:  .*\n)+)", text, re.MULTILINE)
    return re.findall(r"^  (\S+)", match.group(1), re.MULTILINE) if match else []


def commands(program):
    """Every command that can be run, such as ("token",) and ("keychain", "move")."""
    found = []
    for name in section(help_text(program), "Subcommands"):
        inner = section(help_text(program, name), "Subcommands")
        found += [(name, each) for each in inner] or [(name,)]
    return found


def options(program, *command):
    """The options of a command, or with none the global ones; each in all its spellings."""
    columns = section(help_text(program, *command), "Options")
    return {spelling for column in columns for spelling in column.split(",")}
