"""File redirection as an administrator works with it. Where a world makes no symbolic links, its part is what is
refused, what the service does meanwhile, and that nothing is lost."""
from config_file import ConfigFile
from registry_stories import start_over
from world import LOG

FILE = "/RedirectFile"
DONE, FAILED, BACK, NOT_BACK = 193, 194, 195, 196
LIST, KEPT = "C:\\Papers\\list.txt", "C:\\Kept"
SWITCHED_OFF = ["RemoveFileRedirection - IsRegistryRedirectionEnabled: 0 and IsFileRedirectionEnabled: 0 ",
                "RemoveFileRedirection - Going to stop Quillbay Service", "Service disabled successfully."]
SWITCHED_ON = ["RemoveFileRedirection - IsRegistryRedirectionEnabled: 1 and IsFileRedirectionEnabled: 0 "]


def failed(world, number):
    return world.text(137, LOG) + "\n" + world.strings[number]


def same_volume(target):
    return (f"#INFO: {target} is on the same volume as {LIST}: what is discarded there at a restart is discarded at "
            "both places.")


def file_moved_and_back(world):
    start_over(world)
    ConfigFile(world, "C:\\Keys", "1").put()
    content, kept = bytes(range(256)) * 1000, "C:\\Kept there"
    copy = kept + "\\list.txt"
    world.write(LIST, content)
    if not world.makes_links:
        world.run(FILE, LIST, "/loc:" + kept)
        found = {data for data in (world.read(LIST), world.read(copy)) if data is not None}
        world.checks.equal("the file is complete at its old place or its new one", found, {content})
        return
    is_link = f"IsSymbolicLink()::The specified directory or file {LIST} is symbolic link"
    world.write(copy, b"a file of this name is overwritten")
    world.expect("redirect", (FILE, LIST, "/loc:" + kept), world.strings[DONE], 0,
                 [same_volume(kept), f"#INFO: The file {copy} is kept as {copy}.kept1 until it can be replaced.",
                  f"#INFO: The file {LIST} is now in {copy}.", world.strings[DONE]])
    world.checks.equal("one file under two paths", (world.read(LIST), world.read(copy), world.names(kept)),
                       (content, content, ["list.txt"]))
    world.expect("bring back", (FILE, LIST, "/loc:" + kept, "/d"), world.strings[BACK], 0,
                 ["RemoveFileRedirection - ENTER", is_link,
                  f"#INFO: The file {LIST} is in {copy} until it is back in its place.",
                  f"#INFO: The file {LIST} is back in its place.", world.strings[BACK], *SWITCHED_ON,
                  "RemoveFileRedirection - EXIT"])
    world.checks.equal("one file at its old place", (world.read(LIST), world.names(kept)), (content, []))
    world.expect("nothing is listed", (FILE,), "", 0)


def a_file_in_use(world):
    """The service may be the one who holds the file, so it is stopped before the last look, and started again."""
    if not world.has_other_programs:
        return
    start_over(world)
    world.write(LIST, b"content")
    world.start_service()
    with world.held(LIST, "0x80000000", "0"):
        world.expect("a file in use", (FILE, LIST, "/loc:" + KEPT), failed(world, FAILED), 1, [
            f"#INFO: Target {KEPT}\\list.txt doesn't exists so checking free space using parent directory {KEPT}",
            same_volume(KEPT), f"#ERROR: (Source) {LIST} - File is locked.", world.strings[FAILED]])
    world.checks.equal("the program started it again, as it starts a service", world.service(), ("running", "auto"))
    world.checks.equal("the file is where it was", (world.read(LIST), world.names(KEPT)), (b"content", None))


def what_is_not_brought_back(world):
    """Each refusal ends with a look at what the service has to do."""
    start_over(world)
    world.write(LIST, b"content")
    world.write(KEPT + "\\list.txt", b"another")
    location = ConfigFile(world, "C:\\Keys", "1")

    def not_back(name, source, target, error, *end):
        world.expect(name, (FILE, source, "/loc:" + target, "/d"), failed(world, NOT_BACK), 1,
                     ["RemoveFileRedirection - ENTER", error, world.strings[NOT_BACK], *end,
                      "RemoveFileRedirection - EXIT"])

    location.put()
    world.set_service("auto")
    no_link = f"#ERROR: Symbolic Link doesn't exists for Source = {LIST}."
    not_back("a missing target", LIST, "C:\\nowhere", "#ERROR: Target = C:\\nowhere\\list.txt Path Does Not Exist.",
             *SWITCHED_ON)
    world.checks.equal("with a location for registry keys the service goes on", world.service(), ("running", "auto"))
    location.status, location.base_dir = "0", ""
    location.put()
    not_back("without a location", LIST, KEPT, no_link, *SWITCHED_OFF)
    world.checks.equal("the service is stopped for good", world.service(), ("stopped", "demand"))
    location.matches("the configuration is only read")
    world.checks.equal("both files are as they were", (world.read(LIST), world.read(KEPT + "\\list.txt")),
                       (b"content", b"another"))


ALL = [a_file_in_use, what_is_not_brought_back, file_moved_and_back]
