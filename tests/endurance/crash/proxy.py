"""A TCP proxy that behaves like a bad network."""

import asyncio
import random
import socket
import struct
import threading

BLOCK = 1 << 14


class Proxy:
    """Forwards connections to a local port, on a separate thread. `mode` is one of `MODES`."""

    PASS, DELAY, STALL, CUT, HALF_OPEN, CORRUPT = MODES = ("pass", "delay", "stall", "cut", "half-open", "corrupt")

    def __init__(self, target, seed):
        self.target = target
        self.random = random.Random(seed)
        self.mode = self.PASS
        self.writers = set()
        self.loop = asyncio.new_event_loop()
        self.passing = asyncio.Event()
        self.passing.set()
        self.thread = threading.Thread(target=self.loop.run_forever, daemon=True)
        self.thread.start()
        self.server = self._do(asyncio.start_server(self._accept, "127.0.0.1", 0))
        self.port = self.server.sockets[0].getsockname()[1]

    def set(self, mode):
        """Changes the mode. Cuts the connections that the previous mode has broken."""
        self._do(self._set(mode))

    def close(self):
        self._do(self._close())
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join()
        self.loop.close()

    def _do(self, coroutine):
        return asyncio.run_coroutine_threadsafe(coroutine, self.loop).result()

    async def _set(self, mode):
        if mode == self.CUT or self.mode in (self.HALF_OPEN, self.CORRUPT):
            self._abort_all()
        self.mode = mode
        if mode == self.STALL:
            self.passing.clear()
        else:
            self.passing.set()

    async def _close(self):
        self.server.close()
        self.mode = self.CUT
        self._abort_all()
        self.passing.set()
        others = asyncio.all_tasks() - {asyncio.current_task()}
        await asyncio.gather(*others, return_exceptions=True)

    def _abort_all(self):
        for writer in list(self.writers):
            abort(writer)

    async def _accept(self, reader, writer):
        if self.mode == self.CUT:
            abort(writer)
            return
        try:
            far_reader, far_writer = await asyncio.open_connection("127.0.0.1", self.target)
        except OSError:
            abort(writer)
            return
        pair = {writer, far_writer}
        self.writers |= pair
        try:
            await asyncio.gather(self._pump(reader, far_writer), self._pump(far_reader, writer))
        finally:
            for one in pair:
                abort(one)
            self.writers -= pair

    async def _pump(self, reader, writer):
        """Forwards until one side closes. Then closes the other side, unless the connection is to be half open."""
        try:
            while block := await reader.read(BLOCK):
                await self._forward(block, writer)
            if self.mode != self.HALF_OPEN:
                writer.close()
        except OSError:
            if self.mode != self.HALF_OPEN:
                abort(writer)

    async def _forward(self, block, writer):
        await self.passing.wait()
        if self.mode == self.HALF_OPEN:
            return  # discarded without a sign to the sender
        if self.mode == self.DELAY:
            await asyncio.sleep(self.random.uniform(0, 0.05))
        if self.mode == self.CORRUPT and self.random.random() < 0.2:
            block = self._changed(block)
        writer.write(block)
        await writer.drain()

    def _changed(self, block):
        changed = bytearray(block)
        changed[self.random.randrange(len(changed))] ^= 1 << self.random.randrange(8)
        return bytes(changed)


def abort(writer):
    """Cuts a connection and drops its data."""
    connection = writer.get_extra_info("socket")
    if connection is not None and connection.fileno() >= 0:
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    writer.transport.abort()
