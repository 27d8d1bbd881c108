#!/usr/bin/env python3
"""Runs a program on a terminal of its own, as a person does who reads the screen and types.

    terminal.py SECONDS STEP... -- PROGRAM ARGUMENT...

A STEP is "see TEXT", which waits until the screen has shown the text since the step before, or
"type TEXT". The exit status is 0 when every step was done and the program then ended with 0. What
was on the screen is printed, without the terminal's control sequences.
"""

import fcntl
import os
import pty
import re
import select
import signal
import struct
import sys
import termios
import time

CONTROL = re.compile(rb"\x1b\[[0-9;?]*[ -/]*[@-~]|\x1b\][^\x07\x1b]*(\x07|\x1b\\)|\x1b[()].|\x1b[=>78M]")
ROWS, COLUMNS = 40, 160


class Screen:
    def __init__(self, command, deadline):
        self.deadline = deadline
        self.shown = b""
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.environ["TERM"] = "xterm"
            os.execvp(command[0], command)
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("4H", ROWS, COLUMNS, 0, 0))

    def read(self):
        """Reads what is there; false at the end of the program or of the time."""
        left = max(0, self.deadline - time.monotonic())
        if not select.select([self.terminal], [], [], left)[0]:
            return False
        try:
            data = os.read(self.terminal, 65536)
        except OSError:  # the program has closed the terminal
            return False
        self.shown += data
        return bool(data)

    def text(self):
        return CONTROL.sub(b"", self.shown)

    def see(self, text):
        while text not in self.text():
            if not self.read():
                return False
        print(self.text().decode("utf-8", "replace"))
        self.shown = b""
        return True

    def type(self, text):
        os.write(self.terminal, text)
        return True

    def end(self):
        """Waits for the program, and kills it when the time is over."""
        while self.read():
            pass
        print(self.text().decode("utf-8", "replace"))
        if time.monotonic() >= self.deadline:
            os.kill(self.process, signal.SIGKILL)
        return os.waitstatus_to_exitcode(os.waitpid(self.process, 0)[1])


def main(seconds, arguments):
    split = arguments.index("--")
    screen = Screen(arguments[split + 1:], time.monotonic() + float(seconds))
    for step in arguments[:split]:
        verb, text = step.split(" ", 1)
        if not {"see": screen.see, "type": screen.type}[verb](text.encode()):
            print("terminal: not seen: " + text, file=sys.stderr)
            os.kill(screen.process, signal.SIGKILL)
            screen.end()
            return 1
    return 1 if screen.end() else 0


sys.exit(main(sys.argv[1], sys.argv[2:]))
