"""Counts checks: one line each, "N passed, N failed" at the end."""
import sys


class Checks:
    def __init__(self, stream=None):
        self.passed = self.failed = 0
        self.stream = stream or sys.stdout

    def true(self, name, condition, detail=""):
        if condition:
            self.passed += 1
            print(f"ok      {name}", file=self.stream, flush=True)
        else:
            self.failed += 1
            lines = "".join(f"\n        {line}" for line in str(detail).splitlines())
            print(f"FAILED  {name}{lines}", file=self.stream, flush=True)
        return bool(condition)

    def add(self, others):
        """Takes over the sums of other checks."""
        self.passed += others.passed
        self.failed += others.failed

    def equal(self, name, actual, expected):
        return self.true(name, actual == expected, f"got      {actual!r}\nexpected {expected!r}")

    def finish(self):
        """Prints the sum; the exit code: 0 only when there were checks and all passed."""
        print(f"{self.passed} passed, {self.failed} failed")
        return 0 if self.passed and not self.failed else 1
