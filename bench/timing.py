"""Process timing shared by the benchmarks: wall times of whole commands, taken in turns."""
import os
import statistics
import subprocess
import time


class CommandFailed(Exception):
    pass


def run_checked(argv):
    """Runs argv with its output discarded, so terminal speed is no part of anyone's time."""
    result = subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    if result.returncode != 0:
        status = "signal %d" % -result.returncode if result.returncode < 0 else "status %d" % result.returncode
        last = result.stderr.decode(errors="replace").strip().split("\n")[-1]
        raise CommandFailed("%s %s: %s, %s" % (os.path.basename(argv[0]), argv[1], status, last))


def wall_ms(argv):
    start = time.perf_counter()
    run_checked(argv)
    return (time.perf_counter() - start) * 1000.0


def medians(commands, runs):
    """Median wall ms of each command. One unmeasured run each warms the page cache and the dynamic
    loader; after that the commands take turns, so a burst of load elsewhere hits all of them."""
    for argv in commands:
        run_checked(argv)
    samples = [[] for _ in commands]
    for _ in range(runs):
        for argv, times in zip(commands, samples):
            times.append(wall_ms(argv))
    return [statistics.median(times) for times in samples]


class Table:
    """Rows of measures with our figure, the peer's, their ratio and the goal, printed aligned;
    a comparison whose command failed is a row that says so, with the reason below the table."""

    def __init__(self):
        self.rows = []
        self.failures = []

    def add(self, measure, ours, peer=None, goal_ratio=None, goal_ms=None):
        ratio = ours / peer if peer else None
        if goal_ratio is not None:
            goal, met = "<= %gx" % goal_ratio, ratio <= goal_ratio
        elif goal_ms is not None:
            goal, met = "< %g ms" % goal_ms, ours < goal_ms
        else:
            goal, met = "-", None
        self.rows.append((
            measure,
            "%.2f" % ours,
            "-" if peer is None else "%.2f" % peer,
            "-" if ratio is None else "%.3f" % ratio,
            goal,
            "-" if met is None else ("met" if met else "MISSED"),
        ))

    def fail(self, measures, reason):
        self.failures.append(reason)
        for measure in measures:
            self.rows.append((measure, "-", "-", "-", "-", "FAILED [%d]" % len(self.failures)))

    def print(self):
        header = ("measure", "ours (ms)", "peer (ms)", "ratio", "goal", "result")
        widths = [max(len(row[i]) for row in self.rows + [header]) for i in range(len(header))]
        line = lambda row: "  ".join(
            cell.ljust(w) if i == 0 else cell.rjust(w) for i, (cell, w) in enumerate(zip(row, widths)))
        print(line(header))
        print("  ".join("-" * w for w in widths))
        for row in self.rows:
            print(line(row))
        for number, reason in enumerate(self.failures, 1):
            print("[%d] %s" % (number, reason))
