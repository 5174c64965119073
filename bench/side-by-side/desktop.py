"""A private X display with a window manager and a few windows, for as long as a `with` block."""

import os
import shutil
import subprocess
import sys
import tempfile
import time

GEOMETRY = (1920, 1080)
NEEDED = ("Xvfb", "openbox", "hsetroot", "xterm", "xdpyinfo", "xprop", "ffmpeg")


def fail(reason):
    """Ends the program with one line; status 2 is what wrong usage has as well."""
    print(f"side-by-side: {reason}", file=sys.stderr)
    raise SystemExit(2)


class Desktop:
    """Xvfb at 1920x1080, openbox, no compositor, two terminals full of text. `environment` is what
    a program needs to run on it, `folder` a place for files that goes with the desktop."""

    def __enter__(self):
        missing = [name for name in NEEDED if not shutil.which(name)]
        if missing:
            fail(f"not installed: {' '.join(missing)} (scripts/setup installs what is needed)")
        self._processes = []
        self.folder = tempfile.mkdtemp(prefix="tolvane-side-by-side-")
        try:
            self._start()
        except BaseException:
            self._stop()
            raise
        return self

    def __exit__(self, *_):
        self._stop()

    def _start(self):
        environment = dict(os.environ, HOME=self.folder, XDG_RUNTIME_DIR=self.folder,
                           XDG_SESSION_TYPE="x11", LC_ALL="C.UTF-8")
        for name in ("WAYLAND_DISPLAY", "DBUS_SESSION_BUS_ADDRESS"):
            environment.pop(name, None)
        self.environment = environment
        reading, writing = os.pipe()
        width, height = GEOMETRY
        self.server = self._run(
            ["Xvfb", "-displayfd", str(writing), "-screen", "0", f"{width}x{height}x24",
             "-nolisten", "tcp", "-noreset", "-ac", "+extension", "DAMAGE"], pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as number:
            self.display = ":" + number.readline().strip()
        if self.display == ":":
            fail("Xvfb does not start")
        environment["DISPLAY"] = self.display
        subprocess.run(["hsetroot", "-solid", "#335577"], env=environment, check=True,
                       stdout=subprocess.DEVNULL)
        self._run(["openbox", "--sm-disable"])
        self._until(["xprop", "-root", "_NET_SUPPORTING_WM_CHECK"], "0x")
        script = "i=0; while [ $i -lt 14 ]; do i=$((i+1)); echo \"$i  drwxr-xr-x  2 user user  " \
                 "$((i*7919%9973)) Jan $((i%28+1)) 12:$((i%60)) folder-$((i*31%97))\"; done; " \
                 "printf '\\033]2;ready\\007'; exec sleep 86400"
        self._run(["xterm", "-geometry", "80x24+60+60", "-fa", "DejaVu Sans Mono", "-fs", "9",
                   "-e", "sh", "-c", script])
        self._until(["sh", "-c", "xwininfo -root -tree | grep -c '\"ready\"'"], "1")
        time.sleep(0.5)  # Titles are drawn; nothing says when.

    def _run(self, command, **options):
        log = open(os.path.join(self.folder, os.path.basename(command[0]) + ".log"), "ab")
        process = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL,
                                   stdout=log, stderr=log, **options)
        log.close()
        self._processes.append(process)
        return process

    def _until(self, command, text):
        for _ in range(200):
            answer = subprocess.run(command, env=self.environment, capture_output=True, text=True,
                                    check=False)
            if text in answer.stdout:
                return
            time.sleep(0.05)
        fail(f"the desktop does not come up: {' '.join(command)}")

    def _stop(self):
        for process in reversed(self._processes):
            process.terminate()
        for process in self._processes:
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.folder, ignore_errors=True)
