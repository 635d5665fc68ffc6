#!/usr/bin/env python3
"""Runs ar-harness on one case of the table below and checks its exit status, its messages and,
for --format=jsonl, that every line of the trace is a JSON object with file, line and kind.

usage: check_harness.py HARNESS CASE
       check_harness.py HARNESS examples_jsonl FOLDER
       check_harness.py HARNESS readme_commands README
       check_harness.py HARNESS schema SCHEMA FOLDER...
"""
import json
import os
import pty
import re
import subprocess
import sys
import tempfile

FAILING = """\
start
client a pid=10 version=1.1 activity
a connect
expect result @1
expect result null
expect log I AR_impl_Act "no such line"
"""

# name: (arguments, scenario text written to NAME.scenario or None, stdin, exit status,
#        patterns that stderr must match (or, after "!", must not), trace format)
CASES = {
    "default_jsonl": (["--format=jsonl"], None, None, 0, [], "jsonl"),
    "failed_expectation": (["{file}"], FAILING, None, 1, [
        r"failed_expectation\.scenario:5: expectation failed: result null\n"
        r"    expected: getActivityInterfaceV1_1 = null\n    got: getActivityInterfaceV1_1 = @1",
        r"failed_expectation\.scenario:6: expectation failed: log I AR_impl_Act",
        r"2 expectations failed"], "text"),
    "failed_expectation_jsonl": (["--format=jsonl", "{file}"], FAILING, None, 1, [], "jsonl"),
    "typo": (["{file}"], "start\n# a comment\n\nstrat\nstart\n", None, 2,
             [r"^\S*typo\.scenario:4: unknown command or client 'strat'$", "!already started",
              r"^    did you mean: start$"],
             "text"),
    "typo_jsonl": (["--format=jsonl", "{file}"], "start\nclient a pid=1 version=1.2 activity\n",
                   None, 2, [r"typo_jsonl\.scenario:2: usage: client NAME"], "jsonl"),
    "bad_argument": (["{file}"],
                     "start\nclient a pid=10 version=1.1 activity\na enableActivityEvent 3 1 2h\n",
                     None, 2, [r"bad_argument\.scenario:3: bad latency '2h'"], "text"),
    "bad_record": (["{file}"], "module report activities e=1,s=2\n", None, 2,
                   [r"bad_record\.scenario:1: records here have no field s"], "text"),
    "second_start": (["{file}"], "start\nstart\n", None, 2,
                     [r"second_start\.scenario:2: the service was already started at line 1"],
                     "text"),
    "dead_client": (["{file}"],
                    "start\nclient a pid=10 version=1.1 activity\nkill a\na connect\n", None, 2,
                    [r"dead_client\.scenario:4: a is dead \(its process 10 died at line 3\)"],
                    "text"),
    "before_start": (["{file}"], "client a pid=10 version=1.1 activity\na connect\n", None, 2,
                     [r"before_start\.scenario:2: the service is not started"], "text"),
    "stdin": (["-"], None, "start\nexpect result service\n", 0, [], "text"),
    "stdin_error": (["-"], None, "start\nexpect nonsense\n", 2,
                    [r"^-:2: expect what\? 'nonsense'"], "text"),
    "help": (["-"], None, "help zel\nhelp expect NAME no\nhelp zell\n", 2,
             [r"^  zel notify RECORD\.\.\. \[status=N\]", r"^  expect NAME no METHOD\n      NAME",
              "!expect NAME nothing", r"^-:3: no help on 'zell'\n    did you mean: zel$"], "text"),
    "dump_misuse": (["{file}"], "start\nexpect dump-containing x\n", None, 2,
                    [r"dump_misuse\.scenario:2: .*the command before it was not a dump"], "text"),
    "missing_file": (["/nonexistent/x.scenario"], None, None, 2, [r"cannot read"], "text"),
    "bad_option": (["--colour"], None, None, 2, [r"unexpected argument '--colour'"], "text"),
    # start finds the HAL through getService's search path, which `module absent` (the module
    # loader's path) leaves alone.
    "library_missing": (["{file}"], "start\n", None, 2, [
        r'^getService: no vendor\.quarn\.hardware\.activity_recognition@1\.1-impl\.so .* in '
        r'HIDL_PASSTHROUGH_PATH="/nonexistent"$',
        r"^\S*library_missing\.scenario:1: getService found no HAL library"], "text"),
    "library_path_module_absent": (["{file}"], "module absent\nstart\nexpect result null\n"
                                   "expect log-containing E AR_impl_Act hw_get_module\n",
                                   None, 0, ["!getService"], "text"),
}

