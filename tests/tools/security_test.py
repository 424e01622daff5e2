"""Key files, and encryption between the tool and foreign peers."""

import os
import socket
import unittest

from harness import ToolTest, free_port, zmq


class KeyTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.own, self.own_key = self.key_pair("own")
        self.other, self.other_key = self.key_pair("other")

    def key_pair(self, name):
        """Returns a key file and its public key."""
        path = self.path(name + ".key")
        status, output, errors = self.run_tool("keygen", path)
        self.assertEqual((0, ""), (status, errors))
        return path, output[:40].decode()

    def trusting(self, *lines):
        """Returns the options for the key pair `own` and these lines of trusted keys."""
        self.write_file("trusted", "".join(line + "\n" for line in lines).encode())
        return ["--key", self.own, "--trust", self.path("trusted")]

    def keys(self, path, server_key=None):
        """Returns a foreign peer's options for the key pair in a file: of a server, or of a client of `server_key`."""
        with open(path, "rb") as file:
            public, secret = file.read().split()
        role = {"curve_serverkey": server_key.encode()} if server_key else {"curve_server": True}
        return {"curve_publickey": public, "curve_secretkey": secret, **role}

    def server(self, kind):
        """Returns a foreign server with the key pair `other`, and its endpoint."""
        return self.bound(kind, self.endpoint(), **self.keys(self.other))

    def endpoint(self):
        return "tcp://127.0.0.1:%d" % free_port()


class Files(KeyTest):
    def test_keygen_prints_the_lines_that_peers_need(self):
        path = self.path("new.key")
        status, output, errors = self.run_tool("keygen", path)
        client, server = output.decode().splitlines()
        key = self.read_file("new.key").split()[0].decode()

        self.assertEqual((0, ""), (status, errors))
        self.assertEqual("%s new@%s" % (key, socket.gethostname()), client)
        self.assertEqual("%s tcp://%s:*" % (key, socket.gethostname()), server)
        self.assertEqual(0o600, os.stat(path).st_mode & 0o777)

    def test_keygen_replaces_names_that_the_file_cannot_have(self):
        for name in "a:1", "#1", "a b", "\N{SECTION SIGN}":
            client = self.run_tool("keygen", self.path(name))[1].decode().splitlines()[0]
            self.assertTrue(client.endswith(" client"), client)

    def test_keygen_keeps_what_is_there(self):
        before = self.read_file("own.key")
        status, output, errors = self.run_tool("keygen", self.own)

        self.assertEqual((1, b"", before), (status, output, self.read_file("own.key")))
        self.assertIn(self.own, errors)

    def test_pubkey_prints_the_public_key(self):
        self.assertEqual((0, self.own_key.encode() + b"\n", ""), self.run_tool("pubkey", self.own))

    def test_a_key_file_that_others_can_read_is_refused(self):
        os.chmod(self.own, 0o644)

        for arguments in (["pubkey", self.own], ["sub", self.endpoint(), *self.trusting()]):
            status, output, errors = self.run_tool(*arguments)
            self.assertEqual((1, b""), (status, output))
            self.assertIn(self.own, errors)

    def test_keys_are_for_tcp(self):
        endpoint = self.fresh_endpoint()

        self.assertEqual((1, b"", "rk-socket: %s: only TCP can be encrypted\n" % endpoint),
                         self.run_tool("sub", endpoint, *self.trusting()))

    def test_an_endpoint_without_a_key_is_refused(self):
        endpoint = self.endpoint()

        self.assertEqual((1, b"", "rk-socket: %s: no key for %s\n" % (self.path("trusted"), endpoint)),
                         self.run_tool("sub", endpoint, *self.trusting(self.other_key + " tcp://127.0.0.1:1")))


class Connecting(KeyTest):
    def test_a_server_with_the_expected_key_is_heard(self):
        publisher, endpoint = self.server(zmq.XPUB)
        sub = self.start("sub", endpoint, "--count", "1", *self.trusting(self.other_key + " " + endpoint))
        self.await_subscriber(publisher)
        publisher.send(b"secret")

        self.assertEqual((0, b"secret\n", ""), sub.end())

    def test_the_cause_is_remarked_on(self):
        _, endpoint = self.server(zmq.XPUB)
        sub = self.start("sub", endpoint, *self.trusting(self.own_key + " " + endpoint))

        self.assertEqual("rk-socket: %s: the other side has another key than the one in %s\n" % (endpoint, self.path("trusted")),
                         sub.process.stderr.readline().decode())


