"""The stories as a check of qbc from outside."""
import pathlib
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(TOP / "tools"))
import file_stories  # noqa: E402
import hostile_config_stories  # noqa: E402
import make_resources  # noqa: E402
import profile_stories  # noqa: E402
import registry_stories  # noqa: E402
from station import CheckFailed  # noqa: E402
from station_world import StationWorld  # noqa: E402


class Checks:
    """Takes note of what fails."""

    def __init__(self):
        self.passed, self.failures = 0, []

    def true(self, name, condition, detail=""):
        if condition:
            self.passed += 1
        else:
            self.failures.append("\n".join([name, *(f"       {line}" for line in str(detail).splitlines())]))
        return bool(condition)

    def equal(self, name, actual, expected):
        return self.true(name, actual == expected, f"got      {actual!r}\nexpected {expected!r}")


WANTED = []  # the names of the stories to tell; empty: all


def check_stories(build, scratch, said):
    """Registry and file redirection and what is refused of profiles, told as under Wine."""
    checks = Checks()
    strings = make_resources.read_strings(TOP / "src" / "resources" / "strings.txt")
    world = StationWorld(build, f"{scratch}/machine", strings, checks)
    for module in (registry_stories, hostile_config_stories, file_stories, profile_stories):
        for story in module.ALL:
            if WANTED and story.__name__ not in WANTED:
                continue
            before = checks.passed
            story(world)
            said(f"{story.__name__}: {checks.passed - before} checks")
    world.station.require_sound("C")
    if checks.failures:
        raise CheckFailed(f"{len(checks.failures)} failed\n     " + "\n     ".join(checks.failures))
