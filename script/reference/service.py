"""What a running broker says of its services, by introspection."""
import json
import pathlib
import subprocess
import tempfile

from .descriptions import ROOT, Problem

MODULE = "OXVideoDevice"
STATUS = "OXVideoStatus"
STREAM = "OXVideoStream"


class Broker:
    """A broker with one camera module, for as long as it is needed."""

    def __init__(self, programs, library, camera):
        self.programs = programs
        self.folder = tempfile.TemporaryDirectory()
        folder = pathlib.Path(self.folder.name)
        preferences = (ROOT / "examples/preferences/VideoInput.xml").read_text()
        (folder / "VideoInput.xml").write_text(
            preferences.replace('value="SimulatorCam"', f'value="{camera}"'))
        self.address = f"unix:{folder}/socket"
        self.process = subprocess.Popen(
            [programs / "oxbroker", "--load", library, "--preferences", folder,
             "--listen", self.address, "--log-level", "0"],
            stdout=subprocess.PIPE, text=True)

    def __enter__(self):
        if not self.process.stdout.readline().startswith("listening on"):
            raise Problem("the broker does not start")
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()
        self.folder.cleanup()

    def ask(self, *arguments):
        answer = subprocess.run(
            [self.programs / "oxvideo", "--broker", self.address, *arguments],
            check=True, stdout=subprocess.PIPE, text=True).stdout
        return json.loads(answer)


class Service:
    """The publications of both kinds of camera, and the module's own texts."""

    def __init__(self, programs, library):
        with Broker(programs, library, "SimulatorCam") as broker:
            self.methods = broker.ask("methods", MODULE, "--json")
            self.description, self.examples = broker.ask(
                "call", "OXBroker", "getModuleDescription", json.dumps(MODULE))
            self.status_methods = broker.ask("methods", STATUS, "--json")
            self.status_description, _ = broker.ask(
                "call", "OXBroker", "getModuleDescription", json.dumps(STATUS))
            self.stream_methods = broker.ask("methods", STREAM, "--json")
            self.stream_description, _ = broker.ask(
                "call", "OXBroker", "getModuleDescription", json.dumps(STREAM))
        with Broker(programs, library, "FileCam") as broker:
            # A file camera has the device's publications first.
            self.file_methods = broker.ask("methods", MODULE, "--json")[len(self.methods):]
