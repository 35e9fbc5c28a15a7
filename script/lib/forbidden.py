"""Calls that this tree does not make, each with its reason. Part of script/check.

A rule looks at code without comments and without the contents of literals. Its folders say where it holds, its
exceptions are the files whose job the call is.
"""

import re
import sys
from dataclasses import dataclass

import source_tree

SERVICE = ("src/",)
CXX = ("src/", "tools/", "tests/", "fuzz/", "bench/")


@dataclass(frozen=True)
class Rule:
    pattern: str
    reason: str
    folders: tuple = SERVICE
    exceptions: tuple = ()
    suffix: tuple = (".h", ".cc")


def call(*names):
    """A call of a free function: not a member, not a function of a namespace of ours, not a longer name."""
    return rf"(?:(?<![\w.>:])|(?<!\w)::|\bstd::)(?:{'|'.join(names)})\s*\("


RULES = (
    # Memory and text.
    Rule(call("strcpy", "strcat", "sprintf", "vsprintf", "gets", "stpcpy"), "writes without a bound", CXX),
    Rule(call("strtok", "localtime", "gmtime", "asctime", "ctime", "readdir_r"), "shares a buffer among threads"),
    Rule(
        call("getpwnam", "getpwuid", "getgrnam", "getgrgid", "getpwent", "getgrent"),
        "shares a buffer among threads: use the variant that ends in _r",
    ),
    Rule(call("alloca"), "takes an unbounded piece of the stack", CXX),
    Rule(call("rand", "srand", "random", "srandom", "drand48"), "can be guessed", CXX),
    # Processes.
    Rule(call("system", "popen"), "runs a shell line: use RunProcess"),
    Rule(call("execvp", "execlp", "execvpe", "posix_spawnp"), "searches PATH: use FindTool"),
    Rule(call("vfork", "daemon"), "use RunProcess"),
    Rule(call("setenv", "putenv", "unsetenv", "clearenv"), "races with every thread that reads the environment"),
    Rule(call("getenv", "secure_getenv"), "the configuration is the command line, the portal and the state file"),
    Rule(call("signal") + r"(?!\s*SIG\w+\s*,\s*SIG_(?:IGN|DFL)\b)", "handlers are installed with sigaction"),
    Rule(call("quick_exit", "abort", "exit"), "the stop sequence ends the process", SERVICE, ("src/core/main.cc",)),
    # Descriptors.
    Rule(call("close", "fclose"), "Descriptor closes", SERVICE, ("src/core/descriptor.cc",)),
    Rule(call("pipe", "accept", "dup", "epoll_create", "inotify_init", "signalfd4?", "creat", "mkstemp", "tmpfile", "tmpnam",
              "mktemp"), "leaves the descriptor open in children: use the variant that takes close-on-exec"),
    # dup2 clears close-on-exec, which is right between fork and exec and nowhere else.
    Rule(call("dup2"), "leaves the descriptor open in children", SERVICE, ("src/device/process_linux.cc",)),
    Rule(call("socket", "socketpair") + r"(?![^;]*SOCK_CLOEXEC)", "needs SOCK_CLOEXEC"),
    Rule(call("accept4") + r"(?![^;]*SOCK_CLOEXEC)", "needs SOCK_CLOEXEC"),
    Rule(call("pipe2", "dup3") + r"(?![^;]*O_CLOEXEC)", "needs O_CLOEXEC"),
    Rule(
        call("open", "openat", "open64", "mkostemp") + r"(?![^;]*O_CLOEXEC)",
        "needs O_CLOEXEC",
        SERVICE,
        # The standard streams, of the service and of its children, are to outlive the exec.
        ("src/core/main.cc", "src/device/process_linux.cc"),
    ),
    Rule(call("fopen", "freopen", "fdopen", "opendir"), "use Descriptor and core/files"),
    # Time and locks.
    Rule(call("sleep", "usleep", "nanosleep", "clock_nanosleep"), "no stop ends it: use SleepUnlessStopped", CXX,
         ("src/core/clock.cc",)),
    Rule(r"\bsleep_(?:for|until)\s*\(", "no stop ends it: use SleepUnlessStopped", CXX, ("src/core/clock.cc",)),
    Rule(
        call("time", "gettimeofday", "clock_gettime") + r"|\b(?:system|steady|high_resolution)_clock::now\b",
        "tests set the clock: use core/clock",
        SERVICE,
        ("src/core/clock.cc",),
    ),
    Rule(
        r"\bstd::(?:recursive_|timed_|shared_)?mutex\b|\bstd::(?:lock_guard|scoped_lock|unique_lock|shared_lock)\b"
        r"|\bstd::condition_variable",
        "the compiler cannot check it: use core/mutex.h",
        SERVICE,
        ("src/core/mutex.h",),
    ),
    # The log.
    Rule(
        r"\bstd::(?:endl|cout|cerr|clog)\b|" + call("printf", "fprintf", "vfprintf", "vprintf", "puts", "fputs", "perror", "syslog"),
        "a message is one write: use core/log.h",
        SERVICE,
        ("src/core/main.cc",),  # the usage text, before there is a log
    ),
    # Names.
    Rule(r"\busing\s+namespace\b(?!\s+std::(?:literals|chrono_literals|string_literals|string_view_literals))", "spreads to every file that includes this", CXX,
         suffix=(".h",)),
)

# Children are made in one kind of file only.
MAKES_CHILDREN = Rule(
    call("fork", "execve", "execv", "execl", "execle", "execveat", "fexecve", "posix_spawn", "clone", "waitpid", "wait4", "wait"),
    "only *_linux.cc makes children",
)


def check_file(path, rule):
    if not path.startswith(rule.folders) or not path.endswith(rule.suffix) or path in rule.exceptions:
        return
    code = source_tree.code_of(path)
    for match in re.finditer(rule.pattern, code):
        line = code.count("\n", 0, match.start()) + 1
        yield f"{path}:{line}: {match.group().rstrip('( ')}: {rule.reason}"


def main():
    findings = []
    for path in source_tree.cxx_files():
        rules = RULES if path.endswith("_linux.cc") else RULES + (MAKES_CHILDREN,)
        for rule in rules:
            findings += check_file(path, rule)
    return source_tree.report(findings)


if __name__ == "__main__":
    sys.exit(main())
