"""A Chromium without a window, driven through chromedriver by the WebDriver protocol (www.w3.org/TR/webdriver2), with the standard
library alone."""
import base64
import json
import os
import pathlib
import shutil
import struct
import subprocess
import time
import urllib.error
import urllib.request
import zlib

FLAGS = ["--headless=new", "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--hide-scrollbars", "--no-first-run",
         "--force-device-scale-factor=1", "--disable-dev-shm-usage"]
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"up": "\ue013", "down": "\ue015", "left": "\ue012", "right": "\ue014", "tab": "\ue004", "enter": "\ue007", "shift": "\ue008",
        "home": "\ue011", "end": "\ue010"}


def missing_programs():
    return [name for name in ("chromium", "chromedriver") if not shutil.which(name)]


class Browser:
    def __init__(self, width=1280, height=720, flags=()):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        for line in self.driver.stdout:
            if "started successfully on port" in line:
                self.port = int(line.split("port")[-1].strip(" .\n"))
                break
        flags = [*FLAGS, f"--window-size={width},{height}", *flags, *(["--no-sandbox"] if os.geteuid() == 0 else [])]
        options = {"args": flags, "binary": shutil.which("chromium")}
        wanted = {"browserName": "chrome", "goog:chromeOptions": options,
                  "goog:loggingPrefs": {"browser": "ALL", "performance": "ALL"}}
        self.session = ""
        self.session = self.call("POST", "session", {"capabilities": {"alwaysMatch": wanted}})["sessionId"]

    def call(self, method, path, body=None):
        prefix = f"/session/{self.session}/" if self.session else "/"
        data = json.dumps(body or {}).encode() if method == "POST" else None
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{prefix}{path}".rstrip("/"), data=data, method=method)
        try:
            return json.load(urllib.request.urlopen(request, timeout=60))["value"]
        except urllib.error.HTTPError as error:
            raise RuntimeError(json.load(error)["value"]["message"]) from None

    def close(self):
        try:
            self.call("DELETE", "")
        finally:
            self.driver.terminate()
            self.driver.wait()

    def open(self, path):
        self.call("POST", "url", {"url": pathlib.Path(path).absolute().as_uri()})

    def run(self, script, *arguments):
        return self.call("POST", "execute/sync", {"script": script, "args": list(arguments)})

    # Waits for frames that were asked for.
    def settle(self, seconds=0.0):
        time.sleep(seconds)
        self.call("POST", "execute/async", {"script": "const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(done));",
                                            "args": []})

    def command(self, name, **parameters):
        return self.call("POST", "goog/cdp/execute", {"cmd": name, "params": parameters})

    def logs(self, kind):
        return self.call("POST", "se/log", {"type": kind})

    def screenshot(self):
        return base64.b64decode(self.call("GET", "screenshot"))

    def pixels(self):
        return Picture(self.screenshot())

    def act(self, device, actions):
        self.call("POST", "actions", {"actions": [{"type": device, "id": device, "actions": actions}]})

    def press(self, *keys):
        self.act("key", [{"type": kind, "value": KEYS.get(key, key)} for key in keys for kind in ("keyDown", "keyUp")])

    def chord(self, held, key):
        turns = [("keyDown", held), ("keyDown", key), ("keyUp", key), ("keyUp", held)]
        self.act("key", [{"type": kind, "value": KEYS.get(name, name)} for kind, name in turns])

    def click(self, x, y):
        self.drag((x, y))

    def hover(self, x, y):
        self.act("pointer", [{"type": "pointerMove", "duration": 0, "x": int(x), "y": int(y)}])

    # Pressed at the first place, released at the last one.
    def drag(self, *places):
        moves = [{"type": "pointerMove", "duration": 0, "x": int(x), "y": int(y)} for x, y in places]
        down, up = ({"type": kind, "button": 0} for kind in ("pointerDown", "pointerUp"))
        self.act("pointer", [moves[0], down, *moves[1:], up])


class Picture:
    """Rows of a PNG of 8 bits a channel without interlacing (www.w3.org/TR/png)."""

    def __init__(self, data):
        assert data.startswith(b"\x89PNG"), data[:20]
        self.width, self.height, depth, colour = struct.unpack(">IIBB", data[16:26])
        assert depth == 8 and colour in (2, 6)
        channels, compressed, at = {2: 3, 6: 4}[colour], b"", 8
        while at < len(data):
            length, kind = struct.unpack(">I4s", data[at:at + 8])
            compressed += data[at + 8:at + 8 + length] if kind == b"IDAT" else b""
            at += 12 + length
        raw, stride = zlib.decompress(compressed), channels * self.width
        self.rows, before = [], bytearray(stride)
        for y in range(self.height):
            line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
            self.unfilter(raw[y * (stride + 1)], line, before, channels)
            self.rows.append(line)
            before = line
        self.channels = channels

    @staticmethod
    def unfilter(kind, line, before, channels):
        if kind == 2:
            line[:] = bytes((one + other) & 255 for one, other in zip(line, before))
            return
        for i in range(len(line) if kind else 0):
            left = line[i - channels] if i >= channels else 0
            up, corner = before[i], before[i - channels] if i >= channels else 0
            if kind == 4:
                guess = left + up - corner
                best = min((abs(guess - left), 0, left), (abs(guess - up), 1, up), (abs(guess - corner), 2, corner))[2]
            else:
                best = (0, left, up, (left + up) // 2)[kind]
            line[i] = (line[i] + best) & 255

    def at(self, x, y):
        return tuple(self.rows[int(y)][self.channels * int(x):self.channels * int(x) + 3])

    def differences(self, other, left, top, right, bottom):
        """Pixels that differ in a part of both."""
        return sum(self.at(x, y) != other.at(x, y) for y in range(top, bottom, 2) for x in range(left, right, 2))
