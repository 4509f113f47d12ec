"""Counts checks: one line each, "N passed, N failed" at the end."""


class Checks:
    def __init__(self):
        self.passed = self.failed = 0

    def true(self, name, condition, detail=""):
        if condition:
            self.passed += 1
            print(f"ok      {name}", flush=True)
        else:
            self.failed += 1
            print(f"FAILED  {name}" + "".join(f"\n        {line}" for line in str(detail).splitlines()), flush=True)
        return bool(condition)

    def equal(self, name, actual, expected):
        return self.true(name, actual == expected, f"got      {actual!r}\nexpected {expected!r}")

    def finish(self):
        """Prints the sum; the exit code: 0 only when there were checks and all passed."""
        print(f"{self.passed} passed, {self.failed} failed")
        return 0 if self.passed and not self.failed else 1