# Bad input is refused within bounds, with short, escaped messages; expectations leave arguments
# open, count calls and show the closest event when they fail.
REGISTERED = "start\nclient fit pid=2001 version=1.1 activity\nfit register\n"
CASES.update({
    "folder": (["{dir}"], "", None, 2, [r": cannot read: Is a directory$"], "text"),
    "long_line": (["{file}"], "module supported activity " + "w " * 600000, None, 2,
                  [r"^\S*long_line\.scenario:1: a line holds at most 1048576 bytes",
                   r"(?s)\A.{0,300}\Z"], "text"),
    "long_word": (["{file}"], "x" * 100000, None, 2,
                  [r"unknown command or client 'x{64}\.\.\.' \(100000 bytes\)$"], "text"),
    "too_many_names": (["{file}"], "module supported activity " + "w " * 513, None, 2,
                       [r"a list holds at most 512 names"], "text"),
    "batch_bound": (["{file}"], "module report activities repeat=10000 " + "e=1 " * 11, None, 2,
                    [r"a batch holds at most 100000 records"], "text"),
    "control_bytes": (["-"], None, 'st\x1b[2Jart\n', 2,
                      [r"unknown command or client 'st\\x1b\[2Jart'$"], "text"),
    "byte_order_mark": (["{file}"], "\ufeffstart\nexpect result service\n", None, 0, [], "text"),
    "empty": (["{file}"], "# only a comment\n\n", None, 0,
              [r"empty\.scenario: empty scenario: no commands$"], "text"),
    "bad_option_line": (["--colour"], None, None, 2,
                        [r"\Aar-harness: unexpected argument '--colour' \(try --help\)\n\Z"],
                        "text"),
    "second_word": (["-"], None, "module absnt\n", 2, [r"^    did you mean: module absent$"],
                    "text"),
    "nothing_links": (["{file}"], REGISTERED + "expect fit nothing\n", None, 1,
                      [r"got: fit\[2001\] linkToDeath\(cookie 2001\) -> true$"], "text"),
    "wildcards": (["{file}"], REGISTERED + "fit enableActivityEvent 1 1 2500ms\n"
                  "expect module enable_activity_event 1 1 *\n"
                  "fit disableActivityEvent 1 1\nexpect module disable_activity_event * * count=1\n"
                  "expect module disable_activity_event * * count=0\n"
                  "module report activities e=1,a=1,t=1 e=1,a=1,t=2\n"
                  "expect fit onActivityChangedV1_1 * e=1,a=1,t=2,c=0 count=0\n", None, 0, [],
                  "text"),
    "closest": (["{file}"], REGISTERED + "fit enableActivityEvent 1 1 2s\n"
                "fit enableActivityEvent 1 2 2s\nexpect module enable_activity_event 1 3 2s\n"
                "expect module enable_activity_event 1 * 2s count=3\n"
                "dump\nexpect dump-containing \"pid[2001] activity[1] event[3]\"\n", None, 1,
                [r"got: module calls: enable_activity_event\(1, 2, 2000000000\) -> 0$",
                 r"expected: 3 of enable_activity_event\(1, \*, 2000000000\)\n    got: 1 ",
                 r"the closest: \"  pid\[2001\] activity\[1\] event\[1\]"], "text"),
})

# Help for the whole language: records, client methods and module entries, on the prompt and as
# ar-harness help TOPIC.
CASES.update({
    "help_records": (["-"], None, "help records\n", 0,
                     [r"^      t  timestamp in nanoseconds", r"^  Limits: a line 1048576 bytes"],
                     "text"),
    "help_method": (["-"], None, "help enableActivityEvent\nhelp enable_activity_event\n"
                    "help enableActivtyEvent\n", 2,
                    [r"^  NAME enableActivityEvent ACTIVITY EVENT_TYPE LATENCY\n      asks",
                     r"^  expect module enable_activity_event ACTIVITY EVENT_TYPE LATENCY$",
                     r"^-:3: no help on 'enableActivtyEvent'\n    did you mean: enableActivityEvent$"],
                    "text"),
    "help_command_line": (["help", "records"], None, None, 0, [], "text"),
    "help_command_line_unknown": (["help", "nosuch"], None, None, 2,
                                  [r"^ar-harness: no help on 'nosuch' \(try ar-harness help\)$"],
                                  "text"),
})


