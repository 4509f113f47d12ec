"""contract_tests.exe as the owner of a machine runs it: from a folder of its own, leaving nothing but its report."""
import re
import subprocess
import time

from check_exe import check_headers
from pe import PeFile
from prefix import WINE

HERE, KEY = "C:\\check", "HKCU\\Software\\ContractTests"
EXE, FOLDER, REPORT = HERE + "\\contract_tests.exe", HERE + "\\scratch", HERE + "\\scratch-report.txt"
WORK = FOLDER + "\\contract_tests"
FACT = re.compile(r"(held|held later|did not hold|not asked) +\[([\w./]+)\] [\w :]+\n((?:    .*\n)*)")
PLANTED = {  # how each is answered, and what must stand below it
    "DoesNotHold": ("did not hold", r"planted.cpp:\d+\n.*6 \* 9\n.*Which is: 54\n.*42\n.*the last error then: 5\n"
                                    r".*value measured = 54\n"),
    "HoldsWhenAskedAgain": ("held later", "when it was asked first it did not hold:.*planted.cpp"),
    "LeavesThings": ("held", "$"),
    "Crashes": ("did not hold", r"planted.cpp:\d+\n.*ended by exception 0xc0000005 at 0x\w+ of the program"),
    "Hangs": ("did not hold", "it was ended after 10 seconds"),
    "IsNotAsked": ("not asked", "reason: as planted")}


def machine(world):
    """All files, with their sizes, and the registry but for what Wine adds for its shell and for each desktop."""
    files = {str(file): file.is_file() and file.stat().st_size for file in world.prefix.drive_c.rglob("*")}
    export = world.prefix.scratch / "registry.reg"
    world.prefix.tool("regedit", "/E", f"Z:{export}")
    keys = export.read_text("utf-16").split("\n\n")
    export.unlink()
    of_wine = ("\\Explorer\\Shell Folders]", "\\Control\\Video\\{")
    return files, [key for key in keys if not any(name in key.partition("\n")[0] for name in of_wine)]


def compare(world, name, before):
    (files, registry), (now, registry_now) = before, machine(world)
    different = sorted(file for file in files.keys() | now.keys() if files.get(file, -1) != now.get(file, -1))
    world.checks.equal(name, (different, sorted(set(registry) ^ set(registry_now))), ([], []))


def ask(world, *arguments):
    """A run; its exit code, what it said, {fact: (verdict, what stands below)}, the report, which is taken away."""
    run = world.prefix.run(EXE, "--folder", FOLDER, *arguments, timeout=300)
    report = (world.read(REPORT) or b"").decode()
    world.file(REPORT).unlink(missing_ok=True)
    facts = {name: (verdict, below) for verdict, name, below in FACT.findall(report.replace("\r\n", "\n"))}
    return run.code, run.text, facts, report


def refusals(world):
    full, before = HERE + "\\full", machine(world)
    restricted = world.build / "wine" / "restricted.exe"
    for name, run, code, said in (
            ("help", (EXE,), 0, "--folder"),
            ("an unknown argument", (EXE, "--folder", FOLDER, "--all"), 2, "unknown: --all"),
            ("no folder", (EXE, "--fact", "Xml.*"), 2, "--folder is missing"),
            ("no such fact", (EXE, "--folder", FOLDER, "--fact", "Xml.No"), 2, "no fact has that name"),
            ("a path without a drive", (EXE, "--folder", "scratch"), 3, "a path such as X:\\scratch is needed"),
            ("no such drive", (EXE, "--folder", "X:\\scratch"), 3, "X:\\ is no fixed local volume"),
            ("a folder that is not empty", (EXE, "--folder", HERE), 3, "C:\\check is not empty"),
            ("one volume twice", (EXE, "--folder", FOLDER, "--other", "C:\\other"), 3, "must be on another volume"),
            ("a report inside", (EXE, "--folder", FOLDER, "--report", FOLDER + "\\x"), 3, "is taken away at the end"),
            ("a report over another file", (EXE, "--folder", FOLDER, "--report", EXE), 3, "no report of this program"),
            ("no administrator", (restricted, EXE, "--folder", FOLDER), 3, "not run as an administrator")):
        result = world.prefix.run(*run)
        world.checks.true(f"refused: {name}", result.code == code and said in result.text, result)
    world.prefix.set_value(KEY, "of", "somebody else")
    code, said, *_ = ask(world)
    world.checks.true("refused: not our key", code == 3 and "has not made" in said and world.prefix.has_key(KEY), said)
    world.prefix.delete_key(KEY)
    compare(world, "a refusal changes nothing", before)


def planted(world):
    """Facts that fail, crash, hang and leave things: the report tells it, and all is taken away."""
    code, said, facts, _ = ask(world, "--fact", "DISABLED_*", "--limit", "10")
    for name, (verdict, below) in PLANTED.items():
        found, lines = facts.get(f"DISABLED_Planted.{name}", ("", ""))
        world.checks.true(f"planted: {name}", found == verdict and re.search(below, lines, re.S), (found, lines))
    world.checks.true("planted: the end", code == 1 and "was taken away again" in said, (code, said))


def killed(world):
    """A run is killed in the midst of a fact; the next one takes away what carries its mark."""
    process = subprocess.Popen([WINE, EXE, "--folder", FOLDER, "--fact", "DISABLED_Planted.Hangs"],
                               env=world.prefix.environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    deadline = time.monotonic() + 30
    while not world.prefix.has_key(KEY + "\\left\\behind") and time.monotonic() < deadline:
        time.sleep(0.1)
    process.kill()
    process.wait()
    left = world.read(WORK + "\\mark") and world.names(WORK + "\\1\\1") and world.prefix.has_key(KEY)
    world.checks.true("killed: something was left", left, world.names(WORK))
    letter = FOLDER + "\\letter"
    world.write(letter, b"mine")
    code, said, *_ = ask(world)
    alone = code == 3 and "is not empty" in said and world.read(letter) == b"mine" and world.names(WORK)
    world.checks.true("killed: nothing is taken away beside another's file", alone, said)
    world.remove(letter)
    code, said, facts, _ = ask(world, "--fact", "FilesData.*")
    taken = all(f"Taking away what a run that was ended left in {place}." in said
                for place in (WORK, KEY.replace("HKCU", "HKEY_CURRENT_USER")))
    world.checks.true("killed: the next run takes it away", taken and code == 0 and len(facts) > 1, (code, said))


def contract_tests(world):
    """The facts about Windows that both backends must show; a test that Wine cannot pass says so and is skipped."""
    world.prefix.place(world.build / "contract_tests.exe", EXE)
    check_headers(world.checks, PeFile(world.file(EXE)))
    before = machine(world)
    refusals(world)
    planted(world)
    killed(world)
    code, said, facts, report = ask(world)
    for name, (verdict, below) in facts.items():
        if verdict == "not asked":
            print(f"skipped {name}")
        else:
            world.checks.true(name, verdict == "held", f"{verdict}\n{below}")
    is_whole = f"\r\n{len(facts)} facts: " in report and len(facts) > 50
    is_clean = report.endswith("in the registry.\r\nend of the report\r\n")
    expected_code = any(verdict == "did not hold" for verdict, _ in facts.values())
    world.checks.true("the contract tests ran to their end", is_whole and is_clean and code == expected_code,
                      (code, said[-1000:]))
    for line in (r"Wine +Wine \d", r"elevated +yes", r"volume +C:\\ NTFS, flags 0x", "code pages +ANSI", r"commit \w"):
        world.checks.true(f"the report has {line}", re.search(line, report), report[:2000])
    compare(world, "they leave nothing", before)
