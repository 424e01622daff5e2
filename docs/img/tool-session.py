#!/usr/bin/python3
"""Draws docs/img/tool-session.svg: a terminal session with the tool and the telemetry station.

Runs the commands in a shell on a terminal, and draws the screen after them. Needs the ports 5555 and 5556, and the groups
build and pictures of scripts/setup.

usage: docs/img/tool-session.py [BUILD]    a folder where examples and tool are built; else build/demo is made
"""

import fcntl
import html
import os
import pty
import struct
import subprocess
import sys
import termios

import pyte

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUILD = os.path.abspath(sys.argv[1]) if len(sys.argv) > 1 else os.path.join(ROOT, "build/demo")
COLUMNS, LINES = 130, 40
READINGS = "--proto telemetry.proto --type Reading"
COMMANDS = "--proto telemetry.proto --type Command --reply-type Answer"

# Each command, and what to wait for before Ctrl-C ends it, if it has no end of its own.
SESSION = [
    ("# is anything coming out of that port?", None),
    ("rk-socket sub tcp://localhost:5555 --count 1 --timeout 2s --format hex", None),
    ("# what does it say?", None),
    ("rk-socket sub tcp://localhost:5555 %s --count 3 | jq -c '{sequence, load, sent_bytes}'" % READINGS, None),
    ("# how fast, how large, how regular?", None),
    ("rk-socket sub tcp://localhost:5555 --stats", "in 3."),
    ("# and the server?", None),
    ("rk-socket req tcp://localhost:5556 %s '{\"id\": 1}'" % COMMANDS, None),
    ("rk-socket req tcp://localhost:5556 %s '{\"id\": 1}' --count 500 >/dev/null" % COMMANDS, None),
    ("rk-socket req tcp://localhost:5999 hello --timeout 500ms; echo status $?", None),
]

COLOURS = {"default": "#d8dee9", "black": "#4c566a", "red": "#ff6b6b", "green": "#a3be8c", "brown": "#ebcb8b",
           "blue": "#81a1c1", "magenta": "#b48ead", "cyan": "#88c0d0", "white": "#eceff4"}
CELL_WIDTH, CELL_HEIGHT, MARGIN, BAR = 8.4, 19, 16, 34


class Shell:
    """A shell on a terminal, and the terminal's screen."""

    def __init__(self):
        self.screen = pyte.Screen(COLUMNS, LINES)
        self.stream = pyte.ByteStream(self.screen)
        self.prompts = 0
        self.master, terminal = pty.openpty()
        fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", LINES, COLUMNS, 0, 0))
        # Each prompt puts its number into the window's title, where it is seen.
        environment = dict(os.environ, TERM="xterm-256color", PATH=BUILD + "/tools:" + os.environ["PATH"],
                           PS1=r"\[\e[1;32m\]$\[\e[0m\] ", PROMPT_COMMAND=r'printf "\e]2;%d\a" $((++prompts))')
        self.process = subprocess.Popen(
            ["setsid", "--ctty", "bash", "--norc", "--noprofile", "--noediting", "-i", "-O", "interactive_comments"],
            stdin=terminal, stdout=terminal, stderr=terminal, env=environment,
            cwd=os.path.join(ROOT, "examples/telemetry"))
        os.close(terminal)
        self.read_until(self.prompted)

    def prompted(self):
        return self.screen.title == str(self.prompts + 1) and self.screen.cursor.x == 2

    def shows(self, text):
        return any(text in line for line in self.screen.display)

    def read_until(self, happened):
        while not happened():
            self.stream.feed(os.read(self.master, 65536))

    def run(self, command, enough):
        self.prompts += 1
        os.write(self.master, command.encode() + b"\n")
        if enough:
            self.read_until(lambda: self.shows(enough))
            os.write(self.master, b"\3")
        self.read_until(self.prompted)

    def end(self):
        os.close(self.master)
        self.process.wait()


def spans(line):
    """The line's text in pieces of one look: column, text, colour, boldness."""
    pieces = []
    for column in range(COLUMNS):
        cell = line[column]
        look = [COLOURS.get(cell.fg, COLOURS["default"]), cell.bold]
        if pieces and pieces[-1][2:] == look:
            pieces[-1][1] += cell.data
        else:
            pieces.append([column, cell.data, *look])
    return [piece for piece in pieces if piece[1].strip()]


def drawn(screen):
    last = max(number for number, line in enumerate(screen.display) if line.strip() not in ("", "$"))
    width = COLUMNS * CELL_WIDTH + 2 * MARGIN
    height = (last + 1) * CELL_HEIGHT + BAR + MARGIN
    svg = ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %g %g" width="%g" height="%g" font-size="14" '
           'font-family="DejaVu Sans Mono, Menlo, Consolas, monospace">' % (width, height, width, height),
           '<rect width="100%" height="100%" rx="8" fill="#20242c"/>']
    for number, colour in enumerate(("#ff5f56", "#ffbd2e", "#27c93f")):
        svg.append('<circle cx="%g" cy="17" r="6" fill="%s"/>' % (MARGIN + 6 + 20 * number, colour))
    for number in range(last + 1):
        for column, text, colour, bold in spans(screen.buffer[number]):
            text = text.rstrip()
            svg.append('<text x="%g" y="%g" fill="%s"%s textLength="%g" lengthAdjust="spacingAndGlyphs" '
                       'xml:space="preserve">%s</text>' %
                       (MARGIN + column * CELL_WIDTH, BAR + number * CELL_HEIGHT + 14, colour,
                        ' font-weight="bold"' if bold else "", len(text) * CELL_WIDTH, html.escape(text, quote=False)))
    return "\n".join([*svg, "</svg>", ""])


def build():
    subprocess.run(["cmake", "-S", ROOT, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DBUILD_TESTING=OFF",
                    "-DRK_SOCKET_BUILD_EXAMPLES=ON", "-DRK_SOCKET_BUILD_TOOLS=ON"], check=True, stdout=sys.stderr)
    subprocess.run(["cmake", "--build", BUILD, "--target", "telemetry-station", "rk-socket-tool"], check=True,
                   stdout=sys.stderr)


def main():
    if len(sys.argv) == 1:
        build()
    station = subprocess.Popen([BUILD + "/examples/telemetry/telemetry-station", "tcp://*:5555", "tcp://*:5556"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    try:
        if not station.stdout.readline():
            sys.exit("tool-session: the station cannot listen on ports 5555 and 5556")
        shell = Shell()
        for command, enough in SESSION:
            shell.run(command, enough)
        with open(os.path.join(ROOT, "docs/img/tool-session.svg"), "w", encoding="utf-8") as file:
            file.write(drawn(shell.screen))
        shell.end()
    finally:
        station.terminate()
        station.wait()


if __name__ == "__main__":
    main()
