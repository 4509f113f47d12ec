"""The stories, as a check of qbc from outside and as scenarios of QBC.exe under Wine."""
import pathlib
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path += [str(TOP / "tools"), str(TOP / "tests" / "wine")]
import file_stories  # noqa: E402
import hostile_config_stories  # noqa: E402
import make_resources  # noqa: E402
import profile_stories  # noqa: E402
import registry_stories  # noqa: E402
from checks import Checks  # noqa: E402

STRINGS = make_resources.read_strings(TOP / "src" / "resources" / "strings.txt")
STORIES = {story.__name__: story for module in (registry_stories, hostile_config_stories, file_stories, profile_stories)
           for story in module.ALL}


def on_station(build, folder, names, said):
    """What failed on a workstation, as texts."""
    from station_world import StationWorld
    checks = Checks()
    checks.tell = lambda _: None
    world = StationWorld(build, folder, STRINGS, checks)
    for name in names or STORIES:
        before = checks.passed
        STORIES[name](world)
        said(f"{name}: {checks.passed - before} checks")
    world.station.require_sound()
    return checks.failures
