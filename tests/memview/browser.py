"""A headless Chromium, driven through its own driver by the WebDriver protocol; nothing but the standard library."""

import json
import re
import shutil
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

CHROMIUM_FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                  "--disable-background-networking", "--disable-component-update", "--disable-sync"]


class Browser:
    """Must be quit at the end."""

    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="memview-browser-")
        self.downloads = tempfile.mkdtemp(prefix="memview-downloads-")
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True,
                                       stderr=subprocess.DEVNULL)
        flags = CHROMIUM_FLAGS + [f"--user-data-dir={self.profile}"]
        wanted = {"goog:chromeOptions": {"args": flags}, "goog:loggingPrefs": {"browser": "ALL"}}
        try:
            self.base = f"http://127.0.0.1:{self._port()}"
            session = self._call("POST", "/session", {"capabilities": {"alwaysMatch": wanted}})
        except Exception:
            self.close()
            raise
        self.base += "/session/" + session["sessionId"]
        self.devtools("Network.enable")
        self.devtools("Network.emulateNetworkConditions", offline=True, latency=0, downloadThroughput=0,
                      uploadThroughput=0)
        self.devtools("Browser.setDownloadBehavior", behavior="allow", downloadPath=self.downloads)

    def quit(self):
        try:
            self._call("DELETE", "")
        finally:
            self.close()

    def close(self):
        self.driver.terminate()
        self.driver.communicate()
        shutil.rmtree(self.profile, ignore_errors=True)
        shutil.rmtree(self.downloads, ignore_errors=True)

    def _port(self):
        """Where the driver listens once it is ready, by its own choice."""
        for line in self.driver.stdout:
            if told := re.search(r"successfully on port (\d+)", line):
                return told[1]
        raise RuntimeError("chromedriver does not start")

    def _call(self, method, path, body=None):
        payload = None if method != "POST" else json.dumps(body or {}).encode()
        request = urllib.request.Request(self.base + path, data=payload, method=method,
                                         headers={"Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def open(self, path):
        self._call("POST", "/url", {"url": f"file://{path}"})

    def run(self, script, *arguments):
        """The value of a JavaScript expression, which sees its arguments as `arguments`."""
        return self._call("POST", "/execute/sync", {"script": f"return ({script});", "args": list(arguments)})

    def wait_for(self, script, *arguments):
        """Waits until a JavaScript expression is true; what follows an event may take the page a frame or two."""
        deadline = time.time() + 10
        while not self.run(script, *arguments):
            if time.time() > deadline:
                raise AssertionError(f"never became true: {script}")
            time.sleep(0.02)

    def devtools(self, command, **parameters):
        return self._call("POST", "/goog/cdp/execute", {"cmd": command, "params": parameters})

    def errors(self):
        """What the page has written to its console since the last call, if it was worse than a word of advice."""
        return [entry["message"] for entry in self._call("POST", "/se/log", {"type": "browser"})
                if entry["level"] in ("SEVERE", "WARNING")]

    def key(self, text):
        """A key pressed and released on the element that has the focus."""
        self._call("POST", "/actions", {"actions": [{"type": "key", "id": "keyboard", "actions": [
            {"type": "keyDown", "value": text}, {"type": "keyUp", "value": text}]}]})

    def drag(self, start, end):
        """The left button pressed at one point of the window and released at another."""
        self._call("POST", "/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "duration": 0, "x": start[0], "y": start[1]},
            {"type": "pointerDown", "button": 0},
            {"type": "pointerMove", "duration": 100, "x": end[0], "y": end[1]},
            {"type": "pointerUp", "button": 0}]}]})

    def click(self, x, y):
        self.drag((x, y), (x, y))

    def resize(self, width, height):
        self._call("POST", "/window/rect", {"width": width, "height": height})

    def dark(self, on):
        self.devtools("Emulation.setEmulatedMedia",
                      features=[{"name": "prefers-color-scheme", "value": "dark" if on else "light"}])
