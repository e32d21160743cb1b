# SPDX-License-Identifier: MIT
"""The room console's page in a real headless Chromium: the live view, the forms and the banner.
Each test saves a screenshot under VASK_SCREENSHOT_DIR."""
import os
import shutil
import sys
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support import expected_conditions as seen
from selenium.webdriver.support.ui import Select, WebDriverWait

sys.path.insert(0, os.path.dirname(__file__))
from room import Room  # noqa: E402

WAIT = 15  # seconds any one thing on the page may take to appear


def chromium(width, height):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    profile = tempfile.mkdtemp(prefix="vask-chromium-")
    # Without the background-networking switches Chromium reaches for the network at start, which
    # a closed machine refuses.
    for switch in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                   "--disable-background-networking", "--disable-component-update", "--disable-sync",
                   "--disable-dev-shm-usage", f"--user-data-dir={profile}", f"--window-size={width},{height}"):
        options.add_argument(switch)
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.profile_dir = profile
    return driver


class ConsolePage(unittest.TestCase):
    width, height = 1280, 800

    def setUp(self):
        if os.environ.get("VASK_SANITIZE") == "thread":
            self.skipTest("skipped under the thread sanitizer: the console answers too slowly for a browser")
        self.room = Room()
        self.driver = chromium(self.width, self.height)
        self.driver.get(self.room.url)
        self.wait = WebDriverWait(self.driver, WAIT)
        self.wait.until(lambda d: d.find_element(By.ID, "service-state").text == "service online")
        self.wait.until(lambda d: d.find_element(By.ID, "projector-protocol").get_attribute("value") == "none")

    def tearDown(self):
        folder = os.environ.get("VASK_SCREENSHOT_DIR", ".")
        os.makedirs(folder, exist_ok=True)
        self.driver.save_screenshot(os.path.join(folder, f"{self._testMethodName}.png"))
        self.driver.quit()
        shutil.rmtree(self.driver.profile_dir, ignore_errors=True)
        self.room.close()

    def text(self, element_id):
        return self.driver.find_element(By.ID, element_id).text

    def fill(self, element_id, value):
        field = self.driver.find_element(By.ID, element_id)
        field.clear()
        field.send_keys(value)

    def test_Tallies_ShouldChangeWhenAVoteIsCast(self):
        self.driver.find_element(By.CSS_SELECTOR, "[data-vote=enter]").click()
        self.wait.until(lambda d: self.text("vote-status") == "open")
        self.driver.find_element(By.CSS_SELECTOR, "[data-vote=start]").click()
        self.wait.until(lambda d: self.text("vote-status") == "running")
        self.room.edctl("sim", "vote", "agree")
        self.room.edctl("sim", "vote", "agree")
        self.room.edctl("sim", "vote", "disagree")
        self.wait.until(lambda d: self.text("vote-total") == "3")
        self.assertEqual((self.text("vote-agree"), self.text("vote-disagree")), ("2", "1"))

    def test_ProjectorForm_ShouldSwitchToPjlinkInTheFileAndTheService(self):
        Select(self.driver.find_element(By.ID, "projector-protocol")).select_by_value("pjlink")
        self.fill("projector-ip_address", "192.0.2.400")
        self.driver.find_element(By.CSS_SELECTOR, "#projector-form button[type=submit]").click()
        self.assertEqual(self.text("projector-answer"), "IP address must be an IPv4 address such as 192.0.2.40")
        self.assertIsNone(self.room.applied("projector_control"), "a refused form sends nothing")
        self.fill("projector-ip_address", "192.0.2.40")
        self.fill("projector-password", "secret")
        self.driver.find_element(By.CSS_SELECTOR, "#projector-form button[type=submit]").click()
        self.wait.until(lambda d: self.text("projector-answer") == "Saved.")
        stored = self.room.etc("external_device.json")["projector_control"]
        self.assertEqual(stored["protocol"], "pjlink")
        self.assertEqual(stored["parameters"]["pjlink"], {"ip_address": "192.0.2.40", "password": "secret"})
        self.assertEqual(self.room.applied("projector_control")["parameters"]["pjlink"]["ip_address"], "192.0.2.40")

    def test_MicrophoneItem_ShouldBeAddedShownAsTextAndDeleted(self):
        hostile = "<img src=x onerror=alert(1)>"
        self.fill("item-gr", "1")
        self.fill("item-id", "7")
        self.fill("item-nt", hostile)
        self.fill("item-c0", "3")
        self.fill("item-p0", "1")
        self.driver.find_element(By.CSS_SELECTOR, "#item-form button[type=submit]").click()
        self.wait.until(lambda d: len(d.find_elements(By.CSS_SELECTOR, "#items-table tbody tr")) == 1)
        cells = self.driver.find_elements(By.CSS_SELECTOR, "#items-table tbody td")
        self.assertEqual([c.text for c in cells[:4]], ["1", "7", hostile, "c0=3 p0=1"])
        self.assertEqual(self.driver.find_elements(By.CSS_SELECTOR, "#items-table img"), [])
        self.assertEqual(self.room.etc("microphone_control.json")["microphone_config"],
                         [{"gr": "1", "id": "7", "nt": hostile, "c0": 3, "p0": 1}])
        self.driver.execute_script("document.getElementById('mic-control').scrollIntoView()")
        self.driver.save_screenshot(os.path.join(os.environ.get("VASK_SCREENSHOT_DIR", "."), "hostile_item.png"))
        self.driver.find_element(By.XPATH, "//table[@id='items-table']//button[text()='Delete']").click()
        self.wait.until(lambda d: len(d.find_elements(By.CSS_SELECTOR, "#items-table tbody tr")) == 0)
        self.assertEqual(self.room.etc("microphone_control.json")["microphone_config"], [])

    def test_OfflineBanner_ShouldShowWhileTheServiceIsAway(self):
        banner = self.driver.find_element(By.ID, "offline-banner")
        self.assertFalse(banner.is_displayed())
        self.room.stop_sim()
        self.wait.until(lambda d: banner.is_displayed())
        self.assertEqual(banner.text, "The external_device service is offline: the live view and the settings "
                                      "wait for it to return.")
        self.driver.save_screenshot(os.path.join(os.environ.get("VASK_SCREENSHOT_DIR", "."), "offline_banner.png"))
        self.room.start_sim()
        self.wait.until(lambda d: not banner.is_displayed())
        self.assertEqual(self.text("service-state"), "service online")

    def test_MicrophonesOn_ShouldFollowThePresses(self):
        self.room.edctl("sim", "press", "1", "7")
        self.wait.until(lambda d: self.text("mics-on") == "Group 1, microphone 7")
        self.room.edctl("sim", "release", "1", "7")
        self.wait.until(lambda d: self.text("mics-on") == "")
        self.assertTrue(self.driver.find_element(By.ID, "mics-none").is_displayed())


class ConsolePageOnATablet(ConsolePage):
    width, height = 800, 1280

    def test_Page_ShouldFitTheWidthWithAFieldLabelEach(self):
        overflow = self.driver.execute_script(
            "return document.documentElement.scrollWidth - document.documentElement.clientWidth")
        self.assertLessEqual(overflow, 0)
        unlabelled = self.driver.execute_script(
            "return [...document.querySelectorAll('input, select')].filter(i => !i.labels || !i.labels.length)"
            ".map(i => i.id)")
        self.assertEqual(unlabelled, [])


# The tablet class runs its own test only; the others run at the desktop size.
for name in [n for n in dir(ConsolePage) if n.startswith("test_")]:
    setattr(ConsolePageOnATablet, name, None)

if __name__ == "__main__":
    unittest.main()
