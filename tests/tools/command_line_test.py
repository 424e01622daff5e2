"""The tool's help, manual page, completions for shells, and messages about wrong arguments."""

import os
import re
import subprocess
import unittest

from harness import SOURCES, TOOL, Terminal, ToolTest

COMPLETIONS = os.path.join(SOURCES, "tools/documents")
MANUAL = os.path.join(os.path.dirname(TOOL), "rk-socket.1")
ENVIRONMENT = dict(os.environ, PATH=os.path.dirname(TOOL) + ":" + os.environ["PATH"])
COMMANDS = ["sub", "pub", "req", "rep", "push", "pull", "probe", "types", "keygen", "pubkey"]


class Help(ToolTest):
    def help(self, *arguments):
        status, output, errors = self.run_tool(*arguments, "--help")
        self.assertEqual((0, ""), (status, errors))
        return output.decode()

    def options(self, command):
        """Yields each option of a subcommand in all spellings."""
        return self.spellings(re.findall(r"^  (-.*?)(?:  .*)?$", self.help(command), re.MULTILINE))

    def spellings(self, entries):
        return {spelling for entry in entries for spelling in re.findall(r"(?<![^\s,])--?[a-zA-Z][-a-z0-9]*", entry)}

    def test_is_no_wider_than_a_terminal_but_for_the_examples(self):
        for arguments in ([], *([command] for command in COMMANDS)):
            text = self.help(*arguments).split("\nExamples:\n")[0]
            self.assertLessEqual(max(len(line) for line in text.splitlines()), 80)

    def test_shows_the_defaults(self):
        for command, option in (("req", "--format FORMAT=text"), ("req", "--timeout TIME=5s"), ("req", "--max-size SIZE=64MiB"),
                                ("pub", "--delay TIME=500ms")):
            self.assertIn(option, self.help(command))

    def test_has_examples_for_every_command(self):
        for command in COMMANDS:
            self.assertRegex(self.help(command).split("\nExamples:\n")[1], "^  # .*\n    .*rk-socket " + command)

    @unittest.skipUnless(os.path.exists(MANUAL), "the manual page is made where help2man is installed")
    def test_every_option_is_in_the_manual_page(self):
        with open(MANUAL, encoding="utf-8") as file:
            page = re.sub(r"\\f.|\\/|\\,", "", file.read()).replace("\\-", "-")
        for command in COMMANDS:
            section = page.split('.SS "rk-socket %s ' % command)[1].split("\n.S")[0]
            self.assertGreaterEqual(len(self.options(command)), 4)
            # CLI11 omits --help, which every command has.
            self.assertEqual(self.options(command) - {"-h", "--help"},
                             self.spellings(re.findall(r"^\.TP\n(-.*)$", section, re.MULTILINE)))

    def test_every_option_is_in_the_document(self):
        with open(os.path.join(SOURCES, "docs/tool.md"), encoding="utf-8") as file:
            text = file.read()
        for command in COMMANDS:
            for option in self.options(command):
                self.assertRegex(text, re.escape(option) + r"\b")

    def test_every_option_is_completed_by_bash(self):
        for command in COMMANDS:
            self.assertEqual(self.options(command), self.completed_by_bash("rk-socket", command, "-"))

    def test_bash_completes_commands_choices_and_files(self):
        self.write_file("file.proto", b"")
        self.assertEqual(set(COMMANDS), self.completed_by_bash("rk-socket", "") - {"check", "--help", "--help-all", "--version"})
        self.assertEqual({"text", "hex", "hexdump", "raw"}, self.completed_by_bash("rk-socket", "sub", "--format", ""))
        self.assertEqual({"linger"}, self.completed_by_bash("rk-socket", "pub", "--close-policy", "l"))
        self.assertEqual({"file.proto"}, self.completed_by_bash("rk-socket", "sub", "--proto", "f"))
        self.assertEqual(set(), self.completed_by_bash("rk-socket", "sub", "--count", ""))

    def completed_by_bash(self, *words):
        script = 'compopt() { :; }; source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _rk_socket; ' \
                 'printf "%s\n" "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "-euc", script, os.path.join(COMPLETIONS, "rk-socket.bash"), *words],
                              capture_output=True, cwd=self.folder, env=ENVIRONMENT)
        self.assertEqual((0, b""), (done.returncode, done.stderr))
        return set(done.stdout.decode().split())

    def test_every_option_is_completed_by_zsh(self):
        with ZSh(self.folder) as shell:
            for command in COMMANDS:
                listed = shell.complete("rk-socket %s -" % command)
                self.assertEqual(self.options(command),
                                 self.spellings(re.findall(r"^(-.*?) +-- ", listed, re.MULTILINE)), listed)

    def test_zsh_completes_options_and_choices(self):
        with ZSh(self.folder) as shell:
            self.assertIn("--close-policy", shell.complete("rk-socket req --clo"))
            self.assertIn("linger", shell.complete("rk-socket rep --close-policy li"))
            self.assertIn("--echo", shell.complete("rk-socket rep ipc://a --ec"))

    @unittest.skipUnless(os.path.exists(MANUAL), "the manual page is made where help2man is installed")
    def test_the_manual_page_is_without_errors(self):
        done = subprocess.run(["mandoc", "-T", "lint", "-W", "warning", MANUAL], capture_output=True)
        warnings = [line for line in done.stdout.decode().splitlines() if "date" not in line]
        self.assertEqual(([], b""), (warnings, done.stderr))

    def test_tells_its_version(self):
        self.assertRegex(self.run_tool("--version")[1], rb"^rk-socket \d+\.\d+\.\d+\n$")


