"""A user's profile as an administrator moves it."""
from config_file import ConfigFile
from registry_stories import start_over
from world import LOG

UP, HOME = "/RedirectUP", "/RedirectUPDefault"
METRO = ("Please note that redirecting a User Profile may temporarily make some Metro apps unusable. You will have to "
         "log-off and log-in again before you can use those Metro Apps.")
PROFILE_LIST = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProfileList"


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
        entry = f"#ERROR: Unable to give the folder {there} the access rights of C:\\Users. Request not supported."
        failed = world.strings[146]
        world.checks.equal("refused", (said, run.code, run.entries),
                           (world.text(137, LOG) + "\n" + failed, 1, [entry, failed]))
        world.checks.equal("nothing has changed", (world.read(home + letter), world.names(there)), (b"Dear Jan", None))
        return
    world.checks.equal("moved", (run.text.endswith(world.strings[138]), run.code, run.entries[-1]),
                       (True, 0, world.strings[138]))
    world.checks.equal("it is there", (world.read(there + "\\anna" + letter), world.names(home)), (b"Dear Jan", []))
    world.expect("listed", (UP,), f"User   Profile folder\n\nanna   {there}\\anna\n", 0)
    run = world.run(HOME, "anna")
    world.checks.equal("home again", (run.code, run.entries[-1], world.read(home + letter), world.names(there)),
                       (0, world.strings[138], b"Dear Jan", []))
    world.expect("nobody is listed", (UP,), "", 0)


ALL = [annas_profile]