def check_methods(harness, readme):
    """--methods lists every client method once, as JSON; help and the README know each."""
    run = subprocess.run([harness, "--methods"], capture_output=True, text=True, timeout=60)
    methods = [json.loads(line) for line in run.stdout.splitlines()]
    with open(readme) as text:
        harness_section = text.read().split("## Harness", 1)[1].split("\n## ", 1)[0]
    problems = [] if len(methods) >= 20 else ["only %d methods" % len(methods)]
    for method in methods:
        name = method["name"]
        if "`%s" % name not in harness_section:
            problems.append("the README's Harness section lacks " + name)
        shown = subprocess.run([harness, "help", name], capture_output=True, text=True,
                               timeout=60).stdout
        if "NAME " + name not in shown:
            problems.append("no help on " + name)
    print("\n".join(problems))
    return 1 if problems else 0


# Variables a case runs with ({lib}: the build's library folder, next to the harness's bin/).
ENVIRONMENTS = {"library_missing": {"HIDL_PASSTHROUGH_PATH": "/nonexistent"},
                "library_path_module_absent": {"HIDL_PASSTHROUGH_PATH": "{lib}"}}


# The summary that ends the JSON Lines trace of a case: expectations held, failed, errors.
SUMMARIES = {"failed_expectation_jsonl": (1, 2, 0), "typo_jsonl": (0, 0, 1)}


# How a line of a dump's report shows under its event in the text trace.
REPORT_LINE = " " * 16 + "| "


def check_jsonl(stdout, summary=None):
    lines = stdout.splitlines()
    if not lines:
        return "no trace"
    last = json.loads(lines[-1]) if lines[-1].startswith("{") else {}
    counts = tuple(last.get(k) for k in ("held", "failed", "errors"))
    if last.get("kind") != "summary" or not all(isinstance(c, int) for c in counts):
        return "the trace does not end with its summary: " + lines[-1]
    if summary is not None and counts != summary:
        return "summary %s, expected %s" % (counts, summary)
    for number, line in enumerate(lines, 1):
        try:
            event = json.loads(line)
        except ValueError as error:
            return "line %d is not JSON (%s): %s" % (number, error, line)
        if not isinstance(event, dict) or not {"file", "line", "kind"} <= event.keys():
            return "line %d lacks file, line or kind: %s" % (number, line)
    return None


def check_examples(harness, folder):
    """Every example scenario passes, and its JSON Lines trace has one valid object for each event
    of its text trace (a dump's report lines, under its event, are part of it)."""
    problems = []
    for name in sorted(os.listdir(folder)):
        if not name.endswith(".scenario"):
            continue
        path = os.path.join(folder, name)
        runs = [subprocess.run([harness, form, path], capture_output=True, text=True, timeout=120)
                for form in ("--format=text", "--format=jsonl")]
        text, jsonl = runs
        if text.returncode != 0 or jsonl.returncode != 0:
            problems.append("%s: exit statuses %d and %d\n%s" % (name, text.returncode,
                                                                 jsonl.returncode, jsonl.stderr))
        problem = check_jsonl(jsonl.stdout)
        if problem:
            problems.append(name + ": " + problem)
        events = [line for line in text.stdout.splitlines() if not line.startswith(REPORT_LINE)]
        if len(events) != len(jsonl.stdout.splitlines()):
            problems.append("%s: %d text events, %d JSON lines" % (
                name, len(events), len(jsonl.stdout.splitlines())))
    print("\n".join(problems))
    return 1 if problems else 0


# Text that must come back from a JSON parser as it went in: UTF-8 as itself, bytes that are not
# UTF-8 and control characters reversibly. A report nobody hears, the failed expectation, the
# deaths and the unknown command give the kinds that scenarios that pass never show.
ROUND_TRIP = """\
module report environments e=1,a=1
start
client a pid=10 version=1.1 activity
a register
a enableActivityEventExtend 1 1 1s x=caf\xc3\xa9
expect module enable_activity_event_extend 1 1 1s
module report extended "e=1,a=1,t=1,s=1,x=caf\\xc3\\xa9\\xff\\x1b"
module report activities e=1,a=1 nostate
zel notify e=1,a=1 null
kill a
client b pid=11 version=1.0 activity
kill b
strat
"""


