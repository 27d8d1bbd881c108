#!/usr/bin/env python3
"""Takes mail by SMTP on a loopback port, and prints every line that it is sent.

The first line says "sink: port N", and "sink: letter taken" follows each letter. It ends when its
standard input does.
"""

import os
import socketserver
import sys
import threading


def show(line):
    print(line.decode("utf-8", "replace").rstrip("\r\n"), flush=True)


class Conversation(socketserver.StreamRequestHandler):
    def handle(self):
        self.answer("220 sink")
        for line in self.rfile:
            show(line)
            verb = line[:4].upper()
            if verb == b"DATA":
                self.take_letter()
            elif verb == b"EHLO":
                self.answer("250-sink")
                self.answer("250 8BITMIME")
            elif verb == b"QUIT":
                self.answer("221 bye")
                return
            else:
                self.answer("250 fine")

    def take_letter(self):
        self.answer("354 go on")
        for line in self.rfile:
            if line == b".\r\n":
                self.answer("250 taken")
                show(b"sink: letter taken")
                return
            show(line)

    def answer(self, line):
        self.wfile.write(line.encode() + b"\r\n")


class Sink(socketserver.ThreadingTCPServer):
    daemon_threads = True


def main():
    with Sink(("127.0.0.1", 0), Conversation) as sink:
        threading.Thread(target=sink.serve_forever, daemon=True).start()
        show(b"sink: port %d" % sink.server_address[1])
        sys.stdin.buffer.read()
        os._exit(0)


main()
