"""Runs every example of the help and of the document, with a peer for each port:

5555  publishes telemetry.Reading
5556  answers telemetry.Command
5557  receives published or pushed messages
5558  echoes
5559  sends requests
5560  pulls messages, or pushes to a tool that binds it
5561  pushes messages
5562  publishes encrypted
"""

import concurrent.futures
import itertools
import os
import re
import shutil
import signal
import subprocess
import sys
import threading
import unittest

from harness import SOURCES, TOOL, Process, ToolTest, free_port, generated, zmq

telemetry = generated("telemetry", os.path.join(SOURCES, "examples/telemetry"))


def examples_of_help(command):
    text = subprocess.run([TOOL, command, "--help"], capture_output=True, check=True).stdout.decode()
    return re.findall(r"^  # .*\n    (.*)$", text.split("\nExamples:\n")[1], re.MULTILINE)


def examples_of_document():
    with open(os.path.join(SOURCES, "docs/tool.md"), encoding="utf-8") as file:
        text = file.read()
    blocks = re.findall(r"^```sh\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)
    lines = "".join(blocks).replace("\\\n", " ").splitlines()
    return [line for line in lines if line and not line.startswith("#")]


class Examples(ToolTest):
    def setUp(self):
        super().setUp()
        self.ports = {port: free_port() for port in range(5555, 5563)}
        self.over = threading.Event()
        shutil.copy(os.path.join(SOURCES, "examples/telemetry/telemetry.proto"), self.folder)
        self.write_file("request.bin", bytes(range(256)))
        self.write_file("readings.rec", b"rk-socket recording 1\n" + bytes(8) + b"\4\0\0\0\x08\1\x10\2")
        self.write_file("commands.json", b'{"id": 1}\n{"id": 2, "action": "PAUSE"}\n')

    def endpoint(self, port):
        return "tcp://127.0.0.1:%d" % self.ports[port]

    def make_keys(self):
        """Writes the tool's files and the keys of the encrypted server."""
        public, secret = zmq.curve_keypair()
        self.run_tool("keygen", self.path("my.key"))
        self.write_file("trusted-keys", public + b" tcp://localhost:%d\n" % self.ports[5562])
        return secret

    def publish_readings(self, port=5555, secret=None):
        security = {"curve_secretkey": secret, "curve_server": True} if secret else {}
        publisher, _ = self.bound(zmq.XPUB, "tcp://*:%d" % self.ports[port], **security)

        def loop():
            number = 0
            while not self.over.wait(0.002):
                number += 1
                publisher.send(telemetry.Reading(sequence=number, load=0.5, memory_total_kib=8000).SerializeToString())
            publisher.close(0)

        thread = threading.Thread(target=loop)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(self.over.set)

    def answer_command(self, request):
        return telemetry.Answer(id=telemetry.Command.FromString(request).id, interval_ms=50).SerializeToString()

    def run_example(self, command):
        tool = re.search(r"rk-socket (\w+)", command).group(1)
        if "--key" in command or tool == "pubkey":
            self.publish_readings(5562, self.make_keys())
        elif tool in ("sub", "probe"):
            self.publish_readings()
        elif tool == "req":
            self.serve(self.answer_command, "tcp://*:%d" % self.ports[5556])
            self.serve(lambda request: request, "tcp://*:%d" % self.ports[5558])
        listener = self.listener(tool, command)
        script = re.sub(r":(55[56]\d)", lambda match: ":%d" % self.ports[int(match.group(1))], command)
        process = Process(["bash", "-c", "set -o pipefail; PATH=%s:$PATH; %s" % (os.path.dirname(TOOL), script)],
                          cwd=self.folder, start_new_session=True)
        self.addCleanup(process.discard)
        process.close_input()
        if listener:
            self.assertIsNotNone(listener.recv())
        if tool == "rep":
            self.ask(command)
        self.finish(command, process)

    def listener(self, tool, command):
        """Returns the peer for a tool that sends first."""
        if tool == "pub":
            return self.subscriber(self.endpoint(5557))
        if tool == "push":
            peer = self.peer(zmq.PULL)
            peer.bind("tcp://*:%d" % self.ports[5560])
            peer.connect(self.endpoint(5557))
            return peer
        if tool == "pull":
            peer = self.peer(zmq.PUSH)
            if "--bind" in command:
                peer.connect(self.endpoint(5560))
            else:
                peer.bind("tcp://*:%d" % self.ports[5561])
            threading.Thread(target=peer.send, args=(b"a task",)).start()
        return None

    def ask(self, command):
        client = self.client(self.endpoint(5559))
        client.send(telemetry.Command(id=7).SerializeToString() if "--proto" in command else b"hello")
        reply = client.recv()
        if "--proto" in command:
            self.assertEqual(telemetry.Answer(id=7, refusal="not now"), telemetry.Answer.FromString(reply))
        else:
            self.assertIn(reply, (b"hello", b"HELLO", b"at your service"))

    def finish(self, command, process):
        endless = re.search(r"rk-socket (sub|rep|pull) ", command) and "--count" not in command and "head" not in command \
            and not re.search("(?<!command-)timeout", command)
        if endless:
            self.assertNotEqual(b"", process.read_line())
            os.killpg(process.process.pid, signal.SIGINT)
        status, output, errors = process.end()
        allowed = (0, -signal.SIGINT, 128 + signal.SIGINT) if endless else (0,)
        self.assertIn(status, allowed, errors)
        complaints = [line for line in errors.splitlines() if line.startswith("rk-socket:") and "debug: " not in line]
        self.assertEqual([], complaints)
        writes = not re.search(r">|--record|rk-socket (pub|push)", command)
        if writes and not endless:
            self.assertNotEqual(b"", output)


def add_test(name, command):
    setattr(Examples, "test_" + name, lambda self: self.run_example(command))


for name in ("sub", "pub", "req", "rep", "push", "pull", "probe", "types", "keygen", "pubkey"):
    examples = examples_of_help(name)
    assert examples, name
    for index, example in enumerate(examples, 1):
        add_test("help_%s_%d" % (name, index), example)
for index, example in enumerate(examples_of_document(), 1):
    add_test("document_%d" % index, example)

if __name__ == "__main__":
    # In parallel, because they mostly wait.
    cases = unittest.defaultTestLoader.loadTestsFromTestCase(Examples)
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        results = list(pool.map(lambda case: case.run(), cases))
    for case, trace in itertools.chain.from_iterable(result.errors + result.failures for result in results):
        print(case, trace, sep="\n")
    print(len(results), "examples")
    sys.exit(not all(result.wasSuccessful() for result in results))
