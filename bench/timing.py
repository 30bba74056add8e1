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
    """Rows of measures, printed aligned: the first and last columns to the left, the rest to the
    right. A comparison whose command failed is a row that says so, with the reason below."""
    HEADER = ()

    def __init__(self):
        self.rows = []
        self.failures = []

    def attempt(self, measures, fn):
        """Runs one comparison; a command that fails fails its rows and the rest still run."""
        try:
            fn()
        except CommandFailed as failure:
            self.fail(measures, str(failure))

    def fail(self, measures, reason):
        self.failures.append(reason)
        for measure in measures:
            self.rows.append((measure,) + ("-",) * (len(self.HEADER) - 2) + ("FAILED [%d]" % len(self.failures),))

    def print(self):
        last = len(self.HEADER) - 1
        widths = [max(len(row[i]) for row in self.rows + [self.HEADER]) for i in range(len(self.HEADER))]
        line = lambda row: "  ".join(
            cell.ljust(w) if i in (0, last) else cell.rjust(w) for i, (cell, w) in enumerate(zip(row, widths))).rstrip()
        print(line(self.HEADER))
        print("  ".join("-" * w for w in widths))
        for row in self.rows:
            print(line(row))
        for number, reason in enumerate(self.failures, 1):
            print("[%d] %s" % (number, reason))


class GoalTable(Table):
    """Our figure, the peer's, their ratio, and whether the goal (a ratio or a time) is met."""
    HEADER = ("measure", "ours (ms)", "peer (ms)", "ratio", "goal", "result")

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
