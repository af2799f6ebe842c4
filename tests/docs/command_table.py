"""By what each command that the documents show is run. check_commands.py compares the two: a
command that stands in a document must stand here.

There are three ways:
  Run      tests/docs/run_commands.py runs it, as it stands or in a short form, in a stand-in for
           the checkout. `group` is the test of ctest that does it: docs_run_GROUP.
  By       another test runs it. `tests` are its names in ctest (without the tree) or in GoogleTest,
           `witness` is a text of the latter's file in which the command can be recognised.
  NoTest   no test runs the whole of it, for the reason that is given; `parts` are the tests that
           run what it is made of.

These need no line, as they name their test themselves: a program of a build tree that is a test by
that name, and "ctest -R NAME" and "./dev test -R NAME" for a name that some test has.
"""

from dataclasses import dataclass


@dataclass(frozen=True)
class Run:
    group: str
    prints: str  # a regular expression that is found in what it writes
    command: str = ""  # the short form; empty if it is run as it stands
    code: int = 0


@dataclass(frozen=True)
class By:
    tests: tuple
    witness: str = ""


@dataclass(frozen=True)
class NoTest:
    parts: tuple
    reason: str


HOST_LISTS = By(("HostTool.ListsOnceAndEnds",), '{"list"}')
HOST_SCRIPT = By(("Package.RunsTheHostFromWhereItWasUnpacked",), '"--json"')
DOCTOR = By(("HostDoctor.NoNoteAndAnInputThatIsInUse",), '"doctor"')
C_EXAMPLE = By(("Package.BuildsTheExampleInCForItsImportLibrary",), 'Build("gcc", "c")')
CPP_EXAMPLE = By(("Package.BuildsTheExampleInCppForItsImportLibrary",), 'Build("g++", "cpp")')
NATIVE_EXAMPLES = "NativeExamples.SwitchByNameAndShowTheLists"
FIRST_HOST = By(("docs_first_host",))

# What needs no more than a built tree is run as "quick". Nothing is built there: the suite has done
# that, see run_commands.py.
COMMANDS = {
    "./dev help": Run("quick", r"Usage: \./dev COMMAND"),
    "./dev build": Run("quick", r"corvalint_wrapper\.dll\n"),
    "./dev package": Run("quick", r"The archive: dist/corvalint-[\d.]+-win64\.zip"),
    "./dev docs": By(("api_reference",)),
    "./dev format": Run(
        "quick", r"not formatted\.cpp[\s\S]*== Formatting",
        'mkdir bench && echo "int  main( ){}" >"bench/not formatted.cpp" && ! ./dev format --check'
        " && ./dev format && ./dev format --check"),
    "cmake --preset asan && cmake --build build/asan --target midi_scan_test": Run("quick", ""),
    "wine corvalint-host.exe doctor --listen=0": Run(
        "quick", r"holds +bridge[\s\S]*The first broken link is \S+:[\s\S]*What to do:",
        "cd build/windows && wine corvalint-host.exe doctor --listen=0 --wait=0", code=7),
    "wine corvalint-host.exe list": Run(
        "quick", r"Sources: [\s\S]*Destinations: ",
        "cd build/windows && wine corvalint-host.exe list"),
    "netstat -ano -p UDP": Run("quick", "Local Address", "wine netstat -ano -p UDP"),

    "./dev run": Run("play", r"All [\d,]+ messages arrived, unchanged and in order\.",
                     "./dev run --bars 0"),
    "./dev soak": Run("soak", r"faults +passed[\s\S]*stress +passed[\s\S]*native +passed",
                      "./dev soak 1"),
    "./dev fuzz": Run("fuzz", r"usb +[1-9]\d*[\s\S]*total +[1-9]\d*", "./dev fuzz 1"),

    "./dev test": NoTest((), "is the suite itself: whoever reads a test's verdict has run it"),
    "./dev package --check": NoTest(
        ("Package.IsTheSameByteForByteWhenMadeTwice", "Package.KnowsNothingOfTheMachineThatMadeIt"),
        "builds the product a second time without the compilers' memory, which takes minutes"),
    "./dev bench": NoTest(
        ("bench_judge",), "takes minutes on a machine that does nothing else, and needs a library"
        " that the suite does not; the judgement can be right or wrong, and that is tested"),
    "./dev fuzz --coverage": NoTest(
        ("fuzz_corpus.usb",), "needs a tree of its own, which takes minutes to build; the same"
        " programs replay the same inputs in the test"),
    "build/asan/tests/faults/fault_sweep --all": NoTest(
        ("fault_sweep",), "takes minutes; the test takes other points every hour"),

    "oscdump 9000": By(("OscClients.WhatADeviceSendsIsWhatOscDumpPrints",), "oscdump"),
    "oscsend 127.0.0.1 9001 /knob fs 0.5 left": By(
        ("OscClients.WhatOscSendSendsArrivesAsTheSameBytes",), '"oscsend"'),

    "x86_64-w64-mingw32-gcc-posix first_host.c corvalint_wrapper.lib -o first_host.exe": FIRST_HOST,
    "wine first_host.exe": FIRST_HOST,

    "corvalint-host": By(("HostTool.CommandsOnStandardInputEndWithTheFirstFailure",), "HostTool"),
    "corvalint-host --help": By(("Package.RunsTheCommandsOfItsFirstPage",), '"--help"'),
    "corvalint-host list": HOST_LISTS,
    'corvalint-host on "USB Keyboard"': By(
        ("Package.RunsTheCommandsOfItsFirstPage",), '{"on", "USB Keyboard"}'),
    "corvalint-host watch": By(("HostTool.WatchEndsWhenItsTimeIsOver",), '{"watch", "0"}'),
    "corvalint-host --json": HOST_SCRIPT,
    "corvalint-host.exe --json": HOST_SCRIPT,
    'corvalint-host --json on "USB Keyboard"': By(
        ("HostTool.WhatIsSwitchedOnStaysOnAndIsWatched",), '{"on", "Keys", "--json"}'),
    "corvalint-host doctor": DOCTOR,
    "corvalint-host doctor --listen=0 --wait=1": DOCTOR,

    "gcc poll.c -I ../.. -L ../.. -lcorvalint_wrapper -o ../../poll.exe": C_EXAMPLE,
    r'..\..\poll 10 "USB Keyboard"': C_EXAMPLE,
    "g++ -std=c++17 -static switch_on.cpp -I ../.. -L ../.. -lcorvalint_wrapper"
    " -o ../../switch_on.exe": CPP_EXAMPLE,
    r'..\..\switch_on 10 "USB Keyboard"': CPP_EXAMPLE,
    r"cl poll.c /I ..\.. ..\..\corvalint_wrapper.lib /Fe..\..\poll.exe": NoTest(
        ("Package.LinksWithTheImportLibraryForMicrosoftsLinker",),
        "Microsoft's compiler runs on Windows only; lld links in its place"),
    r"csc Lists.cs Corvalint.cs /platform:x64 /out:..\..\Lists.exe": NoTest(
        (NATIVE_EXAMPLES,), "Microsoft's compiler runs on Windows only; Mono's makes the program"
        " that the test starts, of the same two files"),
    r'..\..\Lists "USB Keyboard"': By((NATIVE_EXAMPLES,), "CORVALINT_CSHARP_EXAMPLE"),
    r'python lists.py ..\..\corvalint_wrapper.dll "USB Keyboard"': By(
        (NATIVE_EXAMPLES,), "CORVALINT_PYTHON_EXAMPLE"),

    "sha256sum -c SHA256SUMS": By(("Package.HoldsTheSumOfEachFile",), '"sha256sum"'),
}
