#!/usr/bin/env python3
"""What a test engineer would write instead of kelp: the same framing, routing and answers.

Usage: asyncio-relay.py local|tcp|pty WHERE kept|per-request PEER
"""
import asyncio
import os
import sys

TAIL = b"\r\n"


class Module:
    """Takes the requests that begin with one of its prefixes, one exchange at a time."""

    def __init__(self, peer, kept, *prefixes):
        self.peer, self.kept, self.prefixes = peer, kept, prefixes
        self.lock = asyncio.Lock()
        self.connection = None

    async def exchange(self, request):
        async with self.lock:
            if self.connection is None:
                self.connection = await asyncio.open_unix_connection(self.peer)
            reader, writer = self.connection
            writer.write(request)
            answer = await reader.read(65535)
            if not self.kept or not answer:
                writer.close()
                self.connection = None
            return answer or b"Normal error"


async def serve(modules, reader, writer):
    try:
        while True:
            request = (await reader.readuntil(TAIL))[: -len(TAIL)]
            if not request:
                continue
            upper = request.upper()
            module = next((m for m in modules if upper.startswith(m.prefixes)), None)
            if module is None:
                writer.write(request + b"\r\nUnsupport command\r\nERROR\r\n")
            else:
                writer.write(await module.exchange(request))
            await writer.drain()
    except (asyncio.IncompleteReadError, ConnectionError):
        writer.close()


async def serve_line(client, path):
    loop = asyncio.get_running_loop()
    line = os.open(path, os.O_RDWR | os.O_NOCTTY)
    reader = asyncio.StreamReader()
    await loop.connect_read_pipe(
        lambda: asyncio.StreamReaderProtocol(reader), os.fdopen(line, "rb", 0)
    )
    transport, protocol = await loop.connect_write_pipe(
        asyncio.streams.FlowControlMixin, os.fdopen(os.dup(line), "wb", 0)
    )
    await client(reader, asyncio.StreamWriter(transport, protocol, None, loop))


async def main(transport, where, mode, peer):
    kept = mode == "kept"
    modules = [
        Module(peer, kept, b"AT+WIFI", b"AT+BT", b"AT+GNSS"),
        Module(peer, kept, b"AT+C", b"AT+G", b"ATD", b"ATI"),
        Module(peer, kept, b"AT+PCBA"),
        Module(peer, kept, b"AT+FM"),
    ]

    async def client(reader, writer):
        await serve(modules, reader, writer)

    if transport == "pty":
        await serve_line(client, where)
    elif transport == "tcp":
        server = await asyncio.start_server(client, "127.0.0.1", int(where))
        await server.serve_forever()
    else:
        server = await asyncio.start_unix_server(client, where)
        await server.serve_forever()


asyncio.run(main(*sys.argv[1:]))
