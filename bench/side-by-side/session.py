"""The two programs of a run: the one that changes the screen and the one that records it."""

import os
import shutil
import signal
import subprocess
import time

from desktop import fail
from measure import family, peak_kib, tree_bytes


class Painter:
    """A running tolvane-bench-content."""

    def __init__(self, desktop, programs, name, seconds, phase):
        self.log = os.path.join(desktop.folder, "content.log")
        self._process = subprocess.Popen(
            [os.path.join(programs, "tolvane-bench-content"), name, "--seconds", str(seconds),
             "--phase", str(phase), "--log", self.log], env=desktop.environment, text=True,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        words = self._process.stdout.readline().split()
        if words[:1] != ["ready"]:
            fail(f"the content {name} does not start")
        self.kind, self.place = words[1], [int(word) for word in words[2:]]

    def start(self):
        self._process.stdin.write("start\n")
        self._process.stdin.flush()

    def wait_done(self):
        if self._process.stdout.readline() != "done\n":
            fail("the content ended early")

    def close(self):
        self._process.stdin.close()
        self._process.wait()
        self._process.stdout.close()

    def steps(self):
        """(number, seconds before, seconds after, further words) of every update."""
        with open(self.log, encoding="ascii") as log:
            rows = [line.split() for line in log]
        return [(int(row[0]), int(row[1]) / 1e9, int(row[2]) / 1e9, row[3:]) for row in rows]


class Recording:
    """A recorder at work in a folder of its own."""

    def __init__(self, recorder, desktop):
        self.recorder = recorder
        self.folder = os.path.join(desktop.folder, "recording")
        os.mkdir(self.folder)
        self.output = recorder.output(self.folder)
        self._log = open(os.path.join(desktop.folder, "recorder.log"), "wb")
        self.started = time.monotonic()
        self.process = subprocess.Popen(
            recorder.command(desktop.display, self.folder), env=desktop.environment,
            stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log, start_new_session=True)

    def pids(self):
        return family(self.process.pid)

    def check(self):
        if self.process.poll() is not None:
            self._log.close()
            with open(self._log.name, encoding="utf-8", errors="replace") as log:
                fail(f"{self.recorder.name} ended with {self.process.returncode}: {log.read()[-500:]}")

    def stop(self):
        """SIGINT until ended. Returns the milliseconds, the peak in MiB, and the bytes left."""
        peak = peak_kib(self.pids())
        asked = time.monotonic()
        bytes_left = tree_bytes(self.output)
        if self.recorder.finishes:
            self.process.send_signal(signal.SIGINT)
            while self.process.poll() is None:
                peak = max(peak, peak_kib([self.process.pid]))
                if time.monotonic() > asked + 60:
                    fail(f"{self.recorder.name} does not stop")
                time.sleep(0.001)
            took = (time.monotonic() - asked) * 1000
            bytes_left = tree_bytes(self.output)
        else:
            took = None
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
        self._log.close()
        return took, peak / 1024, bytes_left

    def remove(self):
        shutil.rmtree(self.folder, ignore_errors=True)
