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
import urllib.request

from selenium import webdriver
from selenium.common.exceptions import TimeoutException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common import utils
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select, WebDriverWait

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "common"))
from devhost import Host, NoFuse, Tally  # noqa: E402 (found through the path above)

CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
CHROMIUM_ARGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync"]
WAIT_S = 20


def start_host(build, out, *args, listen="127.0.0.1:0", log="host.log"):
    """The development host of the build BUILD_DIR, its log in OUT_DIR/LOG."""
    return Host(os.path.join(build, "devhost", "ispiaas-devhost"), *args, listen=listen, log=os.path.join(out, log),
                timeout=WAIT_S)


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

    def shots(self, name, focus=None):
        """NAME-1280x800.png of the page as it is, and NAME-400x800.png of it
        400 px wide with `focus` scrolled into view."""
        self.screenshot(f"{name}-1280x800.png")
        scrolled = self.driver.execute_script("return [scrollX, scrollY]")
        self.viewport(400, 800)
        try:
            if focus is not None:
                self.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", focus)
            width = self.driver.execute_script("return document.documentElement.scrollWidth")
            assert width <= 400, f"{name}: the page is {width} px wide at 400 px"
            self.screenshot(f"{name}-400x800.png")
        finally:
            self.viewport(1280, 800)
            self.driver.execute_script("scrollTo(arguments[0], arguments[1])", *scrolled)

    def keys(self, *keys):
        """Keys as a person types them, to whatever has the focus."""
        ActionChains(self.driver).send_keys(*keys).perform()

    def chord(self, modifier, key):
        """A key pressed while a modifier is held."""
        ActionChains(self.driver).key_down(modifier).send_keys(key).key_up(modifier).perform()

    def active(self):
        return self.driver.switch_to.active_element

    def card(self, request):
        """The newest live card of `request` ("PUT /api/isp/...")."""
        return self.wait(lambda: next((k for k in self.driver.find_elements(By.CSS_SELECTOR, "ol.activity > li")
                                       if request in k.find_element(By.CSS_SELECTOR, ".title").text), None),
                         f"a live card of {request}")

    def in_view(self, element):
        """Whether the element is wholly inside the window, as the page is scrolled now."""
        return self.driver.execute_script(
            "const r = arguments[0].getBoundingClientRect();"
            "return r.top >= 0 && r.left >= 0 && r.bottom <= innerHeight && r.right <= innerWidth;", element)

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
        self.faults = self.doc["paths"]["/_sim/faults"]["post"]["x-fault-table"]

    def console_files_served_with_their_types(self):
        for path, kind in (("/", "text/html"), ("/console/main.js", "text/javascript"),
                           ("/console/style.css", "text/css")):
            with urllib.request.urlopen(self.host.url + path, timeout=WAIT_S) as response:
                assert response.headers.get_content_type() == kind, f"{path}: {response.headers['Content-Type']}"
        for method, path, status in (("GET", "/console/../CMakeLists.txt", 404), ("GET", "/console/nothing.js", 404),
                                     ("PUT", "/", 405)):
            got, body = self.host.call_json(method, path, "{}" if method == "PUT" else None)
            assert got == status and list(body) == ["error"] and body["error"]["status"] == status, \
                f"{method} {path}: {got} {body}"

    def opens_with_every_group_and_resource(self):
        c = self.console
        tags = [t["name"] for t in self.doc["tags"] if any(r["tag"] == t["name"] for r in self.resources.values())]
        first = tags[0]
        c.open(first)
        shown = [b.text for b in c.driver.find_elements(By.CSS_SELECTOR, "#groups [role=tab]")]
        assert shown == tags, f"groups {shown}, the document's tags {tags}"
        forms = sorted(f.get_attribute("data-resource") for f in c.driver.find_elements(By.CSS_SELECTOR, "form.resource"))
        assert forms == sorted(self.resources), f"forms {forms}"
        for name, r in self.resources.items():
            if r["tag"] == first and "get" in r["ops"]:
                assert c.answer(name).startswith("Read: HTTP 200"), f"{name}: {c.answer(name)}"
        link = c.driver.find_element(By.CSS_SELECTOR, "header.page a.document")
        assert link.get_attribute("href") == self.host.url + "/openapi.json", link.get_attribute("href")
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
        # The page as the README shows it: the form from its top, the PUT's
        # write in sight in the live list.
        write = next(e for e in c.card("PUT " + self.thermal["path"]).find_elements(By.CSS_SELECTOR, "li.exchange")
                     if " write" in e.text)
        c.driver.execute_script("scrollTo(0, 0);"
                                "arguments[0].closest('.live-scroll').scrollTop = arguments[0].offsetTop - 40", write)
        c.screenshot("console-1280x800.png")

    def log_panel_shows_the_entry(self, request, mark):
        """The card of `request` shows the first operation-log entry logged
        after `mark`, in either language, with its sequence number."""
        c = self.console
        lines = [l for l in self.host.json("/_sim/log")["lines"] if l["seq"] > mark]
        texts = {lang: [l["text"] for l in lines if l.get("lang") == lang] for lang in ("en", "cn")}
        assert texts["en"] and texts["cn"], "the host logged no operation-log entry"
        card = c.card(request)
        first = c.driver.find_element(By.CSS_SELECTOR, "ol.activity > li")
        assert first.find_element(By.CSS_SELECTOR, ".title").text.startswith("GET"), "newest first: the read again"
        for lang in ("en", "cn"):
            c.driver.find_element(By.CSS_SELECTOR, f'input[name="oplog-lang"][value="{lang}"]').click()
            rows = [e for e in card.find_elements(By.CSS_SELECTOR, "li.oplog") if e.is_displayed()]
            shown = [e.find_element(By.CSS_SELECTOR, ".text").text for e in rows]
            assert texts[lang][0] in shown, f"{lang}: {shown}"
            seq = next(l["seq"] for l in lines if l.get("lang") == lang and l["text"] == texts[lang][0])
            tag = rows[shown.index(texts[lang][0])].find_element(By.CSS_SELECTOR, ".tag").text
            assert f"#{seq}" in tag, f"{lang}: the row {tag!r} does not name log line {seq}"
        exchanges = card.find_elements(By.CSS_SELECTOR, "li.exchange")
        assert exchanges, "the card shows no service exchange"
        c.driver.find_element(By.CSS_SELECTOR, 'input[name="oplog-lang"][value="en"]').click()

    def limits(self, schema):
        name = schema.get("x-capability-range")
        if name:
            ranges = self.host.json("/api/isp/Capability?ChannelId=101")["basicInfos"][name]
            return str(ranges["begin"]), str(ranges["end"])
        return str(schema.get("minimum")), str(schema.get("maximum"))

    # -- a client developer new to the API: a change confirmed by what the device got

    def change_confirmed_by_the_decoded_exchange(self):
        c = self.console
        # A resource the control process keeps, with a number of no value set.
        name, r, path = next((n, r, p) for n, r in self.resources.items()
                             if "put" in r["ops"] and r["schema"] and (r["device"] or "").startswith("/_sim/control/")
                             for p, s in [member(self.doc, r["schema"],
                                                 lambda p, s: s.get("type") == "integer" and "enum" not in s)] if p)
        c.open(r["tag"])
        form = c.settled(name)
        # The card carries the document's words: what the resource is, its
        # ChannelId rule, and a link to it in the document.
        header = form.find_element(By.TAG_NAME, "header").text
        assert resolve(self.doc, r["schema"])["description"] in header, header
        channel = next(resolve(self.doc, p) for p in r["ops"]["put"]["parameters"])
        rule = form.find_element(By.CSS_SELECTOR, ".field.channel .hint").text
        assert rule == channel["description"], f"ChannelId rule {rule!r}"
        link = form.find_element(By.CSS_SELECTOR, "a.operation").get_attribute("href")
        assert link == f"{self.host.url}/openapi.json#/paths/{r['path'].replace('/', '~1')}", link
        field = c.control(name, path)
        old = int(field.get_attribute("value"))
        new = old + 20
        field.send_keys(Keys.CONTROL, "a")
        field.send_keys(str(new), Keys.ENTER)
        assert c.answer(name) == "HTTP 200 · StatusCode 0 · OK", c.answer(name)
        held = self.host.json(r["device"])
        assert held["fields"][path[-1]] == new, f"the device holds {held['fields']}"
        # The write in the PUT's card: the value sent, named and marked as
        # changed from what the device held before.
        card = c.card(f"PUT {r['path']}")
        write = next(e for e in card.find_elements(By.CSS_SELECTOR, "li.exchange") if " write" in e.text)
        changed = write.find_elements(By.CSS_SELECTOR, ".value.changed")
        assert [e.get_attribute("data-name") for e in changed] == [path[-1]], [e.text for e in changed]
        assert changed[0].text.split() == [path[-1], str(new), "was", str(old)], changed[0].text
        pre = write.find_element(By.CSS_SELECTOR, "details.bytes pre")
        assert not pre.is_displayed(), "the hex is shown before it is asked for"
        write.find_element(By.CSS_SELECTOR, "details.bytes summary").click()
        assert held["hex"] in pre.text.replace("\n", " "), "the hex differs from what the device holds"
        c.driver.execute_script("arguments[0].scrollIntoView({block: 'center'})", card)
        c.shots("task-developer", card)

    # -- a firmware tester: refusals named, marked and explained

    def refusal_named_marked_and_explained(self):
        c = self.console
        path, schema = member(self.doc, self.thermal["schema"],
                              lambda p, s: s.get("type") == "integer" and len(s.get("enum", [])) > 1)
        assert path, "the Thermal record has no value set"
        values = schema["enum"]
        outside = next(v for v in range(min(values), max(values) + 2) if v not in values)
        c.open(self.thermal["tag"])
        before = self.host.json(self.thermal_block)["hex"]
        select = c.control("Thermal", path)
        held = int(Select(select).first_selected_option.text)
        Select(select).select_by_visible_text("other value…")
        c.active().send_keys(str(outside), Keys.ENTER)
        answer = c.answer("Thermal")
        assert re.fullmatch(r"HTTP 4\d\d · StatusCode [1-9]\d* · .+", answer), answer
        assert self.host.json(self.thermal_block)["hex"] == before, "the device changed"
        form = c.form("Thermal")
        said = f"{path[-1]} {outside} is not one of {', '.join(map(str, values))}"
        problems = form.find_element(By.CSS_SELECTOR, "ul.problems").text
        assert said in problems, problems
        field = select.find_element(By.XPATH, "..")
        assert "refused" in field.get_attribute("class").split(), "the field is not marked"
        assert select.get_attribute("aria-invalid") == "true"
        assert said in field.text and f"the device holds {held}" in field.text, field.text
        other = field.find_element(By.CSS_SELECTOR, "input[type=number]")
        assert other.is_displayed() and other.get_attribute("value") == str(outside), "the refused value is not kept"
        c.shots("task-refusal", field)
        # A refusal no rule of the body explains: the device already holds a
        # value outside the set, and another member is changed. The module's
        # own diagnostic is shown beside the form.
        service, command = re.fullmatch(r"/_sim/(isp|control)/(\d+)(?:/\d+)?", self.thermal_block).groups()
        route = "/_sim/isp/{command}/{channel}" if service == "isp" else "/_sim/control/{code}"
        layout = self.doc["paths"][route]["get"]["x-layouts"][command]
        where = next(f for f in layout if f["name"].split(".")[-1] == path[-1])
        raw = bytearray(bytes.fromhex(before))
        raw[where["offset"]:where["offset"] + where["size"]] = outside.to_bytes(where["size"], "little")
        assert self.host.call("PUT", self.thermal_block, {"hex": raw.hex()})[0] == 200
        mark = max((l["seq"] for l in self.host.json("/_sim/log")["lines"]), default=0)
        c.button(form, "Read").click()
        c.settled("Thermal")
        assert form.find_element(By.CSS_SELECTOR, "ul.problems").text == "", "a read does not clear the refusal"
        assert select.get_attribute("aria-invalid") is None
        bright_path, _ = member(self.doc, self.thermal["schema"], lambda p, s: p[-1] == "brightness")
        bright = c.control("Thermal", bright_path)
        bright.send_keys(Keys.CONTROL, "a")
        bright.send_keys(str(int(bright.get_attribute("value")) + 1), Keys.ENTER)
        assert c.answer("Thermal").startswith("HTTP 4"), c.answer("Thermal")
        errors = [l["text"].strip() for l in self.host.json("/_sim/log")["lines"]
                  if l["seq"] > mark and l["kind"].startswith("diag") and l.get("level", 0) > 0]
        assert errors, "the module gave no diagnostic"
        problems = form.find_element(By.CSS_SELECTOR, "ul.problems").text
        assert all(e in problems for e in errors), f"{problems!r} lacks {errors}"
        assert "no rule of the API document explains it" in form.find_element(By.CSS_SELECTOR, "p.note").text

    # -- a firmware tester: faults at hand, waiting seen

    def fault_armed_seen_and_cleared_without_scrolling(self):
        c = self.console
        c.open(self.thermal["tag"])
        form = c.form("Thermal")
        # A live panel with enough cards to scroll, scrolled down: a new card
        # is counted above, the reader's place kept.
        for _ in range(6):
            c.button(form, "Read").click()
            c.settled("Thermal")
        scroller = c.driver.find_element(By.CSS_SELECTOR, "#live .live-scroll")
        c.driver.execute_script("arguments[0].scrollTop = 400", scroller)
        c.button(form, "Read").click()
        c.settled("Thermal")
        above = c.driver.find_element(By.CSS_SELECTOR, "#live .new-above")
        c.wait(lambda: above.is_displayed() and above.text == "1 new above", "the count of new cards above")
        assert int(c.driver.execute_script("return arguments[0].scrollTop", scroller)) > 400, "the place was lost"
        # The fault: its target chosen by the resource's name.
        service, command = re.fullmatch(r"/_sim/(isp|control)/(\d+)(?:/\d+)?", self.thermal_block).groups()
        faults = c.driver.find_element(By.ID, "faults")
        target = Select(faults.find_element(By.NAME, "target"))
        option = next(o for o in target.options if o.text.startswith("Thermal") or ", Thermal " in o.text)
        assert option.get_attribute("value") == f"{service}:{command}", option.get_attribute("value")
        target.select_by_visible_text(option.text)
        Select(faults.find_element(By.NAME, "kind")).select_by_value("noAnswer")
        c.button(faults, "Arm").click()
        armed = faults.find_element(By.CSS_SELECTOR, "ul.armed")
        c.wait(lambda: "Thermal" in armed.text and "noAnswer" in armed.text, "the armed fault to be listed")
        assert c.driver.find_element(By.ID, "faults-indicator").text == "1 fault armed"
        c.button(form, "Read").click()
        waiting = form.find_element(By.CSS_SELECTOR, "output.waiting")
        limit = next(s for s in self.faults["services"] if s["service"] == service).get("timeoutMs")
        c.wait(lambda: "waiting for the device" in waiting.text, "the form to say it waits")
        c.wait(lambda: re.search(r"· [1-9]\d* s", waiting.text), "the seconds waited")
        if limit:
            assert f"of at most {limit // 1000} s" in waiting.text, waiting.text
        assert c.in_view(waiting) and c.in_view(armed), "the waiting line or the faults are out of sight"
        c.shots("task-fault-waiting", waiting)
        c.button(faults, "Clear all faults").click()
        answer = c.answer("Thermal")
        assert answer.startswith("Read: HTTP 5"), answer
        assert "stale" in form.get_attribute("class").split(), "the failed read is not marked"
        assert "from an earlier read" in form.find_element(By.CSS_SELECTOR, "p.note").text
        c.wait(lambda: armed.text == "none armed", "the faults to be cleared")
        assert not self.host.json("/_sim/faults")[service], "the host still holds the fault"
        assert c.driver.execute_script("return scrollY") == 0, "the page had to be scrolled"
        c.button(form, "Read").click()
        assert c.answer("Thermal") == "Read: HTTP 200", c.answer("Thermal")
        assert "stale" not in form.get_attribute("class").split()

    def reset_asks_first_and_says_what_it_resets(self):
        c = self.console
        # The operation that asks first and takes no channel: restore defaults.
        name, r = next((n, r) for n, r in self.resources.items() if r["ops"].get("put", {}).get("x-confirm") and
                       not any(resolve(self.doc, p).get("required") for p in r["ops"]["put"].get("parameters", [])))
        c.open(r["tag"])
        journal = len(self.host.json("/_sim/journal")["entries"])
        form = c.settled(name)
        action = form.find_element(By.CSS_SELECTOR, 'button[type="submit"]')
        action.click()
        dialog = c.driver.find_element(By.ID, "confirm")
        c.wait(lambda: dialog.get_attribute("open") is not None, "the confirmation")
        assert c.active().text == "Cancel", f"{c.active().text!r} has the focus"
        about = dialog.find_element(By.CSS_SELECTOR, ".about").text
        assert about == r["ops"]["put"]["description"], about
        c.shots("task-restore-asks", dialog)
        assert len(self.host.json("/_sim/journal")["entries"]) == journal, "sent before confirming"
        c.keys(Keys.ESCAPE)
        assert c.answer(name) == "Cancelled: nothing sent.", c.answer(name)
        assert len(self.host.json("/_sim/journal")["entries"]) == journal, "sent after cancelling"
        action.click()
        c.wait(lambda: dialog.get_attribute("open") is not None, "the confirmation")
        c.button(dialog, "Confirm").click()
        assert c.answer(name) == "HTTP 200 · StatusCode 0 · OK", c.answer(name)
        entries = self.host.json("/_sim/journal")["entries"]
        assert len(entries) > journal, "confirmed, but nothing reached the device"
        # Its exchange names no channel, in words, with its number.
        exchange = c.card(f"PUT {r['path']}").find_element(By.CSS_SELECTOR, "li.exchange")
        assert f"#{entries[-1]['seq']} " in exchange.text, exchange.text
        if entries[-1]["channel"] is None:
            assert "· no channel ·" in exchange.text, exchange.text

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
        grid = c.form(name).find_element(By.CSS_SELECTOR, "[role=grid]")
        cells = grid.find_elements(By.CSS_SELECTOR, "[role=gridcell]")
        assert "".join(cell.text for cell in cells) == text, "the grid differs from the text"
        assert [cell.get_attribute("tabindex") for cell in cells].count("0") == 1, "the grid is not one tab stop"
        columns = int(grid.value_of_css_property("grid-template-columns").count("px"))
        cells[0].click()
        c.keys(Keys.ARROW_DOWN)
        assert c.active() == cells[columns], "the down arrow does not move a row down"
        c.keys(Keys.END)
        assert c.active() == cells[2 * columns - 1], "End does not move to the row's end"
        c.chord(Keys.CONTROL, Keys.END)
        last = len(cells) - 1
        assert c.active() == cells[last], "Ctrl+End does not move to the last cell"
        digit = "2" if text[last] != "2" else "3"
        c.keys(digit)
        c.button(c.form(name), "Apply").click()
        assert c.answer(name) == "HTTP 200 · StatusCode 0 · OK", c.answer(name)
        now = self.host.json(r["path"] + r["query"])
        for key in path:
            now = now[key]
        assert now == text[:last] + digit, f"the device holds {now}"

    # -- a keyboard-only user, also at 400 px and 200% zoom

    def keyboard_from_the_group_to_the_lock_switch(self):
        c = self.console
        # The resource with a flag and no read: its switch has never been read.
        name, r, path = next((n, r, p) for n, r in self.resources.items() if "get" not in r["ops"]
                             for p, _ in [member(self.doc, resolve(self.doc, r["ops"]["put"]["requestBody"])
                                                 ["content"]["application/json"]["schema"],
                                                 lambda p, s: s.get("type") == "boolean")] if p)
        c.open(r["tag"])
        target = c.control(name, path)
        state = target.find_element(By.XPATH, "following-sibling::span[@class='switch-state']")
        assert state.text.startswith("not set"), f"the switch says {state.text!r} before any change"
        assert target.get_attribute("aria-checked") is None and c.driver.execute_script(
            "return arguments[0].indeterminate", target), "the switch does not show its unknown state"
        tab = next(t for t in c.driver.find_elements(By.CSS_SELECTOR, "#groups [role=tab]") if t.text == r["tag"])
        c.driver.execute_script("arguments[0].focus()", tab)
        keys = 0
        while c.active() != target and keys < 40:
            c.keys(Keys.TAB)
            keys += 1
        assert c.active() == target and keys < 20, f"{keys} keys from the group to the switch"
        device = self.host.json(r["device"])["hex"] if r["device"] else None
        c.keys(Keys.SPACE)
        assert state.text == "on", state.text
        c.keys(Keys.ENTER)
        assert c.answer(name) == "HTTP 200 · StatusCode 0 · OK", c.answer(name)
        if device is not None:
            assert self.host.json(r["device"])["hex"] != device, "the device did not change"
        c.shots("task-keyboard", target)
        # 200% zoom: the sticky buttons take one thin line.
        c.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                 {"width": 640, "height": 400, "deviceScaleFactor": 2, "mobile": False})
        try:
            c.open(self.thermal["tag"])
            bar = c.form("Thermal").find_element(By.CSS_SELECTOR, ".actions")
            height = bar.size["height"]
            assert height <= 40, f"the sticky bar is {height} px of 400"
            width = c.driver.execute_script("return document.documentElement.scrollWidth")
            assert width <= 640, f"the page is {width} px wide at 200%"
            c.screenshot("task-keyboard-zoom200.png")
        finally:
            c.viewport(1280, 800)

    def choices_kept_and_descriptions_whole(self):
        c = self.console
        c.open(self.thermal["tag"])
        c.driver.find_element(By.CSS_SELECTOR, 'input[name="oplog-lang"][value="cn"]').click()
        c.open(self.thermal["tag"])
        chosen = c.driver.find_element(By.CSS_SELECTOR, 'input[name="oplog-lang"]:checked').get_attribute("value")
        c.driver.find_element(By.CSS_SELECTOR, 'input[name="oplog-lang"][value="en"]').click()
        assert chosen == "cn", f"after a reload the language is {chosen}"
        for width in (1280, 400):
            c.viewport(width, 800)
            try:
                cut = c.driver.execute_script(
                    "return [...document.querySelectorAll('.hint')].filter((h) => h.offsetParent !== null &&"
                    " h.scrollHeight > h.clientHeight + 1).map((h) => h.textContent)")
                assert not cut, f"descriptions cut at {width} px: {cut}"
            finally:
                c.viewport(1280, 800)

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

    # -- a host listening beyond loopback: entered from its page

    def token_host_entered_from_its_page(self):
        c = self.console
        out = c.out
        build = os.path.dirname(out)
        first = start_host(build, out, listen="0.0.0.0:0", log="host-token.log")
        second = None
        try:
            urls = re.findall(r"http://[^\s']+", first.banner)
            assert urls and all("0.0.0.0" not in u for u in urls), f"the banner prints {urls}"
            assert urls[0].startswith("http://127.0.0.1:") and f"?token={first.token}" in urls[0], urls[0]
            port = first.url.rsplit(":", 1)[1]
            c.driver.get("about:blank")
            c.driver.get(f"{first.url}/")
            field = c.wait(lambda: c.driver.find_elements(By.CSS_SELECTOR, "form.way-in input[name=token]"),
                           "the way-in page")[0]
            assert "access token" in c.driver.title.lower(), c.driver.title
            assert c.active() == field, "the token field does not have the focus"
            c.shots("task-token-way-in", field)
            # A person pastes the whole URL the banner printed.
            c.keys(urls[0], Keys.ENTER)
            c.wait(lambda: c.driver.find_element(By.TAG_NAME, "body").get_attribute("data-ready") == "true",
                   "the console to start")
            assert c.driver.current_url == f"{first.url}/", f"the address still holds the token: {c.driver.current_url}"
            access = c.driver.find_element(By.ID, "access")
            assert access.is_displayed() and access.text.startswith("Token mode"), access.text
            c.shots("task-token-console", access)
            # The host starts again with another token: the console says what to do.
            first.stop()
            second = start_host(build, out, "--token", "another-token-of-the-test", listen=f"0.0.0.0:{port}",
                                log="host-token.log")
            alert = c.driver.find_element(By.ID, "host-alert")
            c.wait(lambda: alert.is_displayed(), "the console to see that its token is refused")
            assert "Open the URL" in alert.text, alert.text
            c.shots("task-token-changed", alert)
            c.driver.get(f"{second.url}/")
            reason = c.wait(lambda: c.driver.find_elements(By.CSS_SELECTOR, "p.reason"), "the way-in page")[0]
            assert "no longer takes" in reason.text, reason.text
        finally:
            first.stop()
            if second:
                second.stop()


