#!/usr/bin/python3
"""Pages of other origins against the development host, in headless Chromium:
a page served from another port arms no fault and resets nothing, even with
the host's cookie; a page under another name that resolves to 127.0.0.1 (DNS
rebinding, mapped with --host-resolver-rules) reads and changes nothing; the
console, under each of the host's own names, loads within its content policy
and changes the device. Prints one line per check and, last,
"N passed, M failed"; exits 1 when a check failed.

    tests/browser/origin_test.py BUILD_DIR        (build/default)
"""
import http.server
import os
import socket
import sys
import threading

from console_test import WAIT_S, Console, fresh, start_host
from devhost import NoFuse, Tally  # tests/common, on the path console_test sets

REBOUND = "rebind.test"  # a name of the attacker's that resolves to this machine


class Attacker:
    """A web server of another origin: each page it serves runs a script
    against the host and puts what it saw in the page's title. Every other
    request it passes to the host as it came, Host header included: what a
    browser does once the attacker's name has been rebound to 127.0.0.1."""

    def __init__(self, host_port):
        self.pages = {}
        pages = self.pages

        class Handler(http.server.BaseHTTPRequestHandler):
            def page_or_host(self):
                body = pages.get(self.path, "").encode()
                if not body:
                    return self.to_host()
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def to_host(self):
                length = int(self.headers.get("Content-Length") or 0)
                request = self.raw_requestline + bytes(self.headers) + self.rfile.read(length)
                with socket.create_connection(("127.0.0.1", host_port), timeout=WAIT_S) as upstream:
                    upstream.sendall(request.replace(b"\r\n\r\n", b"\r\nConnection: close\r\n\r\n", 1))
                    while chunk := upstream.recv(65536):
                        self.wfile.write(chunk)
                self.close_connection = True

            do_GET = do_PUT = do_POST = do_DELETE = page_or_host  # noqa: N815 (the library's names)

            def log_message(self, *args):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.url = f"http://127.0.0.1:{self.server.server_port}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def page(self, path, script):
        self.pages[path] = f"<!doctype html><title>running</title><script>{script}</script>"
        return self.url + path

    def stop(self):
        self.server.shutdown()


# What a page's script does to the host: requests a form or an image could
# send too (no-cors), with the cookie the browser holds for the host's name.
CHANGES = """
const host = %r;
const simple = {mode: 'no-cors', credentials: 'include', headers: {'Content-Type': 'text/plain'}};
Promise.allSettled([
  fetch(host + '/_sim/faults', {...simple, method: 'POST', body: '{"kind": "down"}'}),
  fetch(host + '/_sim/reset', {...simple, method: 'POST'}),
  fetch(host + '/api/isp/ExtreColor?ChannelId=101', {...simple, method: 'PUT', body: '{"fusionStrength": 99}'}),
  fetch(host + '/_sim/journal').then(r => r.text()),
]).then(r => { document.title = 'done ' + r.map(x => x.status).join(' '); });
"""


# The same requests, to the page's own origin: the browser sends them and
# lets the page read every answer.
REBOUND_REQUESTS = """
Promise.all([
  fetch('/_sim/journal'), fetch('/_sim/log'),
  fetch('/api/isp/ExtreColor?ChannelId=101', {method: 'PUT', body: '{"fusionStrength": 99}'}),
  fetch('/_sim/faults', {method: 'POST', body: '{"kind": "down"}'}),
]).then(r => { document.title = 'done ' + r.map(x => x.status).join(' '); },
        e => { document.title = 'done ' + e; });
"""


def wait_title(console, prefix):
    console.wait(lambda: console.driver.title.startswith(prefix), f"the page's title to start with {prefix}")
    return console.driver.title


def fetch_status(console, path, method="GET", body=None):
    """The status of a request of the open page to its own origin."""
    return console.driver.execute_async_script(
        "const done = arguments[arguments.length - 1];"
        "fetch(arguments[0], {method: arguments[1], body: arguments[2]})"
        ".then(r => done(r.status), e => done(String(e)));", path, method, body)


