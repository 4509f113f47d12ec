"""Counts checks: one line each, "N passed, N failed" at the end."""


class Checks:
    def __init__(self):
        self.passed, self.failures = 0, []

    def true(self, name, condition, detail=""):
        lines = "".join(f"\n        {line}" for line in str(detail).splitlines())
        if condition:
            self.passed += 1
        else:
            self.failures.append(name + lines)
        self.tell(f"ok      {name}" if condition else f"FAILED  {name}{lines}")
        return bool(condition)

    def tell(self, line):
        print(line, flush=True)

    def equal(self, name, actual, expected):
        return self.true(name, actual == expected, f"got      {actual!r}\nexpected {expected!r}")

    def finish(self):
        """Prints the sum; the exit code: 0 only when there were checks and all passed."""
        print(f"{self.passed} passed, {len(self.failures)} failed")
        return 0 if self.passed and not self.failures else 1
