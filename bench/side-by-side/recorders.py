"""The recorders: how each is started, what it leaves, and which updates its recording holds.

`command` is the argument list, `output` the file or folder that grows. `readings` gives one tuple
for each recorded frame: (number,) or, for the pointer's area, (x, y) of what is not flat in it;
None for a frame that cannot be read."""

import glob
import os
import subprocess

from desktop import GEOMETRY

SIZE = "{}x{}".format(*GEOMETRY)
COUNTER_CELLS = 20


def number_of_cells(cells):
    """The counter's number from its cells (True is white); None where they are no counter."""
    number = sum(1 << (15 - bit) for bit in range(16) if cells[2 + bit])
    sound = (cells[0], cells[1], cells[18], cells[19]) == (
        True, False, bin(number).count("1") % 2 == 1, True)
    return (number,) if sound else None


def corner_of_spot(picture, width):
    """Left and top of what differs from the flat colour of a grey picture's last row."""
    flat = picture[-1:]
    left, top = width, None
    empty_row = flat * width
    for y in range(len(picture) // width):
        row = picture[y * width:(y + 1) * width]
        if row != empty_row:
            top = y if top is None else top
            left = min(left, width - len(row.lstrip(flat)))
    return None if top is None else (left, top)


class Recorder:
    name = ""
    shows_pointer = True
    has_readings = True
    finishes = True  # SIGINT ends it with a finished recording.

    def __init__(self, programs):
        self.programs = programs

    def command(self, display, folder):
        raise NotImplementedError

    def output(self, folder):
        return folder

    def is_there(self):
        return True

    def readings(self, folder, kind, place):
        raise NotImplementedError

    def _program_readings(self, path, kind, place):
        reader = os.path.join(self.programs, "tolvane-bench-readings")
        answer = subprocess.run([reader, path, kind, *map(str, place)], capture_output=True,
                                text=True, check=True)
        return [tuple(map(int, line.split())) if line != "-" else None
                for line in answer.stdout.splitlines()]


class Tolvane(Recorder):
    name = "tolvane"

    def is_there(self):
        return os.access(os.path.join(self.programs, "tolvane"), os.X_OK)

    def command(self, display, folder):
        return [os.path.join(self.programs, "tolvane"), "record", "--geometry", SIZE + "+0+0",
                "--rate", "30", "--codec", "lzo", "--movies-folder", folder]

    def readings(self, folder, kind, place):
        indexes = glob.glob(os.path.join(glob.escape(folder), "**", "*.index"), recursive=True)
        if len(indexes) != 1:
            raise RuntimeError(f"tolvane left {len(indexes)} recordings")
        return self._program_readings(indexes[0].removesuffix(".index"), kind, place)


class Floor(Recorder):
    name = "floor"
    shows_pointer = False

    def command(self, display, folder):
        return [os.path.join(self.programs, "tolvane-bench-floor"), self.output(folder)]

    def output(self, folder):
        return os.path.join(folder, "recording.floor")

    def readings(self, folder, kind, place):
        return self._program_readings(self.output(folder), kind, place)


class Ffmpeg(Recorder):
    suffix = ".mkv"
    codec = ()

    def command(self, display, folder):
        return ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "x11grab", "-framerate",
                "30", "-video_size", SIZE, "-draw_mouse", "1", "-i", display, *self.codec,
                self.output(folder)]

    def output(self, folder):
        return os.path.join(folder, "recording" + self.suffix)

    def readings(self, folder, kind, place):
        x, y, width, height = place
        if kind == "counter":
            area = (width * COUNTER_CELLS, height)
        else:
            area = (width, height)
        crop = f"crop={area[0]}:{area[1]}:{x}:{y},format=gray"
        command = ["ffmpeg", "-nostdin", "-loglevel", "error", "-i", self.output(folder), "-vf",
                   crop, "-fps_mode", "passthrough", "-f", "rawvideo", "-"]
        readings = []
        with subprocess.Popen(command, stdout=subprocess.PIPE) as decoder:
            while len(picture := decoder.stdout.read(area[0] * area[1])) == area[0] * area[1]:
                if kind == "counter":
                    middle = (height // 2) * area[0] + width // 2
                    readings.append(number_of_cells(
                        [picture[middle + cell * width] > 127 for cell in range(COUNTER_CELLS)]))
                else:
                    readings.append(corner_of_spot(picture, width))
        return readings


class X264Rgb(Ffmpeg):
    name = "x264rgb"
    codec = ("-c:v", "libx264rgb", "-preset", "ultrafast", "-qp", "0")


class QtRle(Ffmpeg):
    name = "qtrle"
    suffix = ".mov"
    codec = ("-c:v", "qtrle", "-g", "300")


class QtRleAsItComes(Ffmpeg):
    """With ffmpeg's own distance of key frames, which is 12."""

    name = "qtrle12"
    suffix = ".mov"
    codec = ("-c:v", "qtrle")


class Ffv1(Ffmpeg):
    name = "ffv1"
    codec = ("-c:v", "ffv1")


class Zmbv(Ffmpeg):
    name = "zmbv"
    suffix = ".avi"
    codec = ("-c:v", "zmbv")


class RecordMyDesktop(Recorder):
    """Its capture alone: what it keeps until it encodes after the stop. The cache is its own
    format, so it is not asked which updates it holds."""

    name = "recordmydesktop"
    has_readings = False
    finishes = False

    def command(self, display, folder):
        width, height = map(str, GEOMETRY)
        return ["recordmydesktop", "--display", display, "--width", width, "--height", height,
                "--fps", "30", "--no-sound", "--no-frame", "--workdir", folder,
                "--output", os.path.join(folder, "recording.ogv")]


ALL = (Tolvane, Floor, X264Rgb, QtRle, QtRleAsItComes, Ffv1, Zmbv, RecordMyDesktop)
