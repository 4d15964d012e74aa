#!/usr/bin/python3
"""The live page in a real browser, on simulated cameras: what a person sees and does there.

Run as: browser_test.py MEDIAGRABBER [TEST...]. With SCREENSHOTS=DIR in the environment, each state is kept there as a picture.
"""
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

PATIENCE_S = 60  # far above what anything here takes, for a machine that is busy
SHOTS = os.environ.get("SCREENSHOTS")

CAMERA = """[[camera]]
serial = "{serial}"
frame_rate_hz = 20
width = 640
height = 480
exposure_us = 2000
gain_db = 0.0
"""
SWEEP = "[[sweep]]\nafter_seconds = 1\nexposure_us = 2000\nloop = true\n"

MEAN_OF_CANVAS = """
const canvas = document.getElementById("picture");
const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
let sum = 0;
for (let at = 0; at < pixels.length; at += 4) sum += pixels[at];
return sum / (pixels.length / 4);
"""

MOVE_POINTER_TO_MIDDLE = """
const canvas = document.getElementById("picture");
const box = canvas.getBoundingClientRect();
canvas.dispatchEvent(new PointerEvent("pointermove",
  {clientX: box.left + box.width / 2, clientY: box.top + box.height / 2}));
"""

PICTURE_HAS_PIXELS_OF_THE_SCREEN = """
const canvas = document.getElementById("picture");
return canvas.width === Math.round(canvas.clientWidth * devicePixelRatio);
"""


