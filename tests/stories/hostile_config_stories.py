"""A service configuration that is damaged or made to do harm: it is replaced by the default or refused, and nothing
else happens."""
import random

from config_file import HIVE, ConfigFile
from registry_stories import KEY, LOCATION, start_over
from world import CONFIG

REPLACED = "CQBConfig::Init: failed to load config file; Default config created"
SECRET = "C:\\secret.txt"


def utf16(text):
    return b"\xff\xfe" + text.encode("utf-16-le", "surrogatepass")


def document(inner):
    return utf16(f'<?xml version="1.0" encoding="utf-16"?><VelmoraQuillbayConfig>{inner}</VelmoraQuillbayConfig>')


def with_doctype(world, definitions, text):
    """A sound file whose location is `text`, behind a document type definition."""
    sound = ConfigFile(world, "@", "1").data().decode("utf-16").replace("@", text)
    head, rest = sound.split("?>\r\n", 1)
    return utf16(f"{head}?>\r\n<!DOCTYPE VelmoraQuillbayConfig [{definitions}]>{rest}")


def entity_bomb(world):
    definitions = "<!ENTITY e0 'ha'>" + "".join(
        f"<!ENTITY e{n} '{f'&e{n - 1};' * 10}'>" for n in range(1, 10))
    return with_doctype(world, definitions, "&e9;")


def unreadable_files(world):
    sound = ConfigFile(world, "C:\\Keys", "1").data()
    cases = [("empty", b""), ("four bytes", b"\xff\xfe<\0"),
             ("UTF-8 with a UTF-16 declaration", sound.decode("utf-16").encode()),
             ("UTF-16 the other way round", sound.decode("utf-16").encode("utf-16-be")),
             ("cut in the middle", sound[:len(sound) // 4 * 2]), ("an odd number of bytes less", sound[:-41]),
             ("a zero inside", sound[:400] + b"\0\0" + sound[402:]), ("half a pair", document("<a>\ud800</a>")),
             ("random bytes", b"\xff\xfe" + random.Random(5).randbytes(1 << 20)),
             ("a hundred thousand elements in each other", document("<a>" * 100_000 + "</a>" * 100_000)),
             ("4 MiB of one tag's beginning", utf16("<a " + "b" * (2 << 20)))]
    start_over(world)
    default = ConfigFile(world)
    for name, data in cases:
        world.write(CONFIG, data)
        world.expect(name, (KEY,), "\n\n\n", 0, [REPLACED])
        default.matches(name)


def entities(world):
    """A document type is a reason to replace the file. Whatever a reader makes of it, no other file gets into it."""
    start_over(world)
    world.write(SECRET, b"the secret")
    outside = '<!ENTITY e SYSTEM "file:///C:/secret.txt">'
    for name, data in (("an entity bomb", entity_bomb(world)), ("another file", with_doctype(world, outside, "&e;"))):
        world.write(CONFIG, data)
        if world.xml_knows_limits:
            world.expect(name, (KEY,), "\n\n\n", 0, [REPLACED])
            ConfigFile(world).matches(name)
        else:
            shown = world.run(LOCATION)
            world.checks.true(f"{name} does no harm", shown.code in (0, 1) and len(shown.text) < 1000 and
                              "the secret" not in shown.text, f"{shown.code} {shown.text[:300]!r} {shown.entries}")


def large_files(world):
    """What is only large is read whole and kept whole."""
    start_over(world, "SOFTWARE\\Contoso")
    many = ConfigFile(world, "C:\\%s%n" + "x" * 60_000, "1")
    many.keys = [[f"SOFTWARE\\Key {n}", f"{n}.bak"] for n in range(5000)]
    many.put()
    world.expect("a location of 60000 characters", (LOCATION,), f"\n\n{many.base_dir}\n\n", 0)
    world.expect("5000 keys are listed", (KEY,), "\n\n" + "".join(f"{HIVE}\\{key}\n" for key, _ in many.keys) + "\n", 0)
    many.add("SOFTWARE\\Contoso")
    added = world.run(KEY, f"{HIVE}\\SOFTWARE\\Contoso")
    world.checks.equal("one more is added", added.code, 0)
    many.matches("5001 keys")


ALL = [unreadable_files, entities, large_files]
