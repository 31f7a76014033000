#!/usr/bin/env python3
"""Times two builds of tarn on the same scripts, paired: each round runs both,
in alternating order, and the figure kept is the median of the rounds' ratios.
On a machine whose speed drifts by tens of percent within minutes, two
medians taken apart differ by more than most changes do; a ratio within a
round sees both sides at the same speed. Each build has a header cache of its
own: two builds sharing one can push each other's saved headers out, and
every run would then read windows.h afresh.

Usage: compare.py ROUNDS INCLUDE_DIR WORK BASE_TARN CHANGED_TARN SCRIPT...
Prints one row per script; exits 1 when the two builds' outputs differ."""
import filecmp
import os
import statistics
import subprocess
import sys
import time


def run(tarn, include, script, out, cache):
    env = dict(os.environ, TARN_CACHE_DIR=cache)
    start = time.perf_counter()
    done = subprocess.run([tarn, '--extended', '-I', include, '-Fo', out, script], env=env,
                          stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    if done.returncode != 0:
        sys.exit('compare.py: %s failed on %s:\n%s' % (tarn, script, done.stderr.decode()))
    return (time.perf_counter() - start) * 1000


def quartiles(values):
    q = statistics.quantiles(values, n=4) if len(values) > 1 else values * 3
    return q[0], q[2]


def main():
    rounds, include, work = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    builds = sys.argv[4:6]
    scripts = sys.argv[6:]
    # Named from their common folder: the 100 MB copies share their scripts' names.
    root = os.path.commonpath([os.path.dirname(os.path.abspath(s)) for s in scripts])
    caches = [os.path.join(work, 'cache-base'), os.path.join(work, 'cache-changed')]
    outs = [os.path.join(work, 'base.res'), os.path.join(work, 'changed.res')]
    for c in caches:
        os.makedirs(c, exist_ok=True)
    print('%-18s %9s %11s %11s %9s %15s' %
          ('script', 'MB', 'base ms', 'changed ms', 'ratio', 'ratio 25-75%'))
    same = True
    for script in scripts:
        # A first run of each fills its header cache and gives the outputs.
        for b in range(2):
            run(builds[b], include, script, outs[b], caches[b])
        if not filecmp.cmp(outs[0], outs[1], shallow=False):
            print('%s: the outputs differ' % script)
            same = False
            continue
        times = ([], [])
        for r in range(rounds):
            for b in ((0, 1) if r % 2 == 0 else (1, 0)):
                times[b].append(run(builds[b], include, script, outs[b], caches[b]))
        ratios = [c / b for b, c in zip(*times)]
        low, high = quartiles(ratios)
        print('%-18s %9.1f %11.1f %11.1f %9.3f %7.3f-%.3f' %
              (os.path.relpath(os.path.abspath(script), root), os.path.getsize(script) / 1e6,
               statistics.median(times[0]), statistics.median(times[1]),
               statistics.median(ratios), low, high))
    sys.exit(0 if same else 1)


if __name__ == '__main__':
    main()
