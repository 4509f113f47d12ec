"""The profile commands as far as every world can tell them: what is asked for wrongly, and what is refused before a
profile is touched."""
from config_file import ConfigFile
from registry_stories import start_over
from world import LOG

UP, HOME, AUTO = "/RedirectUP", "/RedirectUPDefault", "/AutoRedirectUP"
METRO = ("Please note that redirecting a User Profile may temporarily make some Metro apps unusable. You will have to "
         "log-off and log-in again before you can use those Metro Apps.")
PROFILE_LIST = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList"
NOBODY = "nobody of this name"


def failed(world, number):
    return world.text(137, LOG) + "\n" + world.strings[number]


def words_that_are_no_switches(world):
    start_over(world)
    for words, usage in (((HOME, "defaultprofile"), 110), ((HOME, "PublicProfile"), 110),
                         ((UP, "DefaultProfile", "/loc:C:\\Nowhere"), 112),
                         ((AUTO, "/loc:C:\\RedirectDefaultAndPublicProfile"), 114)):
        world.expect(" ".join(words), words, "\nInvalid parameters\n" + world.strings[usage], 1)


def nobodys_profile(world):
    start_over(world)
    ConfigFile(world).put()
    unknown = f"#ERROR: Failed to obtain User Profile Information. User: {NOBODY}"
    run = world.run(UP, NOBODY, "/loc:C:\\Nowhere")
    world.checks.equal("a user whom nobody knows", (run.text.replace(METRO, "").lstrip("\n"), run.code, run.entries),
                       (failed(world, 146), 1, [unknown, world.strings[146]]))
    world.expect("nor is one to bring home", (HOME, NOBODY), failed(world, 146), 1, [unknown, world.strings[146]])
    world.checks.equal("no folder was made", world.names("C:\\Nowhere"), None)


def new_profiles_are_where_they_were(world):
    start_over(world)
    config = ConfigFile(world)
    config.put()
    off = world.strings[161]
    world.expect("off", (AUTO,), off, 0)
    world.expect("what is off is not removed", (AUTO, "/d"), off, 1, ["#ERROR: New user profiles are not redirected."])
    world.expect("a volume", (AUTO, "/loc:" + world.volume()), "AutoRedirectNewUserProfile cannot be done on volume.", 0)
    run = world.run(AUTO, "/loc:relative")
    world.checks.equal("a relative path", (run.text, run.code, run.entries[-1:]), (failed(world, 150), 1, [world.strings[150]]))
    config.matches("nothing of this is noted")
    on = ConfigFile(world, profile_status="1")
    on.put()
    world.expect("on already", (AUTO, "/loc:C:\\Nowhere"), world.strings[172], 1,
                 ["#ERROR: New user profiles are created in ..."])
    world.checks.equal("no folder was made for them", world.names("C:\\Nowhere"), None)
    start_over(world)


def annas_profile(world):
    """There and home again; in a world that keeps no descriptors it must refuse, and leave everything in its place."""
    start_over(world)
    ConfigFile(world).put()
    home, there, letter = "C:\\Users\\anna", "C:\\Profiles kept", "\\Documents\\letter.txt"
    if world.names(home) is None:
        world.set_value(PROFILE_LIST + "\\S-1-5-21-1004336348-1177238915-682003330-1001", "ProfileImagePath", home)
    world.write(home + letter, b"Dear Jan")
    run = world.run(UP, "ANNA", "/loc:" + there)
    if not world.keeps_descriptors:
        said = run.text.replace(METRO, "").lstrip("\n")
        no_security = f"#ERROR: Unable to give the folder {there} the access rights of C:\\Users. Request not supported."
        world.checks.equal("refused", (said, run.code, run.entries), (failed(world, 146), 1, [no_security, world.strings[146]]))
        world.checks.equal("nothing has changed", (world.read(home + letter), world.names(there)), (b"Dear Jan", None))
        world.expect("nobody is listed", (UP,), "", 0)
        return
    world.checks.equal("moved", (run.text.endswith(world.strings[138]), run.code, run.entries[-1]),
                       (True, 0, world.strings[138]))
    world.checks.equal("it is at its new place", (world.read(there + "\\anna" + letter), world.names(home)), (b"Dear Jan", []))
    world.expect("listed", (UP,), f"User   Profile folder\n\nanna   {there}\\anna\n", 0)
    run = world.run(HOME, "anna")
    world.checks.equal("home again", (run.code, run.entries[-1], world.read(home + letter), world.names(there)),
                       (0, world.strings[138], b"Dear Jan", []))
    world.expect("nobody is listed", (UP,), "", 0)


ALL = [words_that_are_no_switches, nobodys_profile, annas_profile,
       new_profiles_are_where_they_were]
