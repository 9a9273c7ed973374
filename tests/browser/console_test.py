#!/usr/bin/python3
"""The console in a real browser: headless Chromium from Debian driven by
Selenium. Starts the built development host on a free port and drives the
console as a person would; what to expect (groups, members, limits, value
sets, the device route of a resource, which operations ask first) is read
from the API document the host serves. Prints one line per check and, last,
"N passed, M failed"; exits 1 when a check failed.

    tests/browser/console_test.py BUILD_DIR        (build/default)
    tests/browser/console_test.py BUILD_DIR --url http://127.0.0.1:8080/

Screenshots and the host's log go to BUILD_DIR/browser/.
"""
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import traceback
import urllib.error
import urllib.request

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common import utils
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync"]
WAIT_S = 20
NO_FUSE = 77


class Host:
    """The development host, started here or already running at `url`."""

    def __init__(self, build, out, url=None, extra=()):
        self.process = None
        self.headers = {}  # sent with every call()
        if url:
            self.url = url.rstrip("/")
            return
        binary = os.path.join(build, "devhost", "ispiaas-devhost")
        self.log = os.path.join(out, "host.log")
        self.process = subprocess.Popen([binary, "--listen", "127.0.0.1:0", "--log", self.log, *extra],
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        banner = self.process.stdout.readline()
        match = re.search(r"serving (http://[0-9.:]+)/", banner)
        if not match:
            status = self.process.wait(timeout=WAIT_S)
            if status == NO_FUSE:
                raise SystemExit(NO_FUSE)
            raise RuntimeError(f"the host did not start (exit {status}): {banner}{self.process.stdout.read()}")
        self.url = match.group(1)

    def call(self, method, path, body=None):
        data = None if body is None else (body if isinstance(body, str) else json.dumps(body)).encode()
        request = urllib.request.Request(self.url + path, data=data, method=method, headers=self.headers)
        try:
            with urllib.request.urlopen(request, timeout=WAIT_S) as response:
                return response.status, json.loads(response.read() or b"null")
        except urllib.error.HTTPError as error:
            return error.code, json.loads(error.read() or b"null")

    def json(self, path):
        status, body = self.call("GET", path)
        if status != 200:
            raise AssertionError(f"GET {path} answered {status}: {body}")
        return body

    def stop(self):
        if self.process:
            self.process.terminate()
            self.process.wait(timeout=WAIT_S)


# ---- the API document ------------------------------------------------------

def resolve(doc, schema):
    while isinstance(schema, dict) and "$ref" in schema:
        node = doc
        for part in schema["$ref"].lstrip("#/").split("/"):
            node = node[part]
        schema = node
    return schema


def resources(doc):
    """Each resource path: name, group, operations and the GET record's schema."""
    found = {}
    for path, item in doc["paths"].items():
        ops = {m: item[m] for m in ("get", "put") if m in item and path.startswith("/api/")}
        if not ops:
            continue
        first = ops.get("get") or ops.get("put")
        schema = None
        if "get" in ops:
            content = resolve(doc, ops["get"]["responses"]["200"]).get("content", {})
            schema = resolve(doc, content.get("application/json", {}).get("schema"))
        channel = next((p for p in map(lambda p: resolve(doc, p), first.get("parameters", []))
                        if p.get("name") == "ChannelId"), None)
        query = ""
        if channel:
            values = channel.get("schema", {}).get("enum")
            query = f"?ChannelId={values[0] if values else 101}"
        found[path.rstrip("/").split("/")[-1]] = {
            "path": path, "query": query, "tag": first["tags"][0], "ops": ops, "schema": schema,
            "device": next((op["x-device"] for op in ops.values() if "x-device" in op), None),
        }
    return found


def leaves(doc, schema, path=()):
    """(path, schema) of every member that is no object."""
    schema = resolve(doc, schema)
    if schema.get("type") == "object" or "properties" in schema:
        for key, sub in schema.get("properties", {}).items():
            yield from leaves(doc, sub, path + (key,))
    else:
        yield path, schema


def member(doc, schema, test):
    return next(((p, s) for p, s in leaves(doc, schema) if test(p, s)), (None, None))


def nested(path, value):
    for key in reversed(path):
        value = {key: value}
    return value


def words(hex_text):
    raw = bytes.fromhex(hex_text)
    return [int.from_bytes(raw[i:i + 4], "little") for i in range(0, len(raw) - len(raw) % 4, 4)]


# ---- the browser -----------------------------------------------------------

class LoopbackService(Service):
    """chromedriver reached at 127.0.0.1 rather than by the name "localhost",
    which a minimal root (a chroot, a package builder's) may not resolve: it
    can lack /etc/hosts."""

    @property
    def service_url(self):
        return f"http://127.0.0.1:{self.port}"

    def is_connectable(self):
        return utils.is_connectable(self.port, host="127.0.0.1")


class Console:
    def __init__(self, host, out, extra_args=()):
        # Chromium is started here and chromedriver attached to it at
        # 127.0.0.1: left to itself, chromedriver reaches the browser it starts
        # by the name "localhost" (see LoopbackService).
        self.profile = tempfile.mkdtemp(prefix="console-chromium-")
        port = utils.free_port()
        self.browser = subprocess.Popen(
            [CHROMIUM, *CHROMIUM_ARGS, *extra_args, f"--user-data-dir={self.profile}",
             f"--remote-debugging-port={port}", "--remote-debugging-address=127.0.0.1", "about:blank"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + WAIT_S
        while not utils.is_connectable(port, host="127.0.0.1"):
            if self.browser.poll() is not None or time.monotonic() > deadline:
                raise AssertionError(f"Chromium did not open its debugging port {port}")
            time.sleep(0.1)
        options = webdriver.ChromeOptions()
        options.debugger_address = f"127.0.0.1:{port}"
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(service=LoopbackService(CHROMEDRIVER), options=options)
        self.host = host
        self.out = out
        self.viewport(1280, 800)

    def viewport(self, width, height):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def wait(self, condition, what):
        try:
            return WebDriverWait(self.driver, WAIT_S).until(lambda d: condition())
        except TimeoutException:
            raise AssertionError(f"timed out waiting for {what}") from None

    def open(self, group):
        """A fresh page showing `group`, once its resources are read."""
        self.driver.get("about:blank")
        self.driver.get(f"{self.host.url}/#{group}")
        self.wait(lambda: self.driver.find_element(By.TAG_NAME, "body").get_attribute("data-ready") == "true",
                  "the console to start")

    def form(self, name):
        return self.driver.find_element(By.CSS_SELECTOR, f'form[data-resource="{name}"]')

    def settled(self, name):
        """The resource's form once no request of it is under way."""
        form = self.form(name)
        self.wait(lambda: form.get_attribute("aria-busy") is None, f"{name} to finish its request")
        return form

    def control(self, name, path):
        return self.form(name).find_element(By.CSS_SELECTOR, f'[data-path="{".".join(path)}"]')

    def answer(self, name):
        return self.settled(name).find_element(By.CSS_SELECTOR, "output.answer").text

    def button(self, scope, text):
        return next(b for b in scope.find_elements(By.TAG_NAME, "button") if b.text == text)

    def screenshot(self, name):
        path = os.path.join(self.out, name)
        self.driver.save_screenshot(path)
        return path

    def errors(self):
        return [e["message"] for e in self.driver.get_log("browser") if e["level"] == "SEVERE"]

    def quit(self):
        self.driver.quit()
        self.browser.terminate()
        self.browser.wait(timeout=WAIT_S)
        shutil.rmtree(self.profile, ignore_errors=True)


# ---- the checks --------------------------------------------------------------

class Checks:
    def __init__(self, host, console):
        self.host = host
        self.console = console
        self.doc = host.json("/openapi.json")
        self.resources = resources(self.doc)
        self.thermal = self.resources["Thermal"]
        self.thermal_block = self.thermal["device"] or "/_sim/isp/25/2"

    def console_files_served_with_their_types(self):
        for path, kind in (("/", "text/html"), ("/console/main.js", "text/javascript"),
                           ("/console/style.css", "text/css")):
            with urllib.request.urlopen(self.host.url + path, timeout=WAIT_S) as response:
                assert response.headers.get_content_type() == kind, f"{path}: {response.headers['Content-Type']}"
        for method, path, status in (("GET", "/console/../CMakeLists.txt", 404), ("GET", "/console/nothing.js", 404),
                                     ("PUT", "/", 405)):
            got, body = self.host.call(method, path, "{}" if method == "PUT" else None)
            assert got == status and list(body) == ["error"] and body["error"]["status"] == status, \
                f"{method} {path}: {got} {body}"

    def opens_with_every_group_and_resource(self):
        c = self.console
        tags = [t["name"] for t in self.doc["tags"] if any(r["tag"] == t["name"] for r in self.resources.values())]
        first = tags[0]
        c.open(first)
        shown = [b.text for b in c.driver.find_elements(By.CSS_SELECTOR, "#groups button")]
        assert shown == tags, f"groups {shown}, the document's tags {tags}"
        forms = sorted(f.get_attribute("data-resource") for f in c.driver.find_elements(By.CSS_SELECTOR, "form.resource"))
        assert forms == sorted(self.resources), f"forms {forms}"
        for name, r in self.resources.items():
            if r["tag"] == first and "get" in r["ops"]:
                assert c.answer(name).startswith("Read: HTTP 200"), f"{name}: {c.answer(name)}"
        assert not c.errors(), c.errors()

    def brightness_applied_changes_exactly_its_word_and_logs(self):
        c = self.console
        path, schema = member(self.doc, self.thermal["schema"], lambda p, s: p[-1] == "brightness")
        assert path, "the Thermal record has no brightness"
        c.open(self.thermal["tag"])
        before = self.host.json(self.thermal_block)["hex"]
        field = c.control("Thermal", path)
        current = int(field.get_attribute("value"))
        limits = self.limits(schema)
        assert (field.get_attribute("min"), field.get_attribute("max")) == limits, \
            f"limits {field.get_attribute('min')}..{field.get_attribute('max')}, expected {limits}"
        new = current + 7 if current + 7 <= int(limits[1]) else current - 7
        mark = max((l["seq"] for l in self.host.json("/_sim/log")["lines"]), default=0)
        field.send_keys(Keys.CONTROL, "a")
        field.send_keys(str(new), Keys.ENTER)  # the keyboard alone: Enter applies
        assert c.answer("Thermal") == "HTTP 200 · StatusCode 0 · OK", c.answer("Thermal")
        sent = c.form("Thermal").find_element(By.CSS_SELECTOR, "code.sent").text
        assert sent == "sent " + json.dumps(nested(path, new), separators=(",", ":")), sent
        old_words, new_words = words(before), words(self.host.json(self.thermal_block)["hex"])
        changed = [i for i, (a, b) in enumerate(zip(old_words, new_words)) if a != b]
        assert len(changed) == 1 and new_words[changed[0]] == new, f"words changed: {changed}"
        assert field.get_attribute("value") == str(new), "the form does not show the value read again"
        self.log_panel_shows_the_entry("PUT " + self.thermal["path"], mark)
        c.screenshot("console-1280x800.png")

    def log_panel_shows_the_entry(self, request, mark):
        """The card of `request` shows the first operation-log entry logged
        after `mark`, in either language."""
        c = self.console
        lines = [l for l in self.host.json("/_sim/log")["lines"] if l["seq"] > mark]
        texts = {lang: [l["text"] for l in lines if l.get("lang") == lang] for lang in ("en", "cn")}
        assert texts["en"] and texts["cn"], "the host logged no operation-log entry"
        card = c.wait(lambda: next((k for k in c.driver.find_elements(By.CSS_SELECTOR, "ol.activity > li")
                                    if request in k.find_element(By.CSS_SELECTOR, ".title").text), None),
                      f"a live card of {request}")
        first = c.driver.find_element(By.CSS_SELECTOR, "ol.activity > li")
        assert first.find_element(By.CSS_SELECTOR, ".title").text.startswith("GET"), "newest first: the read again"
        for lang in ("en", "cn"):
            c.driver.find_element(By.CSS_SELECTOR, f'input[name="oplog-lang"][value="{lang}"]').click()
            shown = [e.text for e in card.find_elements(By.CSS_SELECTOR, "li.oplog .text") if e.is_displayed()]
            assert texts[lang][0] in shown, f"{lang}: {shown}"
        exchanges = card.find_elements(By.CSS_SELECTOR, "li.exchange")
        assert exchanges, "the card shows no service exchange"
        c.driver.find_element(By.CSS_SELECTOR, 'input[name="oplog-lang"][value="en"]').click()

    def limits(self, schema):
        name = schema.get("x-capability-range")
        if name:
            ranges = self.host.json("/api/isp/Capability?ChannelId=101")["basicInfos"][name]
            return str(ranges["begin"]), str(ranges["end"])
        return str(schema.get("minimum")), str(schema.get("maximum"))

    def value_outside_its_set_is_refused_and_changes_nothing(self):
        c = self.console
        path, schema = member(self.doc, self.thermal["schema"],
                              lambda p, s: s.get("type") == "integer" and len(s.get("enum", [])) > 1)
        assert path, "the Thermal record has no value set"
        values = schema["enum"]
        outside = next(v for v in range(min(values), max(values) + 2) if v not in values)
        c.open(self.thermal["tag"])
        before = self.host.json(self.thermal_block)["hex"]
        select = c.control("Thermal", path)
        shown = Select(select).first_selected_option.text
        assert [o.text for o in Select(select).options if o.text in map(str, values)] == list(map(str, values))
        Select(select).select_by_visible_text("other value…")
        other = c.driver.switch_to.active_element
        other.send_keys(str(outside), Keys.ENTER)
        answer = c.answer("Thermal")
        assert re.fullmatch(r"HTTP 4\d\d · StatusCode [1-9]\d* · .+", answer), answer
        assert self.host.json(self.thermal_block)["hex"] == before, "the device changed"
        assert Select(select).first_selected_option.text == shown, "the form does not show what the device holds"
        note = c.form("Thermal").find_element(By.CSS_SELECTOR, "p.note").text
        assert "still holds" in note, note

    def fault_armed_from_the_console_fails_the_next_read_until_cleared(self):
        c = self.console
        c.open(self.thermal["tag"])
        service, command, channel = re.fullmatch(r"/_sim/(isp|control)/(\d+)(?:/(\d+))?", self.thermal_block).groups()
        faults = c.driver.find_element(By.ID, "faults")
        Select(faults.find_element(By.NAME, "service")).select_by_value(service)
        faults.find_element(By.NAME, "command").send_keys(command)
        if channel:
            faults.find_element(By.NAME, "channel").send_keys(channel)
        Select(faults.find_element(By.NAME, "kind")).select_by_value("sendFailure")
        c.button(faults, "Arm").click()
        armed = faults.find_element(By.CSS_SELECTOR, "ul.armed")
        c.wait(lambda: f"command {command}" in armed.text, "the armed fault to be listed")
        assert self.host.json("/_sim/faults")[service], "the host has no fault armed"
        c.button(c.form("Thermal"), "Read").click()
        answer = c.answer("Thermal")
        assert answer.startswith("Read: HTTP 5"), answer
        assert "stale" in c.form("Thermal").get_attribute("class").split(), "the failed read is not marked"
        c.button(faults, "Clear all").click()
        c.wait(lambda: armed.text == "none armed", "the faults to be cleared")
        c.button(c.form("Thermal"), "Read").click()
        assert c.answer("Thermal") == "Read: HTTP 200", c.answer("Thermal")
        assert "stale" not in c.form("Thermal").get_attribute("class").split()

    def reset_asks_first(self):
        c = self.console
        name, r = next((n, r) for n, r in self.resources.items() if r["ops"].get("put", {}).get("x-confirm"))
        c.open(r["tag"])
        journal = len(self.host.json("/_sim/journal")["entries"])
        form = c.settled(name)
        action = form.find_element(By.CSS_SELECTOR, 'button[type="submit"]')
        action.click()
        dialog = c.driver.find_element(By.ID, "confirm")
        c.wait(lambda: dialog.get_attribute("open") is not None, "the confirmation")
        c.screenshot("confirmation.png")
        assert len(self.host.json("/_sim/journal")["entries"]) == journal, "sent before confirming"
        c.driver.switch_to.active_element.send_keys(Keys.ESCAPE)
        assert c.answer(name) == "Cancelled: nothing sent.", c.answer(name)
        assert len(self.host.json("/_sim/journal")["entries"]) == journal, "sent after cancelling"
        action.click()
        c.wait(lambda: dialog.get_attribute("open") is not None, "the confirmation")
        c.button(dialog, "Confirm").click()
        assert c.answer(name) == "HTTP 200 · StatusCode 0 · OK", c.answer(name)
        assert len(self.host.json("/_sim/journal")["entries"]) > journal, "confirmed, but nothing reached the device"

    def weights_edited_in_their_grid(self):
        c = self.console
        for name, r in self.resources.items():
            if "put" not in r["ops"] or r["schema"] is None:
                continue
            record = self.host.json(r["path"] + r["query"])
            path, _ = member(self.doc, r["schema"], lambda p, s: s.get("type") == "string")
            if not path:
                continue
            text = record
            for key in path:
                text = text[key]
            if re.fullmatch(r"[0-9]{16,}", text):
                break
        else:
            raise AssertionError("no resource holds a text of digits")
        c.open(r["tag"])
        cells = c.form(name).find_elements(By.CSS_SELECTOR, ".digit-grid .cell")
        assert "".join(cell.get_attribute("value") for cell in cells) == text, "the grid differs from the text"
        columns = int(c.form(name).find_element(By.CSS_SELECTOR, ".digit-grid")
                      .value_of_css_property("grid-template-columns").count("px"))
        cells[0].click()
        c.driver.switch_to.active_element.send_keys(Keys.ARROW_DOWN)
        assert c.driver.switch_to.active_element == cells[columns], "the down arrow does not move a row down"
        last = len(cells) - 1
        digit = "2" if text[last] != "2" else "3"
        cells[last].click()
        c.driver.switch_to.active_element.send_keys(digit)
        c.button(c.form(name), "Apply").click()
        assert c.answer(name) == "HTTP 200 · StatusCode 0 · OK", c.answer(name)
        now = self.host.json(r["path"] + r["query"])
        for key in path:
            now = now[key]
        assert now == text[:last] + digit, f"the device holds {now}"

    def readable_in_400_px(self):
        c = self.console
        c.viewport(400, 800)
        try:
            c.open(self.thermal["tag"])
            width = c.driver.execute_script("return document.documentElement.scrollWidth")
            assert width <= 400, f"the page is {width} px wide"
            c.screenshot("console-400x800.png")
            c.viewport(400, c.driver.execute_script("return document.documentElement.scrollHeight"))
            c.screenshot("console-400-full.png")
        finally:
            c.viewport(1280, 800)


CHECKS = [
    Checks.console_files_served_with_their_types,
    Checks.opens_with_every_group_and_resource,
    Checks.brightness_applied_changes_exactly_its_word_and_logs,
    Checks.value_outside_its_set_is_refused_and_changes_nothing,
    Checks.fault_armed_from_the_console_fails_the_next_read_until_cleared,
    Checks.reset_asks_first,
    Checks.weights_edited_in_their_grid,
    Checks.readable_in_400_px,
]


def main():
    args = sys.argv[1:]
    url = None
    if "--url" in args:
        url = args[args.index("--url") + 1]
        del args[args.index("--url"):args.index("--url") + 2]
    build = args[0] if args else "build/default"
    out = os.path.join(build, "browser")
    os.makedirs(out, exist_ok=True)
    try:
        host = Host(build, out, url)
    except SystemExit as end:
        if end.code == NO_FUSE:
            print("browser: no FUSE on this machine, nothing checked")
            print("0 passed, 0 failed")
            return 0
        raise
    console = None
    passed = failed = 0
    try:
        console = Console(host, out)
        checks = Checks(host, console)
        for check in CHECKS:
            name = check.__name__
            host.call("DELETE", "/_sim/faults")
            host.call("POST", "/_sim/reset")
            start = time.monotonic()
            try:
                check(checks)
                passed += 1
                print(f"ok     {name} ({time.monotonic() - start:.1f} s)")
            except Exception:  # a failed check is reported and the next one runs
                failed += 1
                print(f"FAILED {name}\n{traceback.format_exc()}")
                console.screenshot(f"failed-{name}.png")
    except Exception:
        failed += 1
        print(f"FAILED setup\n{traceback.format_exc()}")
    finally:
        if console:
            console.quit()
        host.stop()
    print(f"screenshots in {out}")
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