class ZSh(Terminal):
    """An interactive zsh that completes."""

    def __init__(self, folder):
        super().__init__(["zsh", "-f", "-i"], dict(ENVIRONMENT, TERM="dumb", HOME=folder))
        os.write(self.master, b"PS1=''; LISTMAX=1000; setopt interactive_comments; fpath=(%s $fpath); autoload -Uz compinit; "
                              b"compinit -u -D; echo rea''dy\n" % COMPLETIONS.encode())
        self.read_until(b"ready\r\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.kill()
        self.process.wait()
        os.close(self.master)

    def complete(self, text):
        """Returns the completion that zsh shows after a tab: the rest of a word, or a list."""
        self.text = b""
        os.write(self.master, text.encode() + b"\t\x01# \necho en''d\n")
        self.read_until(b"end\r\n")
        return self.text.decode()


class Refusing(ToolTest):
    def test_a_command_line_that_is_not_understood_ends_with_status_2(self):
        endpoint = self.fresh_endpoint()
        for arguments in (["publish"], ["sub"], ["sub", "nowhere"], ["sub", endpoint, "--bogus"], ["sub", endpoint, "--count"],
                          ["sub", endpoint, "--timeout", "soon"], ["sub", ""],
                          *(["sub", endpoint, "--count", count] for count in ("x", "", "-1", "1.5", "18446744073709551616")),
                          *(["req", endpoint, "--proto", "a", "--type", "T", option, ""] for option in (
                              "--proto", "--type", "--proto-path", "--reply-type", "--descriptor-set", "--proto-part",
                              "--separator", "--template", "--timeout", "--max-size", "--fifo", "--close-policy")),
                          ["sub", endpoint, "--format", ""], ["pub", endpoint, "--delay", ""], ["sub", endpoint, "--record", ""],
                          ["pub", endpoint, "--hex", "--proto", "a", "--type", "T"],
                          ["sub", endpoint, "--format", "hex", "--proto", "a", "--type", "T"],
                          ["sub", endpoint, "--max-size", "0"], ["sub", endpoint, "--max-size", "2GiB"],
                          *(["pub", endpoint, "--replay", "a", "--speed", speed] for speed in ("nan", "-1", "inf", "")),
                          ["pub", endpoint, "--rate", ""], ["pub", endpoint, "--rate", "4294967296"],
                          ["pub", endpoint, "--replay", ""], ["pub", endpoint, "--file", ""],
                          ["rep", endpoint, "--command", ""], ["rep", endpoint, "--reply-file", ""],
                          ["sub", endpoint, "--proto", "a.proto"], ["sub", endpoint, "--type", "T"],
                          ["sub", endpoint, "--format", "xml"], ["sub", endpoint, "--stats", "--format", "hex"],
                          ["pub", endpoint, "a", "--file", "b"], ["pub", endpoint, "a", "--replay", "b"],
                          ["pub", endpoint, "--listen-on", "lo:5555"], ["pub", endpoint, "--listen-on", ""],
                          ["sub", endpoint, "--listen-on", "a/b"], ["sub", endpoint, "--listen-on", "lo"],
                          ["pub", endpoint, "--connect", "--max-message-size", "1"], ["rep", endpoint, "--max-message-size", "0"],
                          ["req", endpoint, "--peer-timeout", "32768s"],
                          ["pub", endpoint, "--rate", "0"], ["pub", endpoint, "--fifo", "-1"], ["rep", endpoint],
                          ["rep", endpoint, "--echo", "--reply", "x"], ["sub", endpoint, "--interval", "1s"],
                          ["sub", endpoint, "--close-policy", "drop"], ["pub", endpoint, "--lines"],
                          ["pub", endpoint, "--max-size", "1"], ["pub", endpoint, "--bind", "--connect"],
                          ["pub", endpoint, "--wait", "0"], ["pub", endpoint, "--wait", "1", "--delay", "1s"],
                          ["rep", endpoint, "--echo", "--command-timeout", "1s"], ["rep", endpoint, "--echo", "--hex"],
                          ["rep", endpoint, "--command", "cat", "--hex"],
                          ["rep", endpoint, "--echo", "--proto", "a", "--type", "T", "--reply-type", "T"],
                          ["sub", endpoint, "--separator", "x"], ["sub", endpoint, "--json", "--parts"],
                          ["sub", endpoint, "--stats", "--json"], ["sub", endpoint, "--topic", ""],
                          ["sub", endpoint, "--proto-part", "1"], ["req", endpoint, "--count", "1", "--file", "a", "b"],
                          ["types"], ["probe"], ["probe", "nowhere"], ["keygen"], ["keygen", ""], ["pubkey"],
                          ["sub", endpoint, "--key", "a"], ["check", endpoint, "--trust", "a"]):
            status, output, errors = self.run_tool(*arguments)
            self.assertEqual((2, b""), (status, output), arguments)
            self.assertRegex(errors, r"^rk-socket: .* \(see rk-socket.* --help\)\n$")

    def test_shows_the_usage_when_called_without_arguments(self):
        status, output, errors = self.run_tool()

        self.assertEqual((2, b""), (status, output))
        self.assertEqual(self.run_tool("--help")[1].decode(), errors)

    def test_names_what_is_wrong_in_plain_words(self):
        for arguments, reason in ((["publish"], "rk-socket: there is no command 'publish' (see rk-socket --help)\n"),
                                  (["sub", "tcp://a:1", "--txet"], "rk-socket: The following argument was not expected: "
                                   "--txet (see rk-socket sub --help)\n"),
                                  (["sub", "nowhere"], "'nowhere' is no endpoint: tcp://HOST:PORT or ipc://PATH"),
                                  (["sub", "tcp://a:1", "--max-size", "3GiB"], "'3GiB' is no size: a number of bytes up to "),
                                  (["sub", "tcp://a:1", "--count", "-1"], "'-1' is no whole number from 0 to "),
                                  (["sub", "tcp://a:1", "--peer-timeout", "0"], "'0' is no duration from 1 to 32767 s: ")):
            self.assertIn(reason, self.run_tool(*arguments)[2])

    def test_takes_a_template_with_unknown_fields_for_a_mistake(self):
        self.assertEqual((1, b"", "rk-socket: --template: there is no {nothing}; there are {time} {endpoint} {sequence} {size} "
                                  "{parts} {message} {hex}\n"),
                         self.run_tool("sub", self.fresh_endpoint(), "--template", "{size} {nothing}"))


class Colours(ToolTest):
    def test_are_for_terminals(self):
        self.assertIn(b"\x1b[1;31mrk-socket:\x1b[0m ", Terminal([TOOL, "publish"]).end()[1])

    def test_are_left_out_when_they_are_not_wanted(self):
        self.assertNotIn(b"\x1b", Terminal([TOOL, "publish"], {"NO_COLOR": "1"}).end()[1])
        self.assertNotIn(b"\x1b", Terminal([TOOL, "publish"], {"TERM": "dumb"}).end()[1])
        self.assertNotIn("\x1b", self.run_tool("publish")[2])


if __name__ == "__main__":
    unittest.main()