class Checks:
    def __init__(self, host, console, attacker):
        self.host = host
        self.console = console
        self.attacker = attacker
        self.port = int(host.url.rsplit(":", 1)[1])

    def device_unchanged(self, before_faults):
        assert self.host.json("/_sim/faults") == before_faults, self.host.json("/_sim/faults")
        fusion = self.host.json("/_sim/control/3229")["fields"]["fusionStrength"]
        assert fusion != 99, "a page of another origin changed ExtreColor"

    def page_of_another_port_changes_nothing(self):
        faults = self.host.json("/_sim/faults")
        self.host.call("POST", "/_sim/faults", {"command": 28, "kind": "status", "status": 404})
        armed = self.host.json("/_sim/faults")
        assert armed != faults
        self.console.driver.get(self.attacker.page("/another-port", CHANGES % self.host.url))
        wait_title(self.console, "done")
        # The fault armed here is still there: no reset, no second fault.
        self.device_unchanged(armed)
        self.console.screenshot("origin-another-port.png")

    def page_under_a_rebound_name_reads_and_changes_nothing(self):
        faults = self.host.json("/_sim/faults")
        # Opened under the name straight away, the host answers 421.
        self.console.driver.get(f"http://{REBOUND}:{self.port}/")
        body = self.console.driver.find_element("tag name", "body").text
        assert '"status":421' in body.replace(" ", ""), body
        # The attacker's page, then its requests to its own origin, which the
        # rebound name now takes to the host.
        page = self.attacker.page("/rebound", REBOUND_REQUESTS).replace("127.0.0.1", REBOUND)
        self.console.driver.get(page)
        title = wait_title(self.console, "done")
        assert title == "done 421 421 421 421", title
        self.device_unchanged(faults)

    def console_works_under_each_own_name(self):
        for name in ("127.0.0.1", "localhost"):
            url = f"http://{name}:{self.port}"
            self.console.driver.get("about:blank")
            self.console.errors()  # what earlier pages logged
            self.console.driver.get(url + "/")
            self.console.wait(lambda: self.console.driver.find_element("tag name", "body")
                              .get_attribute("data-ready") == "true", f"the console at {url}")
            status = fetch_status(self.console, "/api/isp/ExtreColor?ChannelId=101", "PUT", '{"fusionStrength": 61}')
            assert status == 200, f"PUT from the console's own page at {url}: {status}"
            assert self.host.json("/_sim/control/3229")["fields"]["fusionStrength"] == 61
            blocked = [e for e in self.console.errors() if "Content Security Policy" in e]
            assert not blocked, blocked


class TokenChecks:
    """A host with a token: the browser holds its cookie, and a page on
    another port of the same name (which the cookie reaches) changes nothing."""

    def __init__(self, host, console, attacker):
        self.host = host
        self.console = console
        self.attacker = attacker

    def page_on_another_port_with_the_cookie_changes_nothing(self):
        self.console.driver.get(f"{self.host.url}/?token={self.host.token}")
        self.console.wait(lambda: self.console.driver.find_element("tag name", "body")
                          .get_attribute("data-ready") == "true", "the console with the cookie")
        faults = self.host.json("/_sim/faults")
        with open(self.host.log, encoding="utf-8", errors="replace") as log:
            log.seek(0, os.SEEK_END)
            self.console.driver.get(self.attacker.page("/with-cookie", CHANGES % self.host.url))
            wait_title(self.console, "done")
            self.device_unchanged(faults)
            seen = log.read()
        # Refused for where they come from, whether or not the browser sent
        # the cookie with them.
        for request in ("POST /_sim/faults -> 403", "POST /_sim/reset -> 403"):
            assert request in seen, seen

    device_unchanged = Checks.device_unchanged


CHECKS = [Checks.page_of_another_port_changes_nothing, Checks.page_under_a_rebound_name_reads_and_changes_nothing,
          Checks.console_works_under_each_own_name]
TOKEN_CHECKS = [TokenChecks.page_on_another_port_with_the_cookie_changes_nothing]


def run(tally, host_args, checks_class, checks, build, out):
    """The checks of `checks_class` against a host started with `host_args`."""
    try:
        host = start_host(build, out, *host_args)
    except NoFuse:
        print("browser: no FUSE on this machine, nothing checked")
        return
    console = None
    attacker = Attacker(host.port)
    try:
        console = Console(host, out, [f"--host-resolver-rules=MAP {REBOUND} 127.0.0.1"])
        tally.run(checks, checks_class(host, console, attacker), before_each=lambda: fresh(host),
                  on_failure=lambda name: console.screenshot(f"failed-{name}.png"))
    except Exception:
        tally.setup_failed()
    finally:
        if console:
            console.quit()
        attacker.stop()
        host.stop()


def main():
    build = sys.argv[1] if len(sys.argv) > 1 else "build/default"
    out = os.path.join(build, "browser")
    os.makedirs(out, exist_ok=True)
    tally = Tally()
    run(tally, (), Checks, CHECKS, build, out)
    run(tally, ("--token", "origin-test-token-0123456789"), TokenChecks, TOKEN_CHECKS, build, out)
    print(tally.line())
    return tally.status()


if __name__ == "__main__":
    sys.exit(main())
