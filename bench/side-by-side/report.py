"""Medians, ratios and targets of a side-by-side run."""

import statistics

CONTENTS = {
    "still": "still desktop, cursor at rest",
    "text": "text scrolling in a terminal",
    "animation": "640x360 animation at 30 fps",
    "motion": "full-screen motion at 30 fps",
    "drag": "dragged window",
    "pointer": "only the pointer moves",
}

# Content, what is measured, its unit, at most, and times which recorder's (none: as it stands).
TARGETS = (
    ("still", "cpu", "", 0.03, "qtrle"),
    ("still", "wakeups", "/s", 10, None),
    ("still", "bytes_after_start", "B/s", 1000, None),
    ("text", "cpu", "", 1.5, "floor"),
    ("text", "cpu", "", 1 / 25, "x264rgb"),
    ("text", "cpu", "", 1, "recordmydesktop"),
    ("text", "bytes", "", 0.65, "qtrle"),
    ("text", "missed", "", 0, None),
    ("text", "peak_mib", "MiB", 80, None),
    ("animation", "cpu", "", 1.5, "floor"),
    ("animation", "cpu", "", 1 / 10, "x264rgb"),
    ("animation", "bytes", "", 0.95, "qtrle"),
    ("animation", "missed", "", 0.005, None),
    ("motion", "cpu", "", 1.3, "floor"),
    ("motion", "cpu", "", 0.85, "x264rgb"),
    ("motion", "bytes_per_frame", "", 1.05, "floor"),
    ("motion", "missed", "", 0.01, None),
    ("motion", "peak_mib", "MiB", 130, None),
    ("drag", "cpu", "", 1.5, "floor"),
    ("drag", "bytes", "", 0.35, "qtrle12"),
    ("drag", "missed", "", 0, None),
    ("pointer", "cpu", "", 0.02, None),
    ("pointer", "bytes_after_start", "B/s", 60000, None),
    ("pointer", "missed", "", 0, None),
    ("clock", "first_frame_ms", "", 1, "x264rgb"),
    ("still", "stop_ms", "ms", 50, None),
)

NAMES = {
    "cpu": "CPU", "wakeups": "wake-ups", "bytes_after_start": "bytes after the first frame",
    "bytes": "bytes", "bytes_per_frame": "bytes a frame", "missed": "updates missed",
    "peak_mib": "peak memory", "first_frame_ms": "command to first frame",
    "stop_ms": "stop to finished",
}

# What the tables show: key, heading, format.
COLUMNS = (
    ("cpu", "CPU s/s", "{:.4f}"), ("recorder_cpu", "recorder", "{:.4f}"),
    ("server_cpu", "X server +", "{:.4f}"), ("kb", "kB/s", "{:.1f}"),
    ("kb_after_start", "kB/s after start", "{:.1f}"), ("frames", "frames/s", "{:.1f}"),
    ("missed_percent", "missed %", "{:.2f}"), ("peak_mib", "peak MiB", "{:.0f}"),
    ("wakeups", "wake-ups/s", "{:.0f}"), ("stop_ms", "stop ms", "{:.0f}"),
)


def worst_is_told(key):
    """Missed updates are told for the worst run: "none" does not mean "none in most runs"."""
    return key in ("missed", "missed_percent")


def summarise(runs):
    """{content: {recorder: {key: median, and of missed updates the worst}}} of all runs, the X
    server's own work for each content without a recorder taken off."""
    idle = {}
    for content in {run["content"] for run in runs}:
        own = [run["server_total"] for run in runs
               if run["content"] == content and run["recorder"] == "none"]
        idle[content] = statistics.median(own) if own else 0.0
    groups = {}
    for run in runs:
        if run["recorder"] != "none" and "recorder_cpu" in run:
            run["server_cpu"] = run["server_total"] - idle[run["content"]]
            run["cpu"] = run["recorder_cpu"] + run["server_cpu"]
        groups.setdefault(run["content"], {}).setdefault(run["recorder"], []).append(run)
    return {content: {recorder: _summary(group) for recorder, group in recorders.items()}
            for content, recorders in groups.items()}


def _summary(group):
    summary = {"runs": len(group)}
    for key in {key for run in group for key in run}:
        values = [run[key] for run in group if isinstance(run.get(key), (int, float))]
        if values:
            summary[key] = max(values) if worst_is_told(key) else statistics.median(values)
            summary[key + "_range"] = [min(values), max(values)]
    return summary


def table(content, recorders):
    """One content's absolute figures as a table in Markdown."""
    lines = [f"### {CONTENTS[content]}", "",
             "| recorder | runs | " + " | ".join(head for _, head, _ in COLUMNS) + " |",
             "|---|" + "---:|" * (len(COLUMNS) + 1)]
    for name, summary in recorders.items():
        if name == "none":
            continue
        cells = [form.format(summary[key]) if key in summary else "-" for key, _, form in COLUMNS]
        lines.append(f"| {name} | {summary['runs']} | " + " | ".join(cells) + " |")
    return lines + [""]


def first_frames(recorders):
    lines = ["### from the command to the first frame", "",
             "| recorder | runs | ms (4 ms steps) | lowest | highest |", "|---|---:|---:|---:|---:|"]
    for name, summary in recorders.items():
        if "first_frame_ms" in summary:
            low, high = summary["first_frame_ms_range"]
            lines.append(f"| {name} | {summary['runs']} | {summary['first_frame_ms']:.0f} "
                         f"| {low:.0f} | {high:.0f} |")
    return lines + [""]


def targets(summaries):
    """Each target that can be judged from what was run, as a table."""
    lines = ["### targets", "", "| content | measured | target | Tolvane | holds |",
             "|---|---|---|---:|---|"]
    for content, key, unit, limit, peer in TARGETS:
        recorders = summaries.get(content, {})
        own = recorders.get("tolvane", {}).get(key)
        base = recorders.get(peer, {}).get(key) if peer else 1
        if own is None or base is None:
            value, holds = "-", "not measured"
        else:
            ratio = own / base if base > 0 else float("inf")
            value = f"{ratio:.3g} {unit}".strip() if key != "missed" else f"{own:.2%}"
            holds = "yes" if ratio <= limit else "**no**"
        aim = f"at most {limit:.3g}" + (f" x {peer}" if peer else f" {unit}".rstrip())
        if key == "missed":
            aim = "none" if limit == 0 else f"at most {limit:.1%}"
        lines.append(f"| {content} | {NAMES[key]} | {aim} | {value} | {holds} |")
    return lines + [""]


def markdown(summaries, about):
    lines = [about, ""]
    for content in CONTENTS:
        if content in summaries:
            lines += table(content, summaries[content])
    if "clock" in summaries:
        lines += first_frames(summaries["clock"])
    return "\n".join(lines + targets(summaries))
