"""Registry redirection as an administrator works with it. Each story takes its world. Which places and keys are refused
is in the tests of the program."""
from config_file import HIVE, UNTOUCHED, ConfigFile
from world import CONFIG, LOG

LOCATION, KEY = "/RedirectRegKeyLocation", "/RedirectRegKey"
ADDED, NOT_ADDED, REMOVED = 159, 169, 144
SET, NOT_SET, GONE = 157, 155, 160
CREATED = "CQBConfig::Init: could not find config file. Default config created."
DISABLED = "Service disabled successfully."


def start_over(world, *keys):
    """No file, the service stopped, these keys in the registry."""
    if world.read(CONFIG) is not None:
        world.remove(CONFIG)
    world.set_service("demand")
    for key in keys:
        world.set_value(f"HKLM\\{key}", "value", "x")


def set_location(world, folder, *entries):
    world.expect(f"set {folder}", (LOCATION, "/loc:" + folder), world.text(SET, folder), 0, entries)


def refuse_location(world, name, location, *entries):
    world.expect(f"{name} is no location", (LOCATION, "/loc:" + location),
                 world.text(NOT_SET, LOG, location), 1, entries)


def location_set_shown_removed(world):
    start_over(world)
    config = ConfigFile(world)
    # The line break inside the element is two characters in the file and one in the text.
    world.expect("a new file has no location", (LOCATION,), "\n\n" + UNTOUCHED.replace("\r", "") + "\n\n", 0, [CREATED])
    config.matches("made anew")
    folder = "C:\\Keys (\u00e9) & Data"
    world.make_folder(folder)
    set_location(world, folder)
    config.status, config.base_dir = "1", folder
    config.matches("set")
    world.checks.equal("the service runs, from now on by itself", world.service(), ("running", "auto"))
    world.expect("show", (LOCATION,), f"\n\n{folder}\n\n", 0)

    data = folder + "\\Quillbay\\RegistryData"
    for name in ("a.bak", "b.bak", "quillbay.LOG", "OutOfDiskSpace.txt", "deeper\\c.bak"):
        world.write(f"{data}\\{name}", b"data")
    world.make_folder(data + "\\KeyToDelete")
    world.expect("remove", (LOCATION, "/d"), world.text(GONE, folder), 0, [DISABLED])
    config.status, config.base_dir = "0", ""
    config.matches("removed")
    world.checks.equal("the service stands still", world.service(), ("stopped", "demand"))
    world.checks.equal("its data are gone, its logs and what is not its own stay",
                       (world.names(data), world.names(data + "\\deeper")),
                       (["OutOfDiskSpace.txt", "deeper", "quillbay.LOG"], ["c.bak"]))
    world.expect("show none", (LOCATION,), "\n\n\n\n", 0)


def location_on_a_volume(world):
    start_over(world)
    config, volume = ConfigFile(world), world.volume()
    folder = world.rimehold_folder + "\\RegRedirect"
    refuse_location(world, "a volume without Rimehold", volume, CREATED, "#ERROR: Unable to get mount volume path.")
    world.set_rimehold("Thawed")
    before = world.names(world.rimehold_folder)
    if world.mounts_volumes:
        set_location(world, volume)
        config.status, config.base_dir = "1", folder
        config.matches("on a volume")
        world.write(folder + "\\Quillbay\\RegistryData\\a.bak", b"data")
        world.expect("remove", (LOCATION, "/d"), world.text(GONE, folder), 0, [DISABLED])
        config.status, config.base_dir = "0", ""
    else:
        refuse_location(world, "a volume that cannot be mounted", volume,
                        f"#ERROR: Failed to Mount Volume on Target Folder: {folder}")
    config.matches("without the volume")
    world.checks.equal("the folder for the mount is gone", world.names(world.rimehold_folder), before)
    world.set_rimehold(None)


def keys_added_listed_removed(world):
    # What XML has signs of its own for is in the names.
    top, child, sibling = (f"SOFTWARE\\Contoso & <x> 'y'{below}" for below in ("", "\\A\\B", "\\AB"))
    parent = top + "\\A"
    start_over(world, top, child, sibling)
    config = ConfigFile(world)

    def listed(name):
        keys = "".join(f"{HIVE}\\{key}\n" for key, _ in config.keys or [])
        world.expect(f"list {name}", (KEY,), f"\n\n{keys}\n", 0)
        config.matches(name)

    def add(key, *replaced):
        world.expect(f"add {key}", (KEY, f"{HIVE}\\{key}"), world.text(ADDED, f"{HIVE}\\{key}"), 0,
                     [f"{HIVE}\\{gone}" for gone in replaced])
        if replaced:
            config.drop(*replaced)
        config.add(key)

    def refuse(key, *entries):
        world.expect(f"{key} is not added", (KEY, key), world.text(NOT_ADDED, key, LOG), 1, entries)

    def remove(key, as_typed):
        world.expect(f"remove {key}", (KEY, as_typed, "/d"), world.text(REMOVED, as_typed), 0)
        config.drop(key)

    refuse(f"{HIVE}\\{parent}", CREATED, "#ERROR: redirect location not set (redirection disabled).")
    world.make_folder("C:\\Keys")
    set_location(world, "C:\\Keys")
    config.status, config.base_dir = "1", "C:\\Keys"
    listed("no keys")
    world.set_service("demand")
    add(child)
    add(sibling)
    listed("two keys")
    world.checks.equal("a new key starts the service", world.service(), ("running", "auto"))

    world.set_service("demand")
    refuse(f"{HIVE.lower()}\\{child.upper()}", "#ERROR: Registry key already present in list.")
    for key in ("HKLM\\" + parent, f"{HIVE}\\SOFTWARE\\Nowhere"):
        refuse(key, f"#ERROR: Invalid Registry path: {key}")
    listed("after refusals")
    world.checks.equal("refusals start no service", world.service(), ("stopped", "demand"))

    # A parent takes the place of the keys below it, and only of these.
    add(parent, child)
    listed("parent and its like")
    remove(sibling, f"{HIVE.lower()}\\{sibling.upper()}")

    # A removed location takes no key from the list.
    world.expect("the location goes", (LOCATION, "/d"), world.text(GONE, "C:\\Keys"), 0, [DISABLED])
    config.status, config.base_dir = "0", ""
    listed("the location gone")
    set_location(world, "C:\\Keys")
    config.status, config.base_dir = "1", "C:\\Keys"
    world.set_service("demand")
    remove(parent, f"{HIVE}\\{parent}")
    listed("all removed")
    world.checks.equal("a removed key leaves the service alone", world.service(), ("stopped", "demand"))


def frozen(world):
    start_over(world, "SOFTWARE\\Contoso")
    config = ConfigFile(world, "C:\\Keys", "1")
    config.put()
    before = world.read(CONFIG)
    world.set_rimehold("Frozen")
    for words in ((LOCATION, "/d"), (KEY, f"{HIVE}\\SOFTWARE\\Contoso")):
        world.expect(f"Frozen refuses {' '.join(words)}", words, world.text(170, words[0]), 1)
    world.expect("Frozen shows the location", (LOCATION,), "\n\nC:\\Keys\n\n", 0)
    world.checks.equal("nothing was done", (world.read(CONFIG), world.service()), (before, ("stopped", "demand")))
    world.set_rimehold(None)


ALL = [location_set_shown_removed, location_on_a_volume, keys_added_listed_removed, frozen]
