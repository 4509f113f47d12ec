"""What a story may do to a machine, and see of it. Two worlds tell the stories: the workstation (qbc on Linux) and Wine
(QBC.exe). Each is a World with these operations:

start(*arguments)               runs the program: the bytes of its output, and its exit code
read(path)                      the bytes of a file of drive C; None where there is none
write(path, data)               makes a file, its folders with it, or replaces what it held
remove(path), make_folder(path)
names(path)                     the sorted names in a folder; None where there is none
set_value(key, name, text)      makes the key, "HKLM\\SOFTWARE\\...", in the view of 64-bit programs
set_service(start)              gives QuillbayService this start type ("auto" or "demand") and stops it where it does
                                not start itself
service()                       the state and the start type of QuillbayService, as in ("running", "auto")
start_service()                 starts it whatever its start type: only with other programs, as
held(path, access, share)       a context in which another program has the file open so
set_rimehold(status)            Rimehold is on the machine with this status; it is not with None
volume()                        the name of a volume without a drive letter"""
import re

SERVICE_FOLDER = "C:\\Program Files\\Velmora\\Quillbay"
CONFIG = SERVICE_FOLDER + "\\ServiceConfig.xml"
LOG = SERVICE_FOLDER + "\\QBC.log"
# Said of access lists, which are the machine's own.
ADVICE = re.compile(r"#INFO: The entry \(.*\) of the folder .* lets others ")
RUN_ENTRY = re.compile(r"#INFO: \d{4}-\d\d-\d\d, Quillbay \d+\.\d+\.\d+\.\d+: /\w")
LOG_ENTRY = re.compile(r"\r\n\[[ \d]\d:[ \d]\d:[ \d]\d:[ \d]{2}\d\]\[P *\d+,T *\d+\] ")


class Run:
    """One run of the program: what the console showed behind the banner, the exit code, the entries of the log."""

    def __init__(self, text, code, entries):
        self.text, self.code, self.entries = text, code, entries


class World:
    # The folder of Rimehold's service, once it is there.
    rimehold_folder = None
    # Can a symbolic link be made, and a volume be mounted on a folder?
    makes_links = mounts_volumes = True
    # Has a folder the whole descriptor that it was given?
    keeps_descriptors = True
    # Do other programs and services run on between two runs?
    has_other_programs = False
    # What the declaration says beside the version once the file has been saved.
    saved_encoding = ""
    # Does the XML reader refuse what only costs memory and time?
    xml_knows_limits = True

    def __init__(self, strings, checks):
        self.strings, self.checks = strings, checks

    def run(self, *arguments):
        """The program with these arguments."""
        before = len(self.read(LOG) or b"")
        output, code = self.start(*arguments)
        added = (self.read(LOG) or b"")[before:].decode("utf-16-le").removeprefix("\ufeff")
        entries = [entry.rstrip("\r\n") for entry in LOG_ENTRY.split(added)[1:]]
        text = output.decode("cp437").replace("\r\n", "\n")
        banner = self.strings[101]
        if not text.startswith(banner) or entries[:1] != ["-" * 34] or not RUN_ENTRY.match("".join(entries[1:2])):
            raise RuntimeError(f"{arguments}: console {text!r}, exit code {code}, log {entries}")
        return Run(text.removeprefix(banner), code, [entry for entry in entries[2:] if not ADVICE.match(entry)])

    def expect(self, name, arguments, text, code, entries=()):
        """One run and all that it says. An entry that ends with "..." stands for every entry that begins so: what
        Windows adds to it is the machine's own wording."""
        run = self.run(*arguments)
        said = [entry[:len(expected) - 3] + "..." if expected.endswith("...") else entry
                for entry, expected in zip(run.entries, entries)] + run.entries[len(entries):]
        return self.checks.equal(name, (run.text, run.code, said), (text, code, list(entries)))

    def text(self, number, *values):
        """A text of the string table with its values put in."""
        text = self.strings[number]
        for value in values:
            text = re.sub("%l?s", lambda _: value, text, count=1)
        return text
