// A peer with plain ZeroMQ and Node.js. Reads one command per line, executes it, and writes one line: "ok" and the result,
// or "error" and the reason. Bytes are written as hexadecimal digits, and no bytes as "-".
//
// usage: node client.js MESSAGES_PROTO

"use strict";

const readline = require("node:readline");
const protobuf = require("protobufjs");
const zmq = require("zeromq");

const Command = protobuf.loadSync(process.argv[2]).lookupType("rk.tests.Command");
const patterns = { pub: zmq.Publisher, sub: zmq.Subscriber, req: zmq.Request, rep: zmq.Reply };
let socket;
let arriving; // the pending receive

const toHexadecimal = (bytes) => Buffer.from(bytes).toString("hex") || "-";
const fromHexadecimal = (text) => (text === "-" ? Buffer.alloc(0) : Buffer.from(text, "hex"));

function arrival() {
    arriving ??= socket.receive();
    return arriving;
}

async function nextBlock() {
    const [block, ...more] = await arrival();
    arriving = undefined;
    if (more.length > 0) {
        throw new Error(`${more.length} parts too many`);
    }
    return block;
}

const verbs = {
    async open(pattern, address) {
        socket = new patterns[pattern]();
        if (pattern === "pub" || pattern === "rep") {
            await socket.bind(address);
            return;
        }
        socket.connect(address);
        if (pattern === "sub") {
            socket.subscribe();
        }
    },
    async send(block) {
        await socket.send(fromHexadecimal(block));
    },
    async receive() {
        return toHexadecimal(await nextBlock());
    },
    async "send-command"(id, time, payload) {
        const command = { id: Number(id), header: { time: Number(time) }, payload: fromHexadecimal(payload) };
        await socket.send(Command.encode(Command.create(command)).finish());
    },
    async "receive-command"() {
        const block = await nextBlock();
        const command = Command.decode(block);
        return `${command.id} ${command.header.time} ${toHexadecimal(command.payload)} ${toHexadecimal(block)}`;
    },
    async poll(milliseconds) {
        const timeout = new Promise((resolve) => setTimeout(resolve, Number(milliseconds), false));
        return Promise.race([arrival().then(() => true), timeout]);
    },
};

async function main() {
    for await (const line of readline.createInterface({ input: process.stdin })) {
        const [verb, ...words] = line.split(" ");
        try {
            console.log(`ok ${(await verbs[verb](...words)) ?? ""}`);
        } catch (failure) {
            console.log(`error ${failure.message}`);
        }
    }
    socket?.close();
}

main();
