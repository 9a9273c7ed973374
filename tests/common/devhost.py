"""The development host for the Python checks (tests/browser, tests/contract),
and the loop that runs a suite's checks. Only the standard library: the browser
checks run with Debian's /usr/bin/python3, the contract checks with the Python
CMake gives them.

A Host is started on a port of its own (`listen`, loopback and a free port by
default), reads the banner the host prints, and takes from it the URL and the
access token where the host asks for one; `call` and `json` send that token.
When the machine cannot run the host (no FUSE) the host exits 77, and Host
raises NoFuse, a SystemExit with that status: a script that does not catch it
exits 77, the checks' skip status."""
import json
import re
import subprocess
import time
import traceback
import urllib.error
import urllib.request

NO_FUSE = 77
# The banner's first line: the URL, and the token where the host asks for one.
SERVING = re.compile(r"serving (http://[0-9.]+:[0-9]+)/(\?token=([A-Za-z0-9._~-]+))?")


class NoFuse(SystemExit):
    def __init__(self):
        super().__init__(NO_FUSE)


class Host:
    """The development host `executable` started with `args`, its log lines
    to the file `log`; or, with `url`, one already running there. `banner`
    holds what the host printed up to "stop with Ctrl-C", `token` the access
    token it printed (None when it asks for none)."""

    def __init__(self, executable=None, *args, listen="127.0.0.1:0", log="/dev/null", url=None, timeout=30):
        self.process = None
        self.token = None
        self.banner = ""
        self.log = log
        self.timeout = timeout
        if url:
            self.url = url.rstrip("/")
            self.port = int(self.url.rsplit(":", 1)[1])
            return
        self.process = subprocess.Popen([executable, "--listen", listen, "--log", log, *args],
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        printed = ""
        match = None
        while not match:
            line = self.process.stdout.readline()
            if not line:
                status = self.process.wait(timeout=timeout)
                if status == NO_FUSE:
                    raise NoFuse()
                raise RuntimeError(f"the host did not start (exit {status}): {printed}")
            printed += line
            match = SERVING.search(line)
        self.url = match.group(1)
        self.port = int(self.url.rsplit(":", 1)[1])
        self.token = match.group(3)
        self.banner = line
        while "stop with Ctrl-C" not in self.banner:
            line = self.process.stdout.readline()
            if not line:
                break
            self.banner += line

    def call(self, method, target, body=None):
        """HTTP status and the answer's text. `body`: a text sent as it is, or
        anything else as JSON."""
        data = None if body is None else (body if isinstance(body, str) else json.dumps(body)).encode()
        request = urllib.request.Request(self.url + target, data=data, method=method)
        if self.token:
            request.add_header("Authorization", f"Bearer {self.token}")
        try:
            with urllib.request.urlopen(request, timeout=self.timeout) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as refused:
            return refused.code, refused.read().decode()

    def call_json(self, method, target, body=None):
        """HTTP status and the answer read as JSON (None when it is empty)."""
        status, text = self.call(method, target, body)
        return status, json.loads(text or "null")

    def json(self, target):
        """The answer to a GET, which must be 200, read as JSON."""
        status, body = self.call_json("GET", target)
        if status != 200:
            raise AssertionError(f"GET {target} answered {status}: {body}")
        return body

    def stop(self):
        if self.process:
            self.process.terminate()
            self.process.wait(timeout=self.timeout)


class Tally:
    """Runs checks and counts them; `line` is the closing "N passed, M failed"."""

    def __init__(self):
        self.passed = 0
        self.failed = 0

    def run(self, checks, suite, before_each=None, on_failure=None):
        """Each check is a function of `suite`: "ok     NAME (T s)" when it
        returns, "FAILED NAME" and the traceback when it raises, after which
        `on_failure(NAME)` (a screenshot, say) and the next check. `before_each()`
        runs before each."""
        for check in checks:
            name = check.__name__
            if before_each:
                before_each()
            start = time.monotonic()
            try:
                check(suite)
                self.passed += 1
                print(f"ok     {name} ({time.monotonic() - start:.1f} s)")
            except Exception:  # a failed check is reported and the next one runs
                self.failed += 1
                print(f"FAILED {name}\n{traceback.format_exc()}")
                if on_failure:
                    on_failure(name)

    def setup_failed(self):
        """What went wrong outside a check, with its traceback: one failure."""
        self.failed += 1
        print(f"FAILED setup\n{traceback.format_exc()}")

    def add(self, other):
        self.passed += other.passed
        self.failed += other.failed

    def line(self):
        return f"{self.passed} passed, {self.failed} failed"

    def status(self):
        return 1 if self.failed else 0