class Listening(KeyTest):
    def served(self, *lines):
        endpoint = self.endpoint()
        rep = self.start("rep", endpoint, "--listen-on", "127.0.0.1", "--echo", "--count", "1", *self.trusting(*lines))
        return endpoint, rep

    def ask(self, peer, endpoint):
        peer.connect(endpoint)
        peer.send(b"hello")
        return peer

    def test_only_trusted_clients_are_admitted(self):
        endpoint, rep = self.served(self.other_key + " friend")
        plain = self.ask(self.peer(zmq.REQ), endpoint)
        wrong = self.ask(self.peer(zmq.REQ, **self.keys(self.other, self.other_key)), endpoint)
        third, third_key = self.key_pair("third")
        untrusted = self.ask(self.peer(zmq.REQ, **self.keys(third, self.own_key)), endpoint)
        self.assertEqual("rk-socket: refused a client at 127.0.0.1, whose key is not in %s: %s\n" %
                         (self.path("trusted"), third_key), rep.process.stderr.readline().decode())
        friend = self.ask(self.peer(zmq.REQ, **self.keys(self.other, self.own_key)), endpoint)

        self.assertEqual(b"hello", friend.recv())
        self.assertEqual((0, b"hello\n", ""), rep.end())
        self.assertEqual([0, 0, 0], [peer.poll(0) for peer in (plain, wrong, untrusted)])

    def test_both_sides_may_be_the_tool(self):
        endpoint = self.endpoint()
        options = self.trusting(self.own_key + " " + endpoint, self.own_key + " self")
        push = self.start("push", endpoint, "--listen-on", "127.0.0.1", "--max-message-size", "1", "x", *options)

        self.assertEqual((0, b"x\n", ""), self.start("pull", endpoint, "--count", "1", *options).end())
        self.assertEqual((0, b"", ""), push.end())

    def test_a_publisher_tells_whom_it_refuses(self):
        endpoint = self.endpoint()
        pub = self.start("pub", endpoint, "--listen-on", "127.0.0.1", "x", "--wait", "1", *self.trusting())
        self.subscriber(endpoint, **self.keys(self.other, self.own_key))

        self.assertIn(self.other_key, pub.process.stderr.readline().decode())


class Checking(KeyTest):
    UNTRUSTED = "the other side does not trust this key, or is a PUSH, DEALER, REQ or PAIR socket: "

    def check(self, endpoint, key=None):
        return self.run_tool("check", endpoint, *self.trusting((key or self.other_key) + " " + endpoint))

    def fails(self, endpoint, reason, key=None):
        self.assertEqual((1, b"", "rk-socket: %s: %s\n" % (endpoint, reason)), self.check(endpoint, key))

    def test_tells_what_is_right(self):
        for kind, name in ((zmq.PUB, "PUB or XPUB"), (zmq.ROUTER, "REP or ROUTER"), (zmq.PULL, "PULL"), (zmq.SUB, "SUB or XSUB")):
            _, endpoint = self.server(kind)
            self.assertEqual((0, b"%s: ZMTP 3.1, mechanism CURVE, keys trusted by both sides, a %s socket\n" %
                              (endpoint.encode(), name.encode()), ""), self.check(endpoint))

    def test_tells_a_wrong_key(self):
        self.fails(self.server(zmq.REP)[1], "the other side has another key than the one in " + self.path("trusted"), self.own_key)

    def test_tells_a_server_that_does_not_trust_the_key(self):
        endpoint = self.endpoint()
        self.write_file("nobody", b"")
        self.start_open("rep", endpoint, "--listen-on", "127.0.0.1", "--echo", "--key", self.other,
                        "--trust", self.path("nobody"))

        self.fails(endpoint, self.UNTRUSTED + self.own_key)

    def test_takes_nothing_from_a_socket_that_hands_out_messages(self):
        push, endpoint = self.server(zmq.PUSH)
        self.fails(endpoint, self.UNTRUSTED + self.own_key)

        self.assertRaises(zmq.Again, push.send, b"", zmq.DONTWAIT)

    def test_tells_a_plain_server(self):
        _, endpoint = self.bound(zmq.PUB, self.endpoint())

        self.fails(endpoint, "the other side does not encrypt, its security is of the kind NULL")


if __name__ == "__main__":
    unittest.main()