def check_schema(harness, schema_path, folders):
    """The JSON Lines trace of every scenario of the folders, and of ROUND_TRIP, validates against
    the schema, whose kinds are the harness's; text survives the trip through JSON."""
    import jsonschema  # Debian's python3-jsonschema
    with open(schema_path) as text:
        schema = json.load(text)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    problems = []
    kinds = subprocess.run([harness, "--kinds"], capture_output=True, text=True,
                           timeout=60).stdout.split()
    if kinds != schema["properties"]["kind"]["enum"]:
        problems.append("the schema's kinds %s, the harness's %s" % (
            schema["properties"]["kind"]["enum"], kinds))
    with tempfile.TemporaryDirectory() as folder:
        round_trip = os.path.join(folder, "round_trip.scenario")
        with open(round_trip, "wb") as out:
            out.write(ROUND_TRIP.encode("latin-1"))
        paths = [os.path.join(f, n) for f in folders for n in sorted(os.listdir(f))
                 if n.endswith(".scenario")] + [round_trip]
        traces = {}
        for path in paths:
            run = subprocess.run([harness, "--format=jsonl", path], capture_output=True,
                                 timeout=120)
            if any(b < 0x20 and b != 0x0a for b in run.stdout):
                problems.append(path + ": a raw control byte in the trace")
            events = [json.loads(line) for line in run.stdout.decode("utf-8").splitlines()]
            traces[path] = events
            for number, event in enumerate(events, 1):
                for error in validator.iter_errors(event):
                    problems.append("%s: line %d of the trace: %s at %s\n    %s" % (
                        os.path.basename(path), number, error.message, list(error.absolute_path),
                        json.dumps(event)[:300]))
    seen = {event["kind"] for events in traces.values() for event in events}
    problems += ["no scenario shows an event of kind " + k for k in kinds if k not in seen]
    events = traces[round_trip]
    module = [e for e in events if e["kind"] == "module" and e["entry"].endswith("_extend")]
    if not module or module[0]["args"][3] != {"p": [0, 0, 0, 0], "x": "caf\u00e9"}:
        problems.append("x=caf\u00e9 came back otherwise: %s" % module)
    delivered = [e["records"][0]["x"] for e in events
                 if e["kind"] == "deliver" and "Extend" in e["method"]]
    if [x.encode("utf-8", "surrogateescape") for x in delivered] != [b"caf\xc3\xa9\xff\x1b"]:
        problems.append("bytes that are not UTF-8 did not come back: %s" % delivered)
    errors = [(e["text"], e.get("hint")) for e in events if e["kind"] == "error"]
    if errors != [("unknown command or client 'strat'", "did you mean: start")]:
        problems.append("the error and its hint: %s" % errors)
    print("\n".join(problems))
    return 1 if problems else 0


LONG_BATCH = """\
start
client a pid=1 version=1.1 activity
a register
a enableActivityEvent 1 1 1s
module report activities e=1,a=1,t=5 repeat=12
expect a onActivityChangedV1_1 records=12
expect a nothing
expect a onActivityChangedV1_1 records=12
"""

# options: (trace format, exit status, what the trace must show). Expectations see every event,
# printed or not: the summary always says 2 held, 1 failed.
TRACE_CONTROL = [
    (["--only=check,deliver"], "jsonl", 1,
     lambda events, text: {e["kind"] for e in events} == {"check", "deliver", "summary"}),
    (["--quiet"], "jsonl", 1,
     lambda events, text: [(e["kind"], e.get("ok")) for e in events] == [
         ("check", False), ("summary", None)]),
    (["--only=deliver", "--quiet"], "jsonl", 1,
     lambda events, text: [e["kind"] for e in events] == ["summary"]),
    (["--quiet"], "text", 1,
     lambda events, text: len(text) == 2 and " FAILED expect " in text[0]),
    (["--only=deliver"], "text", 1,
     lambda events, text: text[0].count("e=1,a=1,t=5,c=0") == 8 and
     text[0].endswith(" ... 12 records (--all-records shows them)]")),
    (["--only=deliver", "--all-records"], "text", 1,
     lambda events, text: text[0].count("e=1,a=1,t=5,c=0") == 12 and "..." not in text[0]),
]


