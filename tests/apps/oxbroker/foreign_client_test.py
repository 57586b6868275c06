"""A MessagePack-RPC client that was not written here calls the broker: Debian's python3-pynvim,
which sends method names as binaries. Given the broker's program and the library of the cameras, it
also pushes an image into a camera and reads it back.

    foreign_client_test.py OXBROKER [LIBVIDEOINPUT]
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

from pynvim.msgpack_rpc import socket_session, tcp_session

PROGRAM = sys.argv[1] if len(sys.argv) > 1 else ""
LIBRARY = sys.argv[2] if len(sys.argv) > 2 else ""

PREFERENCES = """<preferences module="VideoInput">
  <entry name="source" description="where images come from" value="SimulatorCam"/>
</preferences>
"""
K_QVGA = 1
K_RGB = 11
WIDTH, HEIGHT = 320, 240


class Broker:
    """The daemon as a child, on a TCP port and a socket file of its own."""

    def __enter__(self):
        self._directory = tempfile.TemporaryDirectory()
        folder = pathlib.Path(self._directory.name)
        (folder / "VideoInput.xml").write_text(PREFERENCES)
        self.path = str(folder / "socket")
        command = [PROGRAM, "--preferences", str(folder), "--listen", "127.0.0.1:0",
                   "--listen", "unix:" + self.path, "--log-level", "2"]
        if LIBRARY:
            command += ["--load", LIBRARY]
        self._process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        self.port = int(self._process.stdout.readline().rpartition(":")[2])
        self._process.stdout.readline()
        return self

    def __exit__(self, *_):
        self._process.terminate()
        self.status = self._process.wait(timeout=60)
        self._process.stdout.close()
        self._directory.cleanup()


def opened(session):
    """Lets the session raise an error answer; which type is the user's choice."""
    session.error_wrapper = LookupError
    return session


class ForeignClient(unittest.TestCase):
    def test_calls_on_both_kinds_of_socket(self):
        with Broker() as broker:
            for session in (opened(tcp_session("127.0.0.1", broker.port)),
                            opened(socket_session(broker.path))):
                modules = session.request("OXBroker.getModuleList")
                self.assertEqual(modules[:3], ["OXBroker", "OXMemory", "OXPreferences"])
                with self.assertRaises(LookupError) as failure:
                    session.request("OXBroker.getMethodList", "Nobody")
                self.assertIn("Nobody", failure.exception.args[0]["message"])
                self.assertEqual(session.request("OXBroker.getModuleList"), modules)
                session.close()
        self.assertEqual(broker.status, 0)

    @unittest.skipUnless(LIBRARY, "the library of the cameras is not given")
    def test_reads_an_image(self):
        half = bytes([200, 40, 40]) * (WIDTH // 2) + bytes([40, 40, 200]) * (WIDTH // 2)
        with Broker() as broker:
            session = opened(socket_session(broker.path))
            name = session.request("OXVideoDevice.subscribeCamera", "foreign", 0, K_QVGA, K_RGB, 30)
            self.assertTrue(
                session.request("OXVideoDevice.putImage", 0, WIDTH, HEIGHT, half * HEIGHT))
            image = session.request("OXVideoDevice.getImageRemote", name)
            self.assertEqual(image[:4], [WIDTH, HEIGHT, 3, K_RGB])
            self.assertEqual(len(image[6]), WIDTH * HEIGHT * 3)
            for row in (0, HEIGHT - 1):
                left, right = self._pixel(image, 40, row), self._pixel(image, 280, row)
                self.assertGreater(left[0], left[2] + 80, "red on the left")
                self.assertGreater(right[2], right[0] + 80, "blue on the right")
            session.request("OXVideoDevice.unsubscribe", name)
            session.close()
        self.assertEqual(broker.status, 0)

    @staticmethod
    def _pixel(image, x, y):
        start = (y * WIDTH + x) * 3
        return image[6][start:start + 3]


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
