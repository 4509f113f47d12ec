"""The stories as scenarios of QBC.exe under Wine."""
import functools

import file_stories
import hostile_config_stories
import profile_stories
import registry_stories
from wine_world import WineWorld


@functools.cache
def _world_of(scenarios_world):
    return WineWorld(scenarios_world.prefix, scenarios_world.build, scenarios_world.strings, scenarios_world.checks)


def _scenario(story):
    def scenario(world):
        story(_world_of(world))
    scenario.__name__ = story.__name__
    return scenario


ALL = [_scenario(story) for module in (registry_stories, hostile_config_stories, file_stories, profile_stories) for story in module.ALL]