def check_trace_control(harness):
    """--only, --quiet and --all-records narrow or widen what the trace prints, never what
    expectations see; a kind that is none is refused in one line."""
    problems = []
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "long_batch.scenario")
        with open(path, "w") as out:
            out.write(LONG_BATCH)
        for options, form, status, shows in TRACE_CONTROL:
            run = subprocess.run([harness, "--format=" + form] + options + [path],
                                 capture_output=True, text=True, timeout=120)
            lines = run.stdout.splitlines()
            events = [json.loads(line) for line in lines] if form == "jsonl" else []
            summary = lines[-1] if lines else ""
            if run.returncode != status or not shows(events, lines) or not (
                    "2 expectations held, 1 failed" in summary or '"held":2,"failed":1' in summary):
                problems.append("%s %s: exit status %d, trace:\n%s" % (
                    form, " ".join(options), run.returncode, run.stdout))
        run = subprocess.run([harness, "--only=check,bogus", path], capture_output=True,
                             text=True, timeout=60)
        if run.returncode != 2 or run.stdout or run.stderr != (
                "ar-harness: --only: no kind 'bogus'; try --help\n"):
            problems.append("--only=check,bogus: %d %r" % (run.returncode, run.stderr))
    print("\n".join(problems))
    return 1 if problems else 0


def check_readme_commands(harness, readme):
    """The README's command table lists the harness's commands, in its order, and --help lists
    each of them."""
    def run(option):
        return subprocess.run([harness, option], capture_output=True, text=True, timeout=60).stdout
    commands = run("--commands").splitlines()
    with open(readme) as text:
        rows = re.findall(r"^\| `((?:[^`]|`(?! \|))*)` \|", text.read().split(
            "| command | what it does |", 1)[1].split("\n\n", 1)[0], re.MULTILINE)
    documented = [row.replace("\\|", "|") for row in rows]
    problems = ["README lacks: " + c for c in commands if c not in documented]
    problems += ["README lists, the harness lacks: " + d for d in documented if d not in commands]
    if not problems and documented != commands:
        problems.append("README lists the commands in another order")
    usage = run("--help")
    problems += ["--help lacks: " + c for c in commands if "  " + c + "\n" not in usage]
    print("\n".join(problems))
    return 1 if problems else 0


def check_terminal(harness):
    """With - on a terminal, the harness prompts for each line and goes on after an error."""
    master, slave = pty.openpty()
    run = subprocess.Popen([harness, "-"], stdin=slave, stdout=subprocess.PIPE,
                           stderr=subprocess.PIPE, text=True)
    os.close(slave)
    os.write(master, b"strat\nstart\nexpect result service\n\x04")
    out, err = run.communicate(timeout=120)
    os.close(master)
    problems = [] if run.returncode == 2 else ["exit status %d" % run.returncode]
    if err.count("ar-harness> ") != 4 or "-:1: unknown command or client 'strat'" not in err:
        problems.append("no prompt for each line, or no error: " + err)
    if "summary 1 expectations held, 0 failed, 1 scenario errors" not in out:
        problems.append("the run did not go on after the error: " + out)
    print("\n".join(problems))
    return 1 if problems else 0


