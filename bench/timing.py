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
