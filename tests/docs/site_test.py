#!/usr/bin/env python3
"""Opens the site of the documentation in a browser, on a desktop and on a phone, light and dark.

usage: site_test.py FOLDER_OF_THE_PAGES"""

import pathlib
import shutil
import sys
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

SITE = pathlib.Path(sys.argv[1]).resolve()
SCREENS = {"desktop": (1280, 900), "phone": (390, 844)}
THEMES = ["light", "dark"]
SEARCHES = {"fork": "threads_and_fork.html", "IPv6": "endpoints.html", "queue": "rate_limiting.html",
            "Address already in use": "endpoints.html", "localhost": "endpoints.html",
            "Receive buffer size too small": "troubleshooting.html", "sendProtoBuf": "classrk_1_1socket_1_1Socket.html",
            "am I connected?": "faq.html", "process hangs at exit": "process_exit.html", "TLS": "faq.html",
            "which side starts first": "faq.html", "high-water mark": "rate_limiting.html"}

# The text whose contrast with its background is below 4.5 to 1, as the guidelines for accessible pages compute it.
FAINT_TEXT = """
const channels = colour => colour.match(/[\\d.]+/g).map(Number);
const luminance = ([r, g, b]) => [0.2126, 0.7152, 0.0722].reduce((sum, weight, index) => {
    const part = [r, g, b][index] / 255;
    return sum + weight * (part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
}, 0);
const background = element => {
    for (; element; element = element.parentElement) {
        const colour = channels(getComputedStyle(element).backgroundColor);
        if (colour.length === 3 || colour[3] === 1) return colour;
    }
    return [255, 255, 255];
};
const faint = new Set();
const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (texts.nextNode()) {
    const element = texts.currentNode.parentElement;
    if (!texts.currentNode.data.trim() || !element.checkVisibility() || element.tagName === "SCRIPT") continue;
    const both = [luminance(channels(getComputedStyle(element).color)), luminance(background(element))].sort((a, b) => b - a);
    if ((both[0] + 0.05) / (both[1] + 0.05) < 4.5) faint.add(element.tagName + "." + element.className);
}
return [...faint];
"""
SIZES_OF_PROSE = """
return [...new Set([...document.querySelectorAll(".contents p, .contents li, .markdownTable td:not(.figures td)")]
    .map(element => getComputedStyle(element).fontSize + " " + getComputedStyle(element).fontFamily))];
"""


class Site(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"):
            options.add_argument(argument)
        options.binary_location = shutil.which("chromium")
        cls.browser = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
        cls.addClassCleanup(cls.browser.quit)
        cls.pages = sorted(SITE.glob("*.html"))

    def show(self, screen):
        width, height = SCREENS[screen]
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": screen == "phone"})

    def open(self, page, theme="light"):
        self.browser.get((SITE / page).as_uri())
        self.browser.execute_script("document.documentElement.dataset.theme = arguments[0]", theme)

    def views(self, screens=("desktop",), themes=("light",)):
        """Opens each page in turn, and yields how it is shown."""
        for screen in screens:
            self.show(screen)
            for page in self.pages:
                for theme in themes:
                    self.open(page, theme)
                    yield {"screen": screen, "page": page.name, "theme": theme}

    def search(self, text):
        field = self.browser.find_element(By.ID, "search")
        field.clear()
        field.send_keys(text)
        WebDriverWait(self.browser, 30).until(lambda browser: browser.find_elements(By.CSS_SELECTOR, "#results .status"))
        return [link.get_attribute("href") for link in self.browser.find_elements(By.CSS_SELECTOR, "#results li a")]

    def test_nothing_is_wider_than_the_screen(self):
        for view in self.views(SCREENS):
            with self.subTest(**view):
                self.assertGreaterEqual(SCREENS[view["screen"]][0], self.browser.execute_script(
                    "return Math.max(document.documentElement.scrollWidth, document.body.scrollWidth)"))

    def test_no_column_is_squeezed(self):
        for view in self.views(SCREENS):
            with self.subTest(**view):
                self.assertEqual([], self.browser.execute_script(
                    "return [...document.querySelectorAll('td')].filter(cell => cell.textContent.trim().length > 3 &&"
                    " cell.clientWidth < 24 && cell.checkVisibility()).map(cell => cell.textContent)"))

    def test_all_text_has_contrast(self):
        for view in self.views(themes=THEMES):
            with self.subTest(**view):
                self.assertEqual([], self.browser.execute_script(FAINT_TEXT))

    def test_prose_has_one_font_and_size(self):
        for view in self.views():
            with self.subTest(**view):
                self.assertGreaterEqual(1, len(self.browser.execute_script(SIZES_OF_PROSE)))

    def test_every_page_is_in_the_menu(self):
        for screen in SCREENS:
            self.show(screen)
            self.open("index.html")
            if screen == "phone":
                self.browser.find_element(By.ID, "open-menu").click()
            links = self.browser.find_elements(By.CSS_SELECTOR, "#menu a")
            self.assertTrue(all(link.is_displayed() for link in links))
            self.assertEqual({page.as_uri() for page in self.pages}, {link.get_attribute("href") for link in links})

    def test_code_is_shown_as_code(self):
        for page in self.pages:  # Doxygen takes `a 'b'` for a quotation
            with self.subTest(page=page.name):
                self.assertNotIn("&lsquo;", page.read_text())

    def test_every_page_has_its_own_title(self):
        titles = []
        for page in self.pages:
            self.open(page)
            titles.append(self.browser.title)
        self.assertEqual(len(self.pages), len(set(titles)))

    def test_every_link_leads_somewhere(self):
        for page in self.pages:
            self.open(page)
            for link in self.browser.execute_script(
                    "return [...document.links].map(link => link.href).filter(link => link.startsWith('file:'))"):
                file, _, anchor = link.removeprefix("file://").partition("#")
                target = pathlib.Path(file)
                with self.subTest(page=page.name, link=link):
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(f'id="{anchor}"', target.read_text())

    def test_search_finds_words_and_messages(self):
        for screen in SCREENS:
            self.show(screen)
            for theme in THEMES:
                self.open("listener.html", theme)
                for text, page in SEARCHES.items():
                    with self.subTest(screen=screen, theme=theme, text=text):
                        self.assertIn(page, [link.split("/")[-1].split("#")[0] for link in self.search(text)][:5])
                        self.assertEqual([], self.browser.execute_script(FAINT_TEXT))

    def test_search_says_that_it_has_found_nothing(self):
        self.show("desktop")
        self.open("index.html")
        self.assertEqual([], self.search("xyzzy"))
        self.assertEqual("Nothing found", self.browser.find_element(By.CSS_SELECTOR, "#results .status").text)

    def test_a_result_opens_its_section(self):
        self.show("desktop")
        self.open("endpoints.html")
        self.search("Listen on one interface")
        self.browser.find_element(By.CSS_SELECTOR, "#results li a").click()
        WebDriverWait(self.browser, 30).until(lambda browser: browser.find_element(By.TAG_NAME, "article").is_displayed())
        self.assertIn("#endpoints_listen_on_one_interface", self.browser.current_url)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