class Run:
    """mediagrabber with the page, on cameras of that description."""

    def __init__(self, program, serials, cameras, more="", options=()):
        self.directory = tempfile.TemporaryDirectory(prefix="browser_test.")
        self.config = pathlib.Path(self.directory.name) / "c.toml"
        self.config.write_text("".join(CAMERA.format(serial=serial) for serial in serials) + more)
        self.process = subprocess.Popen(
            [program, "run", str(self.config), "-F", "sim", "--web", "0", *options],
            env={**os.environ, "SIM_CAMERAS": cameras}, stderr=subprocess.PIPE, text=True)
        self.link = None
        while self.link is None:
            line = self.process.stderr.readline()
            if not line:
                raise RuntimeError("mediagrabber ended before it served")
            found = re.search(r"live page: (\S+)", line)
            self.link = found[1] if found else None
        # Read on, so that it is never held up.
        self.reader = subprocess.Popen(["cat"], stdin=self.process.stderr, stdout=subprocess.DEVNULL)

    def close(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(PATIENCE_S)
        self.process.stderr.close()
        self.reader.wait(PATIENCE_S)
        self.directory.cleanup()


def browser(profile, width=1280, height=1400, dark=False):
    options = Options()
    options.accept_insecure_certs = True
    for argument in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                     "--disable-background-networking", "--disable-component-update", "--disable-sync",
                     "--hide-scrollbars", "--force-prefers-reduced-motion", f"--user-data-dir={profile}",
                     f"--window-size={width},{height}"):
        options.add_argument(argument)
    if dark:
        options.add_argument("--force-dark-mode")
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    if width < 500:  # a window is never so narrow; a phone is
        options.add_experimental_option(
            "mobileEmulation", {"deviceMetrics": {"width": width, "height": height, "pixelRatio": 2.0}})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class LivePage(unittest.TestCase):
    program = ""

    def start(self, serials=("SIM00001",), cameras="serial=SIM00001 sensor=640x480", more="", options=(), **window):
        self.run_of = Run(self.program, serials, cameras, more, options)
        self.addCleanup(self.run_of.close)
        self.page = self.look(**window)

    def look(self, **window):
        profile = tempfile.TemporaryDirectory(prefix="browser_test.", ignore_cleanup_errors=True)
        self.addCleanup(profile.cleanup)
        page = browser(profile.name, **window)
        self.addCleanup(page.quit)
        page.get(self.run_of.link)
        return page

    def wait(self, what, condition):
        deadline = time.monotonic() + PATIENCE_S
        while time.monotonic() < deadline:
            value = condition()
            if value:
                return value
            time.sleep(0.05)
        self.shoot("failed")
        self.fail(f"{what} never happened: {self.page.find_element(By.TAG_NAME, 'body').text[:2000]}")

    def element(self, identity, page=None):
        return (page or self.page).find_element(By.ID, identity)

    def text(self, identity, page=None):
        return self.element(identity, page).text

    def frame(self, selector="#picture", page=None):
        found = (page or self.page).find_elements(By.CSS_SELECTOR, selector)
        return int(found[0].get_attribute("data-frame") or 0) if found else 0

    def open_camera(self, page=None):
        page = page or self.page
        card = ".card canvas"
        self.wait("a picture on the card", lambda: self.frame(card, page))
        page.find_element(By.CSS_SELECTOR, ".card h2 button").click()
        self.wait("a picture", lambda: self.frame(page=page))
        self.wait("controls", lambda: page.find_elements(By.ID, "entry-gamma"))

    def mean(self):
        return self.page.execute_script(MEAN_OF_CANVAS)

    def shoot(self, name):
        if SHOTS:
            pathlib.Path(SHOTS).mkdir(parents=True, exist_ok=True)
            self.page.save_screenshot(f"{SHOTS}/{name}.png")

    def slide(self, key, value):
        self.page.execute_script(
            "const slider = document.getElementById(arguments[0]); slider.value = arguments[1];"
            "slider.dispatchEvent(new Event('input'));", f"slider-{key}", value)

    def apply(self, key, text):
        self.element(f"entry-{key}").clear()
        self.element(f"entry-{key}").send_keys(text)
        self.element("apply").click()

    def assert_no_overflow(self):
        widths = self.page.execute_script("return [document.documentElement.scrollWidth, innerWidth]")
        self.assertLessEqual(widths[0], widths[1])

    def test_a_slider_changes_the_picture_and_keep_has_it(self):
        self.start(more=SWEEP)
        self.open_camera()
        before = self.mean()
        self.slide("exposure_us", 700)
        wanted = float(self.element("entry-exposure_us").get_property("value"))
        self.assertGreater(wanted, 4000)
        self.element("name").send_keys("Anna")
        self.element("apply").click()
        frames = self.wait("the setting read back", lambda: re.search(
            r"^exposure \S+ us, by Anna \(127\.0\.0\.1\): applied before frame (\d+), read back with frame (\d+)",
            self.text("entries"), re.M))
        self.assertLessEqual(int(frames[1]), int(frames[2]))
        self.wait("a brighter picture", lambda: self.mean() > before * 1.3)
        self.assertTrue(self.element("held").is_displayed(), "the sweeps wait")
        self.element("keep").click()
        toml = self.wait("the difference", lambda: self.element("kept-text").get_property("value"))
        self.assertRegex(toml, r'serial = "SIM00001"\nexposure_us = [\d.]+  # was 2000\n$')
        self.assertAlmostEqual(float(re.search(r"exposure_us = ([\d.]+)", toml)[1]), wanted, delta=wanted / 1000)
        self.shoot("desktop")
        self.element("undo").click()
        self.wait("the picture as before", lambda: self.mean() < before * 1.1)
        self.element("resume").click()
        self.wait("the sweeps to go on", lambda: not self.element("held").is_displayed())

    def test_frame_number_and_grey_value_are_those_of_the_recording(self):
        recording = tempfile.TemporaryDirectory(prefix="browser_test.")
        self.addCleanup(recording.cleanup)
        self.start(options=["-r", recording.name, "-f", "raw"])
        self.open_camera()
        self.page.execute_script(MOVE_POINTER_TO_MIDDLE)
        first = self.frame()
        for _ in range(5):
            frame, pointer = self.wait("another picture", lambda: self.page.execute_script(
                "const [first] = arguments, text = (id) => document.getElementById(id).textContent;"
                "return Number(text('frame')) > first && text('pointer') !== '-' && [text('frame'), text('pointer')]",
                first))
            first = int(frame)
            x, y, grey = map(int, re.fullmatch(r"\((\d+), (\d+)\): (\d+)", pointer).groups())
            self.assertEqual((x, y), (320, 240))
            image = pathlib.Path(recording.name) / "SIM00001" / f"{first - 1:09}.raw"
            self.wait("the recorded frame", image.exists)
            self.assertEqual(image.read_bytes()[y * 640 + x], grey)

    def test_works_over_tls(self):
        certificate = str(pathlib.Path(__file__).with_name("certificate.pem"))
        self.start(options=["--web-cert", certificate, "--web-key", certificate])
        self.assertRegex(self.run_of.link, "^https://")
        self.open_camera()
        self.slide("gain_db", 1000)  # its end, a limit of the camera with many digits
        self.element("apply").click()
        self.wait("the gain read back", lambda: re.search(r"^gain 24\S* dB.*read back", self.text("entries"), re.M))

    def test_cameras_that_fail_show_the_reason_and_what_to_do(self):
        self.start(serials=("SIM00001", "SIM00002", "SIM00003"),
                   cameras="serial=SIM00001 sensor=640x480; serial=SIM00003 sensor=640x480 fault=frame:_silent_@20")
        self.wait("the reasons", lambda: re.search(
            r"SIM00002 down: camera 'SIM00002' did not answer.*\ndid you mean.*\n"
            r"SIM00003 down: the camera sends no frames\nlook for a firewall", self.text("failures")))
        self.wait("the other's picture", lambda: self.frame(".card canvas"))
        self.shoot("down")

    def test_missed_frames_are_those_of_the_run(self):
        self.start(cameras="serial=SIM00001 sensor=640x480 fault=frame:_lost_@60_x6")
        self.open_camera()

        def is_same():
            run = re.search(r"(\d+) missed", self.text("detail-words"))
            plot = re.search(r"(\d+) frames missed", self.element("intervals").get_attribute("aria-label") or "")
            return run and plot and int(run[1]) >= 6 and run[1] == plot[1]

        self.wait("the missed frames in the plot", is_same)

    def test_a_phone_scrolls_one_way_only(self):
        self.start(serials=("SIM00001", "SIM00002"),
                   cameras="serial=SIM00001 sensor=640x480\nserial=SIM00002 sensor=640x480", width=360, height=800)
        self.wait("a picture", lambda: self.frame(".card canvas"))
        self.assert_no_overflow()
        self.shoot("phone")
        self.open_camera()
        self.assert_no_overflow()
        self.shoot("phone-detail")

    def test_keys_alone_are_enough(self):
        self.start()
        self.wait("a picture", lambda: self.frame(".card canvas"))
        self.press_until(lambda: self.active("aria-label") == "Open camera SIM00001", Keys.TAB)
        self.press(Keys.ENTER)
        self.wait("controls", lambda: self.page.find_elements(By.ID, "entry-gain_db"))
        self.press_until(lambda: self.active("id") == "picture", Keys.TAB)
        self.wait("a picture", self.frame)
        self.press("+", "+", Keys.ARROW_RIGHT)
        self.press_until(lambda: self.active("id") == "entry-gain_db", Keys.TAB)
        self.press(Keys.CONTROL + "a" + Keys.NULL, "6", Keys.ENTER)
        self.wait("the gain read back", lambda: re.search(r"^gain 6 dB.*read back with frame", self.text("entries"), re.M))
        self.press(Keys.ESCAPE)
        self.wait("the cards", lambda: self.element("cards").is_displayed())
        self.assertEqual(self.active("aria-label"), "Open camera SIM00001")

    def press(self, *keys):
        for key in keys:
            webdriver.ActionChains(self.page).send_keys(key).perform()

    def press_until(self, condition, key):
        for _ in range(60):
            if condition():
                return
            self.press(key)
        self.fail(f"not reached by keys; the focus is on {self.active('outerHTML')[:200]}")

    def active(self, name):
        return self.page.execute_script(
            "const [name] = arguments; const here = document.activeElement;"
            "return here.getAttribute(name) ?? here[name]", name)

    def test_two_people_see_who_applied_what_and_refusals_their_reason(self):
        self.start(serials=("SIM00001", "SIM00002"),
                   cameras="serial=SIM00001 sensor=640x480\nserial=SIM00002 sensor=640x480", dark=True)
        other = self.look()
        self.wait("pictures", lambda: self.frame(".card canvas"))
        self.assertEqual(self.page.execute_script("return document.documentElement.dataset.theme"), "dark")
        self.shoot("dark-cards")
        self.open_camera()
        self.open_camera(other)
        self.apply("gain_db", "99")
        self.wait("the refusal", lambda: "gain_db = 99: the camera takes 0 to" in self.text("refusal"))
        self.apply("gain_db", "3")
        self.wait("the same on both", lambda: "gain 3 dB, by 127.0.0.1" in self.text("entries", other) and
                  "gain 3 dB, by 127.0.0.1" in self.text("entries"))
        self.shoot("dark")

    def test_nothing_is_written_to_the_console(self):
        self.start()
        self.open_camera()
        for button in ("in", "real", "fit"):
            self.page.find_element(By.CSS_SELECTOR, f"[data-zoom={button}]").click()
        self.assertTrue(self.page.execute_script(PICTURE_HAS_PIXELS_OF_THE_SCREEN))
        self.element("clipping").click()
        time.sleep(1)
        self.assertEqual([line["message"] for line in self.page.get_log("browser")], [])

    def test_without_the_token_nothing_can_be_changed(self):
        self.start()
        self.page.execute_script("sessionStorage.clear()")
        self.page.get(self.run_of.link.split("#")[0])
        self.wait("a picture", lambda: self.frame(".card canvas"))
        self.assertIn("needs the token", self.text("look-only"))
        self.open_camera()
        self.assertFalse(self.element("entry-gain_db").is_enabled())
        self.assertFalse(self.element("configuration").is_enabled())


if __name__ == "__main__":
    LivePage.program = sys.argv.pop(1)
    unittest.main(verbosity=2)
