"""What the structure checks share: how they are called and how they report.

Each check is `{check}.py SOURCE_ROOT`: it prints one line per problem on
standard error, then a one-line summary, and exits 1 when there was a
problem (64 when it was called wrongly).
"""
import pathlib
import sys


def report(failures, summary):
    for failure in failures:
        print(failure, file=sys.stderr)
    print(summary)
    return 1 if failures else 0


def run(main, usage):
    if len(sys.argv) != 2:
        print(usage, file=sys.stderr)
        sys.exit(64)
    sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
