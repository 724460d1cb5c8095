"""A Chromium without a window, driven through chromedriver by the WebDriver protocol (www.w3.org/TR/webdriver2), with the standard
library alone."""
import base64
import json
import os
import pathlib
import shutil
import subprocess
import time
import urllib.error
import urllib.request

FLAGS = ["--headless=new", "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--hide-scrollbars", "--no-first-run",
         "--force-device-scale-factor=1", "--disable-dev-shm-usage"]
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"
KEYS = {"up": "\ue013", "left": "\ue012", "right": "\ue014", "tab": "\ue004", "shift": "\ue008", "end": "\ue010"}


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

    def run(self, script, *arguments, kind="sync"):
        return self.call("POST", f"execute/{kind}", {"script": script, "args": list(arguments)})

    # Waits for frames that were asked for.
    def settle(self, seconds=0.0):
        time.sleep(seconds)
        self.run("requestAnimationFrame(() => requestAnimationFrame(arguments[0]))", kind="async")

    def command(self, name, **parameters):
        return self.call("POST", "goog/cdp/execute", {"cmd": name, "params": parameters})

    def logs(self, kind):
        return self.call("POST", "se/log", {"type": kind})

    def screenshot(self):
        return base64.b64decode(self.call("GET", "screenshot"))

    def pixels(self):
        return Picture(self, self.screenshot())

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
    """A PNG as a browser decodes it."""

    def __init__(self, browser, data):
        script = """const [png, done] = arguments, reader = new FileReader();
            const image = new Image(), canvas = document.createElement('canvas');
            reader.onload = () => done([canvas.width, canvas.height, reader.result.split(',')[1]]);
            image.onload = () => {
                [canvas.width, canvas.height] = [image.width, image.height];
                const context = canvas.getContext('2d');
                context.drawImage(image, 0, 0);
                reader.readAsDataURL(new Blob([context.getImageData(0, 0, image.width, image.height).data])); };
            image.src = 'data:image/png;base64,' + png;"""
        self.width, self.height, pixels = browser.run(script, base64.b64encode(data).decode(), kind="async")
        self.data = base64.b64decode(pixels)

    def at(self, x, y):
        place = 4 * (int(y) * self.width + int(x))
        return tuple(self.data[place:place + 3])

    def differences(self, other, left, top, right, bottom):
        """Pixels that differ in a part of both."""
        return sum(self.at(x, y) != other.at(x, y) for y in range(top, bottom, 2) for x in range(left, right, 2))
