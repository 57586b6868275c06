#!/usr/bin/env python3
"""Reads frames in place from shared memory, and shows that they are those of getImageRemote.

    oxbroker --load libvideoinput.so --listen unix:/tmp/ox.sock
    shared_frames.py /tmp/ox.sock [FRAMES]
"""
import itertools, mmap, socket, sys
import msgpack  # Debian: python3-msgpack

numbers, descriptors = itertools.count(), []
unpacker = msgpack.Unpacker(max_buffer_size=1 << 25)
broker = socket.socket(socket.AF_UNIX)
broker.connect(sys.argv[1])

def call(method, *arguments):
    broker.sendall(msgpack.packb([0, next(numbers), method, arguments]))
    while True:
        for _, _, error, result in unpacker:
            if error:
                sys.exit(error["text"])
            return result
        data, sent, _, _ = socket.recv_fds(broker, 1 << 20, 1)
        descriptors.extend(sent)
        unpacker.feed(data or sys.exit("the broker has ended"))

K_VGA, K_RGB, EACH_FRAME, DEFAULT_SLOTS = 2, 11, 0, 0
stream, size, slots, first, stride = call(
    "OXVideoStream.openShared", "shared_frames", 0, K_VGA, K_RGB, EACH_FRAME, DEFAULT_SLOTS)
segment = memoryview(mmap.mmap(descriptors[0], size, prot=mmap.PROT_READ))
equal = 0
while equal < int(sys.argv[2] if len(sys.argv) > 2 else 1):
    frame = call("OXVideoStream.nextShared", stream, 5000) or sys.exit("no frame within 5 s")
    slot, offset, length, generation = frame[6]
    copied = call("OXVideoDevice.getImageRemote", stream)
    if frame[4:6] == copied[4:6]:  # their stamps: the device may have had a newer one meanwhile
        assert segment[offset:offset + length] == copied[6], "the bytes differ"
        equal += 1
        print(f"{frame[0]}x{frame[1]}, {length} bytes in slot {slot}: as by getImageRemote")
    call("OXVideoStream.release", stream, slot, generation)
call("OXVideoStream.close", stream)