def check_line_editing(harness):
    """At a terminal under tmux: the up arrow recalls the previous line, Ctrl-C abandons a line
    and at an empty prompt ends the run with its summary, save writes the lines so far. Skipped
    (77) without tmux."""
    import shutil
    import time
    if shutil.which("tmux") is None:
        print("tmux is not installed: skipped")
        return 77
    with tempfile.TemporaryDirectory() as folder:
        socket = os.path.join(folder, "tmux")
        saved = os.path.join(folder, "saved.scenario")
        status = os.path.join(folder, "status")
        tmux = ["tmux", "-S", socket, "-f", "/dev/null"]
        command = "HOME=%s %s -; echo $? > %s; sleep 60" % (folder, harness, status)
        subprocess.run(tmux + ["new-session", "-d", "-x", "200", "-y", "50", command], check=True)

        def screen():
            return subprocess.run(tmux + ["capture-pane", "-p", "-S", "-200"],
                                  capture_output=True, text=True).stdout

        def keys(*typed, until):
            subprocess.run(tmux + ["send-keys"] + list(typed), check=True)
            deadline = time.monotonic() + 60
            while until not in screen():
                if time.monotonic() > deadline:
                    raise TimeoutError("no %r on the screen:\n%s" % (until, screen()))
                time.sleep(0.1)
        try:
            keys("", until="ar-harness>")
            keys("start", "Enter", until="HIDL_FETCH_IActivityRecognition = service")
            keys("expect result service", "Enter", until="2   check   ok     expect result")
            keys("Up", "Enter", until="3   check   ok     expect result")
            # Ctrl-C flushes what the terminal holds unread: type, see it echoed, then Ctrl-C.
            keys("not a command", until="> not a command")
            keys("C-c", until="not a command^C")
            keys("save " + saved, "Enter", until="saved 3 lines")
            keys("C-c", until="summary 2 expectations held, 0 failed, 0 scenario errors")
            deadline = time.monotonic() + 30
            while not os.path.exists(status) and time.monotonic() < deadline:
                time.sleep(0.1)
            problems = []
            with open(status) as text:
                if text.read().strip() != "0":
                    problems.append("exit status is not 0")
            with open(saved) as text:
                if text.read() != "start\nexpect result service\nexpect result service\n":
                    problems.append("saved otherwise")
        except (TimeoutError, OSError) as error:
            problems = [str(error)]
        finally:
            subprocess.run(tmux + ["kill-server"], capture_output=True)
    if problems:
        print("\n".join(problems))
    return 1 if problems else 0


def check_deterministic(harness):
    """Runs of the default scenario print the same events for each scenario line; only their
    order within a line may differ (the HAL walks its clients in address order)."""
    def events_by_line():
        run = subprocess.run([harness], capture_output=True, text=True, timeout=120)
        lines = {}
        for line in run.stdout.splitlines():
            lines.setdefault(line.split()[0], []).append(line)
        return {number: sorted(events) for number, events in lines.items()}
    first = events_by_line()
    for _ in range(2):
        again = events_by_line()
        if again != first:
            differing = [n for n in first if first[n] != again.get(n)]
            print("runs differ at scenario lines " + ", ".join(differing))
            return 1
    return 0


def main():
    harness, name = sys.argv[1], sys.argv[2]
    if name == "examples_jsonl":
        return check_examples(harness, sys.argv[3])
    if name == "schema":
        return check_schema(harness, sys.argv[3], sys.argv[4:])
    if name == "readme_commands":
        return check_readme_commands(harness, sys.argv[3])
    if name == "methods":
        return check_methods(harness, sys.argv[3])
    if name == "trace_control":
        return check_trace_control(harness)
    if name == "line_editing":
        return check_line_editing(harness)
    if name == "terminal":
        return check_terminal(harness)
    if name == "deterministic":
        return check_deterministic(harness)
    args, text, stdin, status, patterns, form = CASES[name]
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, name + ".scenario")
        if text is not None:
            with open(path, "w") as out:
                out.write(text)
        lib = os.path.join(os.path.dirname(os.path.abspath(harness)), os.pardir, "lib")
        env = dict(os.environ, **{k: v.format(lib=lib) for k, v in
                                  ENVIRONMENTS.get(name, {}).items()})
        run = subprocess.run([harness] + [a.format(file=path, dir=folder) for a in args],
                             input=stdin or "", capture_output=True, text=True, timeout=120,
                             env=env)
    problems = []
    raw = re.search(r"[\x00-\x08\x0b-\x1f\x7f]", run.stdout + run.stderr)
    if raw:
        problems.append("a raw control byte %r reaches the terminal" % raw.group())
    if run.returncode != status:
        problems.append("exit status %d, expected %d" % (run.returncode, status))
    for pattern in patterns:
        absent = pattern.startswith("!")
        if bool(re.search(pattern.lstrip("!"), run.stderr, re.MULTILINE)) == absent:
            problems.append("stderr %s: %s" % ("matches" if absent else "does not match", pattern))
    if form == "jsonl":
        problem = check_jsonl(run.stdout, SUMMARIES.get(name))
        if problem:
            problems.append(problem)
    if problems:
        print("\n".join(problems))
        print("--- stdout\n" + run.stdout + "--- stderr\n" + run.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
