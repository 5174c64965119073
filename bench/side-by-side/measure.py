"""What a family of processes costs, from /proc and the CPU clocks of the kernel."""

import os
import time


def cpu_seconds(pid):
    """CPU time of a process with all its threads, those that ended too, in nanosecond steps.
    The number is the kernel's clock id of another process (clock_getcpuclockid in C)."""
    try:
        return time.clock_gettime(((~pid) << 3) | 2)
    except OSError:
        return 0.0


def family(pid):
    """The process and its descendants."""
    found = [pid]
    for parent in found:
        try:
            for task in os.listdir(f"/proc/{parent}/task"):
                with open(f"/proc/{parent}/task/{task}/children", encoding="ascii") as children:
                    found += [int(child) for child in children.read().split()]
        except OSError:
            pass
    return found


def _status(path, key):
    try:
        with open(path, encoding="ascii", errors="replace") as status:
            for line in status:
                if line.startswith(key):
                    return int(line.split()[1])
    except OSError:
        pass
    return 0


def wakeups(pids):
    """How often their threads went to sleep of their own will."""
    total = 0
    for pid in pids:
        try:
            tasks = os.listdir(f"/proc/{pid}/task")
        except OSError:
            continue
        total += sum(_status(f"/proc/{pid}/task/{task}/status", "voluntary_ctxt_switches")
                     for task in tasks)
    return total


def peak_kib(pids):
    """The sum of their peak resident memory, shared memory included."""
    return sum(_status(f"/proc/{pid}/status", "VmHWM") for pid in pids)


def tree_bytes(path):
    """Bytes of a file, or of all files below a folder."""
    if os.path.isfile(path):
        return os.path.getsize(path)
    total = 0
    for folder, _, names in os.walk(path):
        for name in names:
            try:
                total += os.path.getsize(os.path.join(folder, name))
            except OSError:
                pass
    return total


class Snapshot:
    """Where a recorder and the X server are at one moment."""

    def __init__(self, pids, server, output):
        self.time = time.monotonic()
        self.cpu = sum(cpu_seconds(pid) for pid in pids)
        self.server = cpu_seconds(server)
        self.wakeups = wakeups(pids)
        self.bytes = tree_bytes(output)