def fresh(host):
    """The device as it starts, with no fault armed: what each check begins with."""
    host.call("DELETE", "/_sim/faults")
    host.call("POST", "/_sim/reset")


CHECKS = [
    Checks.console_files_served_with_their_types,
    Checks.opens_with_every_group_and_resource,
    Checks.brightness_applied_changes_exactly_its_word_and_logs,
    Checks.change_confirmed_by_the_decoded_exchange,
    Checks.refusal_named_marked_and_explained,
    Checks.fault_armed_seen_and_cleared_without_scrolling,
    Checks.reset_asks_first_and_says_what_it_resets,
    Checks.weights_edited_in_their_grid,
    Checks.keyboard_from_the_group_to_the_lock_switch,
    Checks.choices_kept_and_descriptions_whole,
    Checks.readable_in_400_px,
    Checks.token_host_entered_from_its_page,
]


def main():
    args = sys.argv[1:]
    url = None
    if "--url" in args:
        url = args[args.index("--url") + 1]
        del args[args.index("--url"):args.index("--url") + 2]
    only = None
    if "--only" in args:
        only = args[args.index("--only") + 1].split(",")
        del args[args.index("--only"):args.index("--only") + 2]
    build = args[0] if args else "build/default"
    out = os.path.join(build, "browser")
    os.makedirs(out, exist_ok=True)
    try:
        host = Host(url=url, timeout=WAIT_S) if url else start_host(build, out)
    except NoFuse:
        print("browser: no FUSE on this machine, nothing checked")
        print("0 passed, 0 failed")
        return 0
    console = None
    tally = Tally()
    try:
        console = Console(host, out)
        tally.run([c for c in CHECKS if not only or c.__name__ in only], Checks(host, console),
                  before_each=lambda: fresh(host), on_failure=lambda name: console.screenshot(f"failed-{name}.png"))
    except Exception:
        tally.setup_failed()
    finally:
        if console:
            console.quit()
        host.stop()
    print(f"screenshots in {out}")
    print(tally.line())
    return tally.status()


if __name__ == "__main__":
    sys.exit(main())
